// The one sender of alarm records. Any thread; holds no lock while it calls the SDK.
#ifndef Z55_AGENT_ALARM_SINK_H
#define Z55_AGENT_ALARM_SINK_H

#include "alarm_rules.h"

// Hands an alarm record to the SDK, synchronously, between two log lines that begin with `sender`, "(poll)"
// or "(OTA)". `name` is cut to 31 characters. Returns 0 once handed over, whatever the SDK says of it, -1
// without the SDK's table, -2 without its entry.
[[nodiscard]] int SendAlarmData(const char *sender, int index, const char *name, int status);

// The only record that the agent sends: index 1, "alarm".
[[nodiscard]] inline int send_alarm(const char *sender, AlarmStatus status) {
    return SendAlarmData(sender, 1, "alarm", status);
}

#endif
