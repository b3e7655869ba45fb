// Threads of the vendor libraries: every signal is blocked in them, so that the process's own signals reach
// its own threads.
#pragma once

#include <pthread.h>
#include <signal.h>

#include <thread>
#include <utility>

namespace desk {

// Starts `body` on a new thread; throws std::system_error when there is none to be had.
template <typename Body>
std::thread quiet_thread(Body &&body) {
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before);
    struct restore_mask {
        const sigset_t &mask;
        ~restore_mask() {
            pthread_sigmask(SIG_SETMASK, &mask, nullptr);
        }
    } restore{before};
    return std::thread(std::forward<Body>(body));
}

}  // namespace desk
