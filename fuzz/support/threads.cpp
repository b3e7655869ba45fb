#include "threads.h"

#include <errno.h>
#include <pthread.h>
#include <time.h>

#include <deque>
#include <utility>

namespace {

thread_local bool holding = false, refusing = false;
std::deque<std::pair<void *(*)(void *), void *>> held;
long ticks = 0;

}  // namespace

namespace threads {

void hold() {
    holding = true;
}

void refuse(bool all) {
    refusing = all;
}

void set_clock(long now) {
    ticks = now;
}

bool run_next() {
    if (held.empty()) return false;
    const auto [routine, argument] = held.front();
    held.pop_front();
    routine(argument);
    return true;
}

int waiting() {
    return static_cast<int>(held.size());
}

}  // namespace threads

extern "C" {

int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*routine)(void *),
                          void *argument);
clock_t __real_clock();

int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*routine)(void *),
                          void *argument) {
    if (!holding) return __real_pthread_create(thread, attributes, routine, argument);
    if (refusing) return EAGAIN;
    held.emplace_back(routine, argument);
    *thread = pthread_self();
    return 0;
}

clock_t __wrap_clock() {
    return holding ? ticks : __real_clock();
}

}  // extern "C"
