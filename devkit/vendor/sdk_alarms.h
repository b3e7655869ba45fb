// The alarm records that the SDK was handed. Called from any thread.
#pragma once

#include "contract.h"
#include "json_http.h"

namespace desk {

// SendAlarmData: keeps a copy of the record; returns the ordered result. `own_table`: the second argument was
// the SDK's table.
int keep_alarm(const alarm_record &alarm, bool own_table);
void set_alarm_result(int result);
int alarm_result();
uint64_t alarm_count();

// {"total", "alarms"} with the kept records after sequence number `since`.
json alarms_since(uint64_t since);
void forget_alarms();

}  // namespace desk
