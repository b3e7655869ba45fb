// What the tests of the bent time share: the speed, real time behind the preload's back, and measuring.
#ifndef DEVKIT_DEVICE_TEST_BEND_TEST_H
#define DEVKIT_DEVICE_TEST_BEND_TEST_H

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <pthread.h>

#include <cstdint>

constexpr double kSpeed = 100;
constexpr double kLate = 4;  // real seconds that a loaded machine may add

// Seconds of the real monotonic clock.
inline double real_seconds() {
    struct {
        std::int64_t seconds, nanoseconds;
    } reading{};
#ifdef SYS_clock_gettime64
    syscall(SYS_clock_gettime64, CLOCK_MONOTONIC, &reading);
#else
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &reading);
#endif
    return static_cast<double>(reading.seconds) + static_cast<double>(reading.nanoseconds) / 1e9;
}

// Seconds of a bent clock.
inline double bent_seconds(clockid_t clock) {
    timespec reading{};
    clock_gettime(clock, &reading);
    return static_cast<double>(reading.tv_sec) + static_cast<double>(reading.tv_nsec) / 1e9;
}

// `clock` plus so many seconds.
inline timespec bent_deadline(clockid_t clock, double seconds) {
    timespec deadline{};
    clock_gettime(clock, &deadline);
    const auto length = static_cast<std::int64_t>(seconds * 1e9) + deadline.tv_nsec;
    deadline.tv_sec += static_cast<time_t>(length / 1'000'000'000);
    deadline.tv_nsec = static_cast<long>(length % 1'000'000'000);
    return deadline;
}

// Adds to the offset of the wall clock in BEND_FILE, as another process would.
void step_wall_clock(double seconds);

// Waits on a condition of that clock that nobody signals; what pthread_cond_timedwait returned.
inline int wait_on_condition(clockid_t attribute, const timespec &deadline) {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, attribute);
    pthread_cond_t condition;
    pthread_cond_init(&condition, &attributes);
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_mutex_lock(&mutex);
    const int result = pthread_cond_timedwait(&condition, &mutex, &deadline);
    pthread_mutex_unlock(&mutex);
    pthread_cond_destroy(&condition);
    return result;
}

#endif
