#include "os.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

timespec now(clockid_t clock) {
    timespec reading{};
    clock_gettime(clock, &reading);
    return reading;
}

std::int64_t to_nanoseconds(const timespec &reading) {
    return static_cast<std::int64_t>(reading.tv_sec) * kNanosecondsPerSecond + reading.tv_nsec;
}

timespec to_timespec(std::int64_t nanoseconds) {
    timespec time{};
    time.tv_sec = static_cast<time_t>(nanoseconds / kNanosecondsPerSecond);
    time.tv_nsec = static_cast<long>(nanoseconds % kNanosecondsPerSecond);
    return time;
}

// The end is absolute, so that resuming after a signal does not lengthen the sleep. Without a reading it is
// the length, and then what is left of it.
void sleep_nanoseconds(std::int64_t length) {
    if (length <= 0) return;
    timespec start{};
    const int flags = clock_gettime(CLOCK_MONOTONIC, &start) == 0 ? TIMER_ABSTIME : 0;
    timespec end = to_timespec(to_nanoseconds(start) + length);
    while (clock_nanosleep(CLOCK_MONOTONIC, flags, &end, &end) == EINTR) {
    }
}

}  // namespace

time_t wall_seconds() {
    return now(CLOCK_REALTIME).tv_sec;
}

std::int64_t steady_seconds() {
    // The monotonic clock, shifted to turn over together with the wall clock's seconds: pauses end there, and
    // a reading taken just after one must not waver between two values.
    const long fraction = now(CLOCK_REALTIME).tv_nsec;
    const std::int64_t steady = to_nanoseconds(now(CLOCK_MONOTONIC)) - fraction;
    return (steady + kNanosecondsPerSecond / 2) / kNanosecondsPerSecond;
}

void sleep_milliseconds(std::int64_t milliseconds) {
    sleep_nanoseconds(milliseconds * 1'000'000);
}

void pause_seconds(long seconds) {
    sleep_nanoseconds(static_cast<std::int64_t>(seconds) * kNanosecondsPerSecond -
                      now(CLOCK_REALTIME).tv_nsec);
}

void pause_within_second(long nanoseconds) {
    sleep_nanoseconds(nanoseconds - now(CLOCK_REALTIME).tv_nsec);
}

timespec pause_deadline(long seconds) {
    return to_timespec(to_nanoseconds(now(CLOCK_MONOTONIC)) +
                       static_cast<std::int64_t>(seconds) * kNanosecondsPerSecond -
                       now(CLOCK_REALTIME).tv_nsec);
}

void drop_page_cache() {
    sync();
    const int file = open("/proc/sys/vm/drop_caches", O_WRONLY | O_CLOEXEC);
    if (file < 0) return;
    [[maybe_unused]] const ssize_t written = write(file, "1", 1);
    close(file);
}
