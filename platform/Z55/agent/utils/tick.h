// The one-second SIGALRM tick, and its end before the process is replaced: a pending alarm outlives exec and
// would kill the program that follows. Async-signal-safe.
#ifndef Z55_AGENT_UTILS_TICK_H
#define Z55_AGENT_UTILS_TICK_H

#include <sched.h>
#include <unistd.h>

#include <atomic>

inline constinit std::atomic<bool> tick_started{false};
inline constinit std::atomic<bool> tick_stopped{false};
inline constinit std::atomic<int> tick_arming{0};  // handlers that are about to arm the next second

// Starts the tick or arms its next second. While the tick is stopped that waits for its resumption.
inline void arm_tick() {
    tick_started = true;
    tick_arming++;
    if (!tick_stopped) alarm(1);
    tick_arming--;
}

// Cancels the alarm so that no handler arms it again. Returns the seconds that were left, 0 for none. Not
// from a handler; one thread at a time.
inline unsigned stop_tick() {
    tick_stopped = true;
    while (tick_arming != 0) sched_yield();
    return alarm(0);
}

// A tick whose alarm had gone off meanwhile goes on as well.
inline void resume_tick(unsigned remaining) {
    tick_stopped = false;
    if (remaining == 0 && tick_started) remaining = 1;
    if (remaining != 0) alarm(remaining);
}

#endif
