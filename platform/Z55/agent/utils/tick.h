// The one-second SIGALRM tick, and its end before the process is replaced: a pending alarm outlives exec and
// would kill the program that follows. Async-signal-safe.
#ifndef Z55_AGENT_UTILS_TICK_H
#define Z55_AGENT_UTILS_TICK_H

#include <sched.h>
#include <unistd.h>

#include <atomic>

inline constinit std::atomic<bool> tick_stopped{false};
inline constinit std::atomic<int> tick_arming{0};  // handlers that are about to arm the next second

// Arms the next second unless the tick is stopped.
inline void arm_tick() {
    tick_arming++;
    if (!tick_stopped) alarm(1);
    tick_arming--;
}

// Cancels the alarm so that no handler arms it again. Returns the seconds that were left, 0 for none. Not
// from a handler.
inline unsigned stop_tick() {
    tick_stopped = true;
    while (tick_arming != 0) sched_yield();
    return alarm(0);
}

inline void resume_tick(unsigned remaining) {
    tick_stopped = false;
    if (remaining != 0) alarm(remaining);
}

#endif
