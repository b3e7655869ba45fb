// The machine's own monotonic clock and pause. They go straight to the kernel, because the process that these
// libraries live in may have its libc clocks and sleeps bent.
#pragma once

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>

namespace desk {

struct KernelTime {
    long seconds, nanoseconds;
};

// Nanoseconds since the machine started.
inline int64_t real_now_ns() {
    KernelTime now{};
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
    return int64_t{now.seconds} * 1'000'000'000 + now.nanoseconds;
}

inline int64_t real_now_ms() {
    return real_now_ns() / 1'000'000;
}

// The process's own monotonic clock, which may be bent.
inline double process_now_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

// Blocks until real_now_ns() reaches `deadline` (nanoseconds).
inline void real_sleep_until_ns(int64_t deadline) {
    const KernelTime until{static_cast<long>(deadline / 1'000'000'000),
                           static_cast<long>(deadline % 1'000'000'000)};
    while (real_now_ns() < deadline) {
        syscall(SYS_clock_nanosleep, CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
    }
}

inline int thread_id() {
    return static_cast<int>(syscall(SYS_gettid));
}

}  // namespace desk
