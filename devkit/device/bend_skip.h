// Time that nobody needs is skipped: with BEND_SKIP set (and BEND_FILE), waits are told to the shared file,
// and bend-skip moves the bent clocks on to the first deadline while every thread only sleeps. A wait for a
// peer is told as such: until it is over the clocks run at their speed, unless BEND_SKIP is "server". Any
// thread may call these; only the sleeps block.
#ifndef DEVKIT_DEVICE_BEND_SKIP_H
#define DEVKIT_DEVICE_BEND_SKIP_H

#include <pthread.h>

#include "bend_clock.h"

namespace bend {

// Whether this process takes part.
bool skips();

// Sleeps until the bent `clock` reads `deadline`. Returns 0, or EINTR when a signal handler ran.
int sleep_skippably(clockid_t clock, const Moment &deadline);

// Waits as pthread_cond_clockwait does. It may return early with 0, as conditions may.
int wait_skippably(pthread_cond_t *condition, pthread_mutex_t *mutex, clockid_t clock,
                   const Moment &deadline);

// Wakes the threads in wait_skippably, after a condition was signalled.
void tell_of_signal();

// For whoever somebody outside of this process has woken, before it reads a clock: waits while time is being
// skipped, less than a millisecond. errno stays.
void pass_gate();

// For the time of a wait for a peer that has a time-out. `waits` false: nothing is told.
class PeerWait {
  public:
    explicit PeerWait(bool waits);
    ~PeerWait();
    PeerWait(const PeerWait &) = delete;
    PeerWait &operator=(const PeerWait &) = delete;

  private:
    int place_;
};

}  // namespace bend

#endif
