#include "polling.h"

#include <cstdint>
#include <cstdio>
#include <mutex>
#include <optional>
#include <string_view>
#include <vector>

#include "../exports.h"
#include "../shared.h"
#include "alarm_latch.h"
#include "alarm_rules.h"
#include "quota.h"
#include "status_query.h"
#include "utils/conf_file.h"
#include "utils/os.h"
#include "utils/shell_file.h"
#include "utils/text.h"
#include "utils/threads.h"

namespace {

constexpr char kSource[] = "platform/Z55/agent/polling";
constexpr long kStartDelayMilliseconds = 9000;
constexpr size_t kPercentDigits = 9;  // of df's text that are looked at

struct PollEvent {
    const char *name;  // also the camera's status key
    int enabled;
    time_t last;               // wall clock when last polled, 0 when not yet; for the log
    int period;                // seconds; 0: every cycle
    std::int64_t last_steady;  // the same instant on the steady clock, which decides; kNever when not yet
};

constexpr std::int64_t kNever = INT64_MIN / 2;

struct PollTime {
    time_t wall;
    std::int64_t steady;
};

// The latches outlive myPoll: an alarm sent before a new login is not sent again while its condition lasts.
constinit LevelAlarm battery_alarm{kBatteryAlarm, false, "(poll) low battery event detected",
                                   "battery alarm end , recover flag",
                                   "battery alarm had send , don't do something"};
constinit LevelAlarm card_space_alarm{kCardSpaceAlarm, false, "(poll) low SDcard space event detected",
                                      "SDspace alarm end , recover flag",
                                      "SDspace alarm had send , don't do something"};
constinit LevelAlarm no_card_alarm{kNoCardAlarm, false, "NO_SD_CARD Alarm event detected",
                                   "SD alarm end , recover flag", "SD alarm had send , don't do something"};

PollEvent event(const char *name, const char *period_key) {
    return {name, 1, 0, period_key != nullptr ? conf_number(period_key).value_or(0) : 0, kNever};
}

struct PollTable {
    std::vector<PollEvent> events;
    PollEvent nimb;
};

PollTable init_events() {
    PollTable table{{
                        event("MotionEvent", nullptr),
                        event("AudioEvent", nullptr),
                        event("TemperatureEvent", nullptr),
                        event("Battery", "BATTERY_PERIOD"),
                        event("Space", "SDCARD_PERIOD"),
                        event("SD", "SDCARD_PERIOD"),
                    },
                    {}};
    std::printf("before_init_nimb_status  %s,line %d\n", kSource, __LINE__);
    table.nimb = event("Nimb", "NIMB_PERIOD");
    std::printf("after_init_nimb_status  %s,line %d\n", kSource, __LINE__);
    std::puts("Events initialized.");
    return table;
}

// Whether `entry` may be polled `now`; if so, `now` becomes its last time. Every entry is due the first time.
bool due(PollEvent &entry, const PollTime &now) {
    if (now.steady - entry.last_steady < entry.period) return false;
    entry.last = now.wall;
    entry.last_steady = now.steady;
    return true;
}

std::vector<const PollEvent *> due_events(PollTable &table, const PollTime &now) {
    std::vector<const PollEvent *> polled;
    polled.reserve(table.events.size());
    for (PollEvent &entry : table.events) {
        if (due(entry, now)) {
            polled.push_back(&entry);
        } else {
            std::printf("*** (poll) not long enough, curr tv_sec:%ld, last sec: %ld, key:%s ***\n",
                        static_cast<long>(now.wall), static_cast<long>(entry.last), entry.name);
        }
    }
    return polled;
}

void check_temperature(const std::string &key, const std::string &host) {
    const auto values =
        getCameraStatuses(key, host, {"Temperature", "TemperatureMax", "TemperatureMin"}, false);
    if (!values) {
        std::puts("getMultipleCameraStatuses failed: return value is null.");
        return;
    }
    if (query_error(*values) != nullptr) return;
    for (size_t i = 0; i < values->size(); i++) {
        if ((*values)[i]) continue;
        std::printf("values[%d] = NULL, aborting %s : %d\n", static_cast<int>(i), kSource, __LINE__);
        return;
    }
    const int temperature = to_int((*values)[0]->c_str());
    const int max = to_int((*values)[1]->c_str());
    const int min = to_int((*values)[2]->c_str());
    std::printf("Temperature=%d TemperatureMax=%d TemperatureMin=%d \n", temperature, max, min);
    const auto status = temperature_alarm(temperature, max, min);
    if (!status) return;
    std::puts(*status == kTemperatureHighAlarm ? "TemperatureMax alarm" : "TemperatureMin alarm");
    SendAlarmData(1, "alarm", *status);
}

// Motion and sound are not latched: one alarm per cycle while they last.
void apply_trigger(const std::string &name, const char *value, const std::string &key,
                   const std::string &host) {
    if (!triggered(value)) return;
    std::puts("(poll) Alarm event detected   ");
    if (name == "MotionEvent") SendAlarmData(1, "alarm", kMotionAlarm);
    if (name == "AudioEvent") SendAlarmData(1, "alarm", kSoundAlarm);
    if (name == "TemperatureEvent") check_temperature(key, host);
}

bool armed(const char *key) {
    char text[16];
    conf_value_into(text, key);
    return std::string_view(text) == "1";
}

void apply_alarm_rules(const char *name, const char *value, const std::string &key, const std::string &host) {
    const bool battery_armed = armed("BATTERY_ARMED");
    const bool sdcard_armed = armed("SDCARD_ARMED");
    switch (alarm_rule(name, battery_armed, sdcard_armed)) {
        case AlarmRule::battery:
            apply_level(battery_alarm, to_int(value) < conf_number("BATTERY_LOW").value_or(0), __LINE__);
            break;
        case AlarmRule::card_space: {
            const int low = conf_number("SDCARD_LOW").value_or(0);
            apply_level(card_space_alarm, get_SDspace_percent() < low, __LINE__);
            break;
        }
        case AlarmRule::card_presence:
            apply_level(no_card_alarm, card_missing(value), __LINE__);
            break;
        case AlarmRule::trigger:
            apply_trigger(name, value, key, host);
            break;
    }
}

void watch_quota(PollEvent &nimb, const PollTime &now) {
    const time_t last = nimb.last;
    if (!due(nimb, now)) {
        std::printf("*** (nimb_poll) not long enough, curr tv_sec:%ld, last sec: %ld***\n",
                    static_cast<long>(now.wall), static_cast<long>(last));
        return;
    }
    check_quota();
    std::printf("*** (nimb_poll) OK curr tv_sec:%ld, last sec: %ld***\n", static_cast<long>(now.wall),
                static_cast<long>(nimb.last));
}

void apply_values(const std::vector<const PollEvent *> &polled, const QueryResult &values,
                  const std::string &key, const std::string &host) {
    for (size_t j = 0; j < polled.size(); j++) {
        const char *name = polled[j]->name;
        if (!values[j]) {
            std::printf("values[%d] = NULL,  %s : %d\n", static_cast<int>(j), kSource, __LINE__);
            continue;
        }
        if (polled[j]->enabled != 0) apply_alarm_rules(name, values[j]->c_str(), key, host);
        std::printf("Value of %s:%s\n", name, values[j]->c_str());
    }
}

void sleep_until_next_cycle(int period) {
    std::printf("\n*** (Polling) end of a time. Start sleeping for %d sec.***\n\n", period);
    pause_and_start_missing(period > 0 ? period : 1);
    std::puts("\n*** (Polling) finish sleeping. ***");
}

// One cycle. Nothing, or the camera's error as the "ERRORCODE:" marker that ends the polling.
std::optional<std::string> poll_once(PollTable &table, const std::string &key, const std::string &host) {
    std::printf("\n*** (polling) beginning of a time ***\n");
    const PollTime now{wall_seconds(), steady_seconds()};
    const auto polled = due_events(table, now);
    std::vector<const char *> names;
    names.reserve(polled.size());
    for (const PollEvent *entry : polled) names.push_back(entry->name);
    const auto values = getCameraStatuses(key, host, names, true);
    if (!values) {
        std::puts("getMultipleCameraStatuses failed: return value is null.");
        return std::nullopt;
    }
    if (query_error(*values) != nullptr) return (*values)[0];
    watch_quota(table.nimb, now);
    apply_values(polled, *values, key, host);
    return std::nullopt;
}

}  // namespace

int myPoll(const std::string &key) {
    PollTable table = init_events();
    std::puts("start polling");
    const auto host_text = conf_value("hostIP");
    if (!host_text) {
        std::perror("Read hostIP failed.");
        return 1;
    }
    const std::string host = cut_to_buffer(*host_text, 16);
    const auto period = conf_number("POLL_STATUS_PERIOD_SEC");
    if (!period) {
        std::perror("Read polling period failed.");
        return 1;
    }
    std::printf("*** hostIP: %s ***\n", host.c_str());
    std::printf("*** Polling Period: %d ***\n", *period);
    sleep_milliseconds(kStartDelayMilliseconds);
    for (;;) {
        if (const auto error = poll_once(table, key, host)) {
            std::printf("myPoll failed. error:%s\n", error->c_str());
            return to_int(error->c_str() + 10);
        }
        sleep_until_next_cycle(*period);
    }
}

int SendAlarmData(int index, const char *name, int status) {
    mipc_api_table *table = load_shared(mipc_api);
    if (table == nullptr) {
        std::puts("(poll) mipc_api == NULL");
        return -1;
    }
    if (table->SendAlarmData == nullptr) {
        std::puts("(poll) mipc_api->SendAlarmData == NULL");
        return -2;
    }
    alarm_record record{};
    record.index = index;
    copy_text(record.name, name);
    record.status = status;
    std::printf("(poll) SendAlarmData!! index:%d, name:%s, status: %d \n", index, record.name, status);
    table->SendAlarmData(&record, table);
    std::puts("(poll) end SendAlarmData");
    return 0;
}

int get_SDspace_percent() {
    static constinit std::mutex file_lock;  // around df and the reading of its output
    const std::lock_guard<std::mutex> lock(file_lock);
    const auto text = shell_file_text(
        "df /tmp/fuse_d | /bin/grep /tmp/fuse_d  | /usr/bin/awk '{print $5}' > /tmp/space_percent",
        "/tmp/space_percent");
    const std::string line = text ? text->substr(0, text->find('\n')) : "";
    const int free = 100 - to_int(line.substr(0, kPercentDigits).c_str());
    std::printf(" get_SDspace_percent percent=%d\n", free);
    return free;
}
