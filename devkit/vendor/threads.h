// Threads of the vendor libraries: every signal is blocked in them, so that the process's own signals reach
// its own threads.
#pragma once

#include <pthread.h>
#include <signal.h>

#include <functional>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>

namespace desk {

// Blocks every signal in this thread and those that it starts, until the end of the block.
class BlockedSignals {
  public:
    BlockedSignals() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, &before_);
    }
    ~BlockedSignals() {
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    BlockedSignals(const BlockedSignals &) = delete;
    BlockedSignals &operator=(const BlockedSignals &) = delete;

  private:
    sigset_t before_;
};

// Starts `body` on a new thread, to be joined; throws std::system_error when there is none to be had.
template <typename Body>
std::thread quiet_thread(Body &&body) {
    const BlockedSignals blocked;
    return std::thread(std::forward<Body>(body));
}

// The same for a thread that nobody waits for. Detached from its first moment: the process may end at any
// time.
inline void detached_thread(std::function<void()> body) {
    const BlockedSignals blocked;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    auto given = std::make_unique<std::function<void()>>(std::move(body));
    const auto run = [](void *taken) -> void * {
        const std::unique_ptr<std::function<void()>> own(static_cast<std::function<void()> *>(taken));
        (*own)();
        return nullptr;
    };
    pthread_t thread;
    const int error = pthread_create(&thread, &attributes, run, given.get());
    pthread_attr_destroy(&attributes);
    if (error != 0) throw std::system_error(error, std::generic_category());
    (void)given.release();  // the thread's now
}

}  // namespace desk
