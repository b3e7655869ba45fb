// Milliseconds: of the wall clock since 1970, and of the machine's monotonic clock, in which camera and SDK
// note things.
#pragma once

#include <time.h>

inline double clock_ms(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

inline double wall_ms() {
    return clock_ms(CLOCK_REALTIME);
}

// The wall clock's time of a moment of the monotonic clock.
inline double wall_of(double monotonic_ms) {
    return wall_ms() - clock_ms(CLOCK_MONOTONIC) + monotonic_ms;
}
