// The polled events as the camera and the cloud know them, in the order in which they are asked for.
#ifndef UNIT_AGENT_POLL_EVENT_ROWS_H
#define UNIT_AGENT_POLL_EVENT_ROWS_H

#include <algorithm>
#include <string>
#include <vector>

#include "agent/alarm_rules.h"

struct PollEventRow {
    const char *name;
    AlarmRule rule;
    int status;
    const char *period_key, *armed_key, *threshold_key;
    const char *quiet;            // a value that asks for no alarm
    const char *quiet_text = "";  // what the rule logs of it
};

inline constexpr PollEventRow kPollEventRows[] = {
    {"MotionEvent", AlarmRule::trigger, 1, "-", "-", "-", "0"},
    {"AudioEvent", AlarmRule::trigger, 3, "-", "-", "-", "0"},
    {"TemperatureEvent", AlarmRule::temperature, 0, "-", "-", "-", "0"},
    {"Battery", AlarmRule::low_value, 13, "BATTERY_PERIOD", "BATTERY_ARMED", "BATTERY_LOW", "80"},
    {"Space", AlarmRule::low_card_space, 11, "SDCARD_PERIOD", "SDCARD_ARMED", "SDCARD_LOW", "2048"},
    {"SD", AlarmRule::missing_card, 15, "SDCARD_PERIOD", "-", "-", "2",
     "--platform/Z55/agent/polling, line <N> -- \nSD alarm had send , don't do something\n"},
};

// All but these.
inline std::vector<PollEventRow> polled_events(const std::vector<std::string> &not_these) {
    std::vector<PollEventRow> rows;
    for (const PollEventRow &row : kPollEventRows) {
        if (std::find(not_these.begin(), not_these.end(), row.name) == not_these.end()) rows.push_back(row);
    }
    return rows;
}

// The query's keys while some are not due.
inline std::string polled_keys(const std::vector<std::string> &not_due = {}) {
    std::string keys = "Notification";
    for (const PollEventRow &row : polled_events(not_due)) keys += std::string("&") + row.name;
    return keys;
}

// What a cycle without an alarm logs of the values.
inline std::string quiet_values(const std::vector<std::string> &not_due = {}) {
    std::string log;
    for (const PollEventRow &row : polled_events(not_due)) {
        log += row.quiet_text + std::string("Value of ") + row.name + ":" + row.quiet + "\n";
    }
    return log;
}

#endif
