#include "sdk_alarms.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

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
    int result, tid, pid;
    int64_t time, real_ms;
    double monotonic_ms;
};

std::mutex lock;
using AlarmRing = RecordRing<KeptAlarm, 1024>;
int result_to_give = 0;  // under `lock`

// The ring in the file that DESK_SDK_ALARMS_KEPT names, so that an agent begins with the alarms of those
// before it; null where there is none. A file of another size is made anew.
AlarmRing *open_kept() {
    const char *path = getenv("DESK_SDK_ALARMS_KEPT");
    const int fd = path != nullptr ? open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600) : -1;
    if (fd < 0) return nullptr;
    struct stat status {};
    const bool fits = fstat(fd, &status) == 0 && status.st_size == static_cast<off_t>(sizeof(AlarmRing));
    const bool made = fits || (ftruncate(fd, 0) == 0 && ftruncate(fd, sizeof(AlarmRing)) == 0);
    void *at =
        made ? mmap(nullptr, sizeof(AlarmRing), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0) : MAP_FAILED;
    close(fd);
    return at == MAP_FAILED ? nullptr : static_cast<AlarmRing *>(at);
}

// Under `lock`.
AlarmRing &alarms() {
    static AlarmRing own;
    static AlarmRing *const kept = open_kept();
    return kept != nullptr ? *kept : own;
}

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
    alarms().next() = {alarm,    own_table,     result_to_give, thread_id(),
                       getpid(), time(nullptr), real_now_ms(),  process_now_ms()};
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
    return alarms().total();
}

json alarms_since(uint64_t since) {
    const std::lock_guard guard(lock);
    json list = json::array();
    alarms().each_since(since, [&list](uint64_t seq, const KeptAlarm &alarm) {
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
                        {"tid", alarm.tid},
                        {"pid", alarm.pid}});
    });
    return {{"total", alarms().total()}, {"alarms", list}};
}

void forget_alarms() {
    const std::lock_guard guard(lock);
    alarms().clear();
}

}  // namespace desk
