#include "threads.h"

#include <signal.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <mutex>

#include "os.h"

namespace {

constexpr long kRetrySeconds = 60;

struct WantedThread {
    pthread_t *thread;
    void *(*routine)(void *);
    void *argument;
    bool missing = false;
};

constinit std::mutex wanted_lock;  // held while a thread is created
constinit WantedThread wanted_threads[4] = {};
constinit std::int64_t last_try = 0;  // steady seconds

// The pthread calls return their error; perror looks at errno.
int failed(int error, const char *text) {
    errno = error;
    std::perror(text);
    return -1;
}

int create_without_alarm(pthread_t *thread, const pthread_attr_t *attributes, void *(*routine)(void *),
                         void *argument) {
    sigset_t tick, before;
    sigemptyset(&tick);
    sigaddset(&tick, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &tick, &before);
    const int error = pthread_create(thread, attributes, routine, argument);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return error;
}

// The lock is held.
int start_wanted(WantedThread &wanted) {
    last_try = steady_seconds();
    const int result = start_thread(wanted.thread, wanted.routine, wanted.argument);
    wanted.missing = result != 0;
    return result;
}

// Whether one is still missing.
bool start_missing_threads() {
    const std::lock_guard<std::mutex> lock(wanted_lock);
    const bool due = steady_seconds() - last_try >= kRetrySeconds;
    bool missing = false;
    for (WantedThread &wanted : wanted_threads) {
        if (wanted.missing && due) start_wanted(wanted);
        missing = missing || wanted.missing;
    }
    return missing;
}

}  // namespace

int start_thread(pthread_t *thread, void *(*routine)(void *), void *argument) {
    pthread_attr_t attributes;
    if (const int error = pthread_attr_init(&attributes)) {
        return failed(error, "start_thread: pthread_attr_init fail \n");
    }
    int result = 0;
    if (const int error = pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED)) {
        result = failed(error, "start_thread: pthread_attr_setdetachstate fail \n");
    } else if (const int create_error = create_without_alarm(thread, &attributes, routine, argument)) {
        result = failed(create_error, "start_thread: pthread_create fail \n");
    }
    pthread_attr_destroy(&attributes);
    return result;
}

int start_wanted_thread(pthread_t *thread, void *(*routine)(void *), void *argument) {
    const std::lock_guard<std::mutex> lock(wanted_lock);
    for (WantedThread &wanted : wanted_threads) {
        if (wanted.routine != nullptr && wanted.routine != routine) continue;
        wanted = {thread, routine, argument};
        return start_wanted(wanted);
    }
    return start_thread(thread, routine, argument);  // there are no more places; no such agent is built
}

void want_thread_again(void *(*routine)(void *)) {
    const std::lock_guard<std::mutex> lock(wanted_lock);
    last_try = steady_seconds();
    for (WantedThread &wanted : wanted_threads) {
        if (wanted.routine == routine) wanted.missing = true;
    }
}

void pause_and_start_missing(long seconds) {
    while (start_missing_threads() && seconds > kRetrySeconds) {
        pause_seconds(kRetrySeconds);
        seconds -= kRetrySeconds;
    }
    pause_seconds(seconds);
}
