#include "sdk_alarms.h"

#include <time.h>

#include <cstring>
#include <mutex>

#include "real_time.h"
#include "record_ring.h"
#include "text_values.h"

namespace desk {
namespace {

struct KeptAlarm {
    alarm_record record;
    bool own_table;
    int result, tid;
    int64_t time, real_ms;
};

std::mutex lock;
RecordRing<KeptAlarm, 1024> alarms;  // under `lock`
int result_to_give = 0;              // under `lock`

}  // namespace

int keep_alarm(const alarm_record &alarm, bool own_table) {
    const std::lock_guard guard(lock);
    alarms.next() = {alarm, own_table, result_to_give, thread_id(), time(nullptr), real_now_ms()};
    return result_to_give;
}

void set_alarm_result(int result) {
    const std::lock_guard guard(lock);
    result_to_give = result;
}

int alarm_result() {
    const std::lock_guard guard(lock);
    return result_to_give;
}

uint64_t alarm_count() {
    const std::lock_guard guard(lock);
    return alarms.total();
}

json alarms_since(uint64_t since) {
    const std::lock_guard guard(lock);
    json list = json::array();
    alarms.each_since(since, [&list](uint64_t seq, const KeptAlarm &alarm) {
        const std::string name(alarm.record.name, strnlen(alarm.record.name, sizeof alarm.record.name));
        list.push_back({{"seq", seq},
                        {"index", alarm.record.index},
                        {"name", text_value(name)},
                        {"status", alarm.record.status},
                        {"record", to_hex(&alarm.record, sizeof alarm.record)},
                        {"table", alarm.own_table},
                        {"result", alarm.result},
                        {"time", alarm.time},
                        {"real_ms", alarm.real_ms},
                        {"tid", alarm.tid}});
    });
    return {{"total", alarms.total()}, {"alarms", list}};
}

void forget_alarms() {
    const std::lock_guard guard(lock);
    alarms.clear();
}

}  // namespace desk
