#include "sdk_alarms.h"

#include <time.h>

#include <cstdio>
#include <cstdlib>
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
    double monotonic_ms;
};

std::mutex lock;
RecordRing<KeptAlarm, 1024> alarms;  // under `lock`
int result_to_give = 0;              // under `lock`

// A line to each alarm in the file that DESK_SDK_ALARMS_FILE names: it outlives the process.
void write_down(const alarm_record &alarm) {
    static const char *const path = getenv("DESK_SDK_ALARMS_FILE");
    FILE *file = path != nullptr ? fopen(path, "ae") : nullptr;
    if (file == nullptr) return;
    fprintf(file, "{\"status\":%d,\"monotonic_ms\":%.3f,\"time\":%lld,\"pid\":%d}\n", alarm.status,
            process_now_ms(), static_cast<long long>(time(nullptr)), static_cast<int>(getpid()));
    fclose(file);
}

}  // namespace

int keep_alarm(const alarm_record &alarm, bool own_table) {
    const std::lock_guard guard(lock);
    write_down(alarm);
    alarms.next() = {alarm,         own_table,     result_to_give,  thread_id(),
                     time(nullptr), real_now_ms(), process_now_ms()};
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
                        {"monotonic_ms", alarm.monotonic_ms},
                        {"tid", alarm.tid}});
    });
    return {{"total", alarms.total()}, {"alarms", list}};
}

void forget_alarms() {
    const std::lock_guard guard(lock);
    alarms.clear();
}

}  // namespace desk
