#include "bend_clock.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "bend_file.h"

namespace bend {

namespace {

constexpr std::int64_t kMicrosecondsPerSecond = kSecond / kMicrosecond;
constexpr double kMinimalSpeed = 0.01;
constexpr double kMaximalSpeed = 10000;
constexpr std::int64_t kLongest = 4 * kSecond * kSecond;  // still fits twice, some 127 years

struct BentTime {
    double speed;
    BendFile *shared;          // null without BEND_FILE
    std::int64_t origin;       // real monotonic reading where the bent time began
    std::int64_t wall_origin;  // real wall clock at that moment
    std::int64_t boot_origin;  // real boot clock at that moment
};

double speed_asked_for() {
    const char *text = std::getenv("BEND_SPEED");
    const double speed = text != nullptr ? std::atof(text) : 1;
    return speed > 0 ? std::clamp(speed, kMinimalSpeed, kMaximalSpeed) : 1;
}

// The first process that uses the file sets the origin; one from an earlier boot of the host is of no use.
std::int64_t shared_origin(BendFile *shared, std::int64_t start) {
    std::int64_t origin = __atomic_load_n(&shared->origin_ns, __ATOMIC_ACQUIRE);
    while (origin == 0 || origin > start) {
        if (__atomic_compare_exchange_n(&shared->origin_ns, &origin, start, false, __ATOMIC_ACQ_REL,
                                        __ATOMIC_ACQUIRE)) {
            return start;
        }
    }
    return origin;
}

BentTime begin() {
    BentTime time{};
    time.speed = speed_asked_for();
    const char *path = std::getenv("BEND_FILE");
    time.shared = path != nullptr && *path != '\0' ? map_bend_file(path) : nullptr;
    const std::int64_t start = real_now(CLOCK_MONOTONIC);
    time.origin = time.shared != nullptr ? shared_origin(time.shared, start) : start;
    time.wall_origin = real_now(CLOCK_REALTIME) - (start - time.origin);
    time.boot_origin = real_now(CLOCK_BOOTTIME) - (start - time.origin);
    return time;
}

const BentTime &current() {
    static const BentTime time = begin();
    return time;
}

// Begins with the process, not with the first question, and before any signal handler can ask.
__attribute__((constructor)) void begin_with_process() {
    current();
}

bool is_wall(clockid_t clock) {
    return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
}

// What `clock` read, or would have read without any step since, where the bent time began.
Moment reading_at_origin(clockid_t clock) {
    const BentTime &time = current();
    if (clock == CLOCK_BOOTTIME) return later({}, time.boot_origin);
    if (!is_wall(clock)) return later({}, time.origin);
    const std::int64_t offset =
        time.shared != nullptr ? __atomic_load_n(&time.shared->wall_offset_us, __ATOMIC_RELAXED) : 0;
    const Moment stepped =
        later({offset / kMicrosecondsPerSecond, 0}, offset % kMicrosecondsPerSecond * kMicrosecond);
    return later(stepped, time.wall_origin);
}

}  // namespace

Moment later(const Moment &start, std::int64_t nanoseconds) {
    Moment result{start.seconds + nanoseconds / kSecond, start.nanoseconds + nanoseconds % kSecond};
    if (result.nanoseconds < 0) {
        result.seconds--;
        result.nanoseconds += kSecond;
    } else if (result.nanoseconds >= kSecond) {
        result.seconds++;
        result.nanoseconds -= kSecond;
    }
    return result;
}

std::int64_t to_length(std::int64_t seconds, std::int64_t nanoseconds) {
    constexpr std::int64_t kMost = kLongest / kSecond;
    if (seconds >= kMost) return kLongest;
    if (seconds <= -kMost) return -kLongest;
    return seconds * kSecond + nanoseconds;
}

std::int64_t real_now(clockid_t clock) {
    struct {
        std::int64_t seconds, nanoseconds;
    } reading{};
#ifdef SYS_clock_gettime64
    if (syscall(SYS_clock_gettime64, clock, &reading) != 0) return -1;
#else
    if (syscall(SYS_clock_gettime, clock, &reading) != 0) return -1;
#endif
    return reading.seconds * kSecond + reading.nanoseconds;
}

bool is_bent(clockid_t clock) {
    return is_wall(clock) || clock == CLOCK_MONOTONIC || clock == CLOCK_MONOTONIC_RAW ||
           clock == CLOCK_MONOTONIC_COARSE || clock == CLOCK_BOOTTIME;
}

Moment now(clockid_t clock) {
    const BendFile *shared = current().shared;
    const std::int64_t skipped =
        shared != nullptr ? __atomic_load_n(&shared->skipped_ns, __ATOMIC_ACQUIRE) : 0;
    return later(later(reading_at_origin(clock), skipped),
                 to_bent(real_now(CLOCK_MONOTONIC) - current().origin));
}

std::int64_t left_until(clockid_t clock, const Moment &deadline) {
    const Moment reading = now(clock);
    std::int64_t seconds = 0;
    if (__builtin_sub_overflow(deadline.seconds, reading.seconds, &seconds))
        return deadline.seconds > 0 ? kLongest : -kLongest;
    return to_length(seconds, deadline.nanoseconds - reading.nanoseconds);
}

std::int64_t to_real(std::int64_t bent_length) {
    if (bent_length <= 0) return bent_length;
    return static_cast<std::int64_t>(std::min(std::ceil(static_cast<double>(bent_length) / current().speed),
                                              static_cast<double>(kLongest)));
}

std::int64_t to_bent(std::int64_t real_length) {
    constexpr auto kMost = static_cast<double>(kLongest);
    return static_cast<std::int64_t>(
        std::clamp(static_cast<double>(real_length) * current().speed, -kMost, kMost));
}

std::int64_t real_wait(clockid_t clock, const Moment &deadline) {
    const std::int64_t left = left_until(clock, deadline);
    if (left <= 0) return 0;
    const std::int64_t wait = to_real(left) + 1;
    return is_wall(clock) ? std::min(wait, kStepCheck) : wait;
}

std::atomic<unsigned> &signals_sent(const void *condition) {
    constinit static std::atomic<unsigned> counters[64];
    return counters[reinterpret_cast<std::uintptr_t>(condition) / 16 % 64];
}

}  // namespace bend
