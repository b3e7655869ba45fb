#include "intercept.h"

#include <curl/curl.h>
#include <pthread.h>
#include <semaphore.h>

#include <cerrno>
#include <cstdarg>
#include <mutex>
#include <set>

namespace {

struct State {
    std::mutex lock;
    std::set<std::string> refused;
    int semaphore_waits = 0;
    std::vector<long> connect_timeouts;
};

State &state() {
    static State &instance = *new State;
    return instance;
}

bool due(const char *function) {
    const std::lock_guard<std::mutex> guard(state().lock);
    return state().refused.erase(function) != 0;
}

}  // namespace

namespace intercept {

void refuse_next(const std::string &function) {
    const std::lock_guard<std::mutex> guard(state().lock);
    state().refused.insert(function);
}

int semaphore_waits() {
    const std::lock_guard<std::mutex> guard(state().lock);
    return state().semaphore_waits;
}

std::vector<long> connect_timeouts() {
    const std::lock_guard<std::mutex> guard(state().lock);
    return state().connect_timeouts;
}

void reset() {
    const std::lock_guard<std::mutex> guard(state().lock);
    state().refused.clear();
    state().semaphore_waits = 0;
    state().connect_timeouts.clear();
}

}  // namespace intercept

extern "C" {

int __real_pthread_attr_init(pthread_attr_t *attributes);
int __real_pthread_attr_setdetachstate(pthread_attr_t *attributes, int state);
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*routine)(void *),
                          void *argument);
int __real_sem_init(sem_t *semaphore, int shared, unsigned value);
int __real_sem_wait(sem_t *semaphore);
CURL *__real_curl_easy_init(void);
CURLcode __real_curl_easy_setopt(CURL *handle, CURLoption option, ...);

int __wrap_pthread_attr_init(pthread_attr_t *attributes) {
    return due("pthread_attr_init") ? EAGAIN : __real_pthread_attr_init(attributes);
}

int __wrap_pthread_attr_setdetachstate(pthread_attr_t *attributes, int detach_state) {
    return due("pthread_attr_setdetachstate") ? EAGAIN
                                              : __real_pthread_attr_setdetachstate(attributes, detach_state);
}

int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*routine)(void *),
                          void *argument) {
    return due("pthread_create") ? EAGAIN : __real_pthread_create(thread, attributes, routine, argument);
}

int __wrap_sem_init(sem_t *semaphore, int shared, unsigned value) {
    if (!due("sem_init")) return __real_sem_init(semaphore, shared, value);
    errno = ENOSPC;
    return -1;
}

int __wrap_sem_wait(sem_t *semaphore) {
    {
        const std::lock_guard<std::mutex> guard(state().lock);
        state().semaphore_waits++;
    }
    if (!due("sem_wait")) return __real_sem_wait(semaphore);
    errno = EINTR;
    return -1;
}

CURL *__wrap_curl_easy_init(void) {
    return due("curl_easy_init") ? nullptr : __real_curl_easy_init();
}

CURLcode __wrap_curl_easy_setopt(CURL *handle, CURLoption option, ...) {
    va_list arguments;
    va_start(arguments, option);
    void *value = va_arg(arguments, void *);  // a pointer or a long: the agent sets no other kind
    va_end(arguments);
    if (option == CURLOPT_CONNECTTIMEOUT) {
        const std::lock_guard<std::mutex> guard(state().lock);
        state().connect_timeouts.push_back(reinterpret_cast<long>(value));
    }
    return __real_curl_easy_setopt(handle, option, value);
}

}  // extern "C"
