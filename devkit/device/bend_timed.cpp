// The bent functions whose arguments depend on the size of time_t. On 32-bit targets this file is compiled
// twice into the library: the headers give its functions the 4-byte names in one object and the 8-byte names
// in the other.
#include <errno.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <iterator>

#include "bend_clock.h"
#include "bend_skip.h"

#if defined(BEND_64_BIT_TIME)
static_assert(sizeof(time_t) == 8);
#define NAME(plain, wide) wide
#else
static_assert(sizeof(time_t) == sizeof(long));
#define NAME(plain, wide) plain
#endif

namespace {

template <typename Function>
using Next = bend::NextFunction<Function>;

constinit Next<decltype(clock_nanosleep)> next_clock_nanosleep{
    NAME("clock_nanosleep", "__clock_nanosleep_time64")};
constinit Next<decltype(nanosleep)> next_nanosleep{NAME("nanosleep", "__nanosleep64")};
constinit Next<decltype(pthread_cond_clockwait)> next_cond_wait{
    NAME("pthread_cond_clockwait", "__pthread_cond_clockwait64")};
constinit Next<decltype(sem_timedwait)> next_sem_wait{NAME("sem_timedwait", "__sem_timedwait64")};
constinit Next<decltype(pthread_mutex_timedlock)> next_lock{
    NAME("pthread_mutex_timedlock", "__pthread_mutex_timedlock64")};
constinit Next<decltype(ppoll)> next_ppoll{NAME("ppoll", "__ppoll64")};
constinit Next<decltype(select)> next_select{NAME("select", "__select64")};
constinit Next<decltype(pselect)> next_pselect{NAME("pselect", "__pselect64")};
constinit Next<decltype(setitimer)> next_setitimer{NAME("setitimer", "__setitimer64")};
constinit Next<decltype(getitimer)> next_getitimer{NAME("getitimer", "__getitimer64")};
constinit Next<decltype(setsockopt)> next_setsockopt{NAME("setsockopt", "__setsockopt64")};

std::int64_t nanoseconds(const timespec &length) {
    return bend::to_length(length.tv_sec, length.tv_nsec);
}

std::int64_t nanoseconds(const timeval &length) {
    return bend::to_length(length.tv_sec, length.tv_usec * bend::kMicrosecond);
}

timespec to_timespec(std::int64_t time) {
    timespec result{};
    result.tv_sec = static_cast<decltype(result.tv_sec)>(time / bend::kSecond);
    result.tv_nsec = static_cast<decltype(result.tv_nsec)>(time % bend::kSecond);
    return result;
}

timespec to_timespec(const bend::Moment &time) {
    timespec result{};
    result.tv_sec = static_cast<decltype(result.tv_sec)>(time.seconds);
    result.tv_nsec = static_cast<decltype(result.tv_nsec)>(time.nanoseconds);
    return result;
}

timeval to_timeval(std::int64_t time) {
    timeval result{};
    result.tv_sec = static_cast<decltype(result.tv_sec)>(time / bend::kSecond);
    result.tv_usec = static_cast<decltype(result.tv_usec)>(time % bend::kSecond / bend::kMicrosecond);
    return result;
}

// Rounded up to a whole microsecond: a time that was not zero never becomes zero.
timeval to_real_timeval(const timeval &bent) {
    return to_timeval(bend::to_real(nanoseconds(bent)) + bend::kMicrosecond - 1);
}

bool is_valid(const timespec &time) {
    return time.tv_nsec >= 0 && time.tv_nsec < bend::kSecond;
}

// Calls `wait`, which takes an absolute time of the real `real_clock`, until the bent `clock` reads
// `deadline` or `wait` gives something else than "timed out". The wall clock may be stepped meanwhile.
template <typename Wait>
int wait_until(clockid_t clock, const timespec &deadline, clockid_t real_clock, Wait wait) {
    const bend::Moment end{deadline.tv_sec, deadline.tv_nsec};
    for (;;) {
        const timespec slice = to_timespec(bend::real_now(real_clock) + bend::real_wait(clock, end));
        const int result = wait(slice);
        if (result != ETIMEDOUT || bend::left_until(clock, end) <= 0) return result;
    }
}

constexpr int kSignalled = -1;

int wait_on_condition(pthread_cond_t *condition, pthread_mutex_t *mutex, clockid_t clock,
                      const timespec &deadline) {
    if (!is_valid(deadline)) return EINVAL;
    if (bend::skips())
        return bend::wait_skippably(condition, mutex, clock, {deadline.tv_sec, deadline.tv_nsec});
    const std::atomic<unsigned> &signals = bend::signals_sent(condition);
    const unsigned before = signals.load();
    const int result = wait_until(clock, deadline, CLOCK_MONOTONIC, [&](const timespec &slice) {
        const int slept = next_cond_wait.get()(condition, mutex, CLOCK_MONOTONIC, &slice);
        // A signal between two slices would find nobody waiting: the caller has to look.
        return slept == ETIMEDOUT && signals.load() != before &&
                       bend::left_until(clock, {deadline.tv_sec, deadline.tv_nsec}) > 0
                   ? kSignalled
                   : slept;
    });
    return result == kSignalled ? 0 : result;
}

// ThreadSanitizer knows sem_timedwait and pthread_mutex_timedlock, but not their variants with a clock.
int wait_on_semaphore(sem_t *semaphore, clockid_t clock, const timespec &deadline) {
    if (sem_trywait(semaphore) == 0) return 0;
    if (!is_valid(deadline)) {
        errno = EINVAL;
        return -1;
    }
    const int error = wait_until(clock, deadline, CLOCK_REALTIME, [&](const timespec &slice) {
        return next_sem_wait.get()(semaphore, &slice) == 0 ? 0 : errno;
    });
    if (error == 0) return 0;
    errno = error;
    return -1;
}

int lock_mutex(pthread_mutex_t *mutex, clockid_t clock, const timespec &deadline) {
    return wait_until(clock, deadline, CLOCK_REALTIME,
                      [&](const timespec &slice) { return next_lock.get()(mutex, &slice); });
}

// The clock that the condition was initialised with, as glibc keeps it since 2.25.
clockid_t clock_of(const pthread_cond_t *condition) {
    const unsigned flags = __atomic_load_n(&condition->__data.__wrefs, __ATOMIC_RELAXED);
    return (flags & 2U) != 0 ? CLOCK_MONOTONIC : CLOCK_REALTIME;
}

// Sleeps a bent length, which time that is skipped shortens.
int sleep_length(const timespec &length, timespec *remaining) {
    const bend::Moment end = bend::later(bend::now(CLOCK_MONOTONIC), nanoseconds(length));
    const int error = bend::sleep_skippably(CLOCK_MONOTONIC, end);
    if (error == EINTR && remaining != nullptr)
        *remaining = to_timespec(std::max<std::int64_t>(bend::left_until(CLOCK_MONOTONIC, end), 0));
    return error;
}

void scale_back(timespec *remaining) {
    if (remaining != nullptr) *remaining = to_timespec(bend::to_bent(nanoseconds(*remaining)));
}

itimerval scaled_back(const itimerval &real) {
    return {to_timeval(bend::to_bent(nanoseconds(real.it_interval))),
            to_timeval(bend::to_bent(nanoseconds(real.it_value)))};
}

// A TCP option that holds a time, in its own unit (nanoseconds), and the shortest real time it is given.
struct TcpTime {
    int option;
    std::int64_t unit;
    std::int64_t least;
};

// The kernel looks at the user time-out when it retransmits, 200 ms after the first sending at the earliest.
// With less than that an acknowledgement that a busy machine delays once would end the connection.
constexpr TcpTime kTcpTimes[] = {{TCP_KEEPIDLE, bend::kSecond, 1},
                                 {TCP_KEEPINTVL, bend::kSecond, 1},
                                 {TCP_USER_TIMEOUT, bend::kMillisecond, 200}};

// Zero (the system's default) and what the kernel refuses stay as they are.
int to_real_tcp_time(const TcpTime &time, int bent) {
    if (bent <= 0) return bent;
    const std::int64_t real = (bend::to_real(bent * time.unit) + time.unit - 1) / time.unit;
    return static_cast<int>(std::clamp<std::int64_t>(real, time.least, INT_MAX));
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

int clock_gettime(clockid_t clock, timespec *reading) noexcept {
    if (bend::is_bent(clock)) {
        *reading = to_timespec(bend::now(clock));
        return 0;
    }
    const std::int64_t time = bend::real_now(clock);
    if (time < 0) return -1;
    *reading = to_timespec(time);
    return 0;
}

time_t time(time_t *reading) noexcept {
    const auto seconds = static_cast<time_t>(bend::now(CLOCK_REALTIME).seconds);
    if (reading != nullptr) *reading = seconds;
    return seconds;
}

int gettimeofday(timeval *reading, void *zone) noexcept {
    const bend::Moment time = bend::now(CLOCK_REALTIME);
    reading->tv_sec = static_cast<decltype(reading->tv_sec)>(time.seconds);
    reading->tv_usec = static_cast<decltype(reading->tv_usec)>(time.nanoseconds / bend::kMicrosecond);
    if (zone != nullptr) std::memset(zone, 0, sizeof(struct timezone));
    return 0;
}

int clock_nanosleep(clockid_t clock, int flags, const timespec *length, timespec *remaining) {
    if (!bend::is_bent(clock)) return next_clock_nanosleep.get()(clock, flags, length, remaining);
    if (!is_valid(*length)) return EINVAL;
    if (bend::skips() && (flags & TIMER_ABSTIME) != 0)
        return bend::sleep_skippably(clock, {length->tv_sec, length->tv_nsec});
    if (bend::skips()) return sleep_length(*length, remaining);
    if ((flags & TIMER_ABSTIME) != 0) {
        return wait_until(clock, *length, CLOCK_MONOTONIC,
                          [](const timespec &slice) {
                              const int error =
                                  next_clock_nanosleep.get()(CLOCK_MONOTONIC, TIMER_ABSTIME, &slice, nullptr);
                              return error == 0 ? ETIMEDOUT : error;
                          }) == EINTR
                   ? EINTR
                   : 0;
    }
    const timespec real = to_timespec(bend::to_real(nanoseconds(*length)));
    const int error = next_clock_nanosleep.get()(CLOCK_MONOTONIC, 0, &real, remaining);
    if (error == EINTR) scale_back(remaining);
    return error;
}

int nanosleep(const timespec *length, timespec *remaining) {
    if (!is_valid(*length)) return next_nanosleep.get()(length, remaining);
    if (bend::skips()) {
        errno = sleep_length(*length, remaining);
        return errno == 0 ? 0 : -1;
    }
    const timespec real = to_timespec(bend::to_real(nanoseconds(*length)));
    const int result = next_nanosleep.get()(&real, remaining);
    if (result != 0 && errno == EINTR) scale_back(remaining);
    return result;
}

int pthread_cond_timedwait(pthread_cond_t *condition, pthread_mutex_t *mutex, const timespec *deadline) {
    return wait_on_condition(condition, mutex, clock_of(condition), *deadline);
}

int pthread_cond_clockwait(pthread_cond_t *condition, pthread_mutex_t *mutex, clockid_t clock,
                           const timespec *deadline) {
    return wait_on_condition(condition, mutex, clock, *deadline);
}

int sem_timedwait(sem_t *semaphore, const timespec *deadline) {
    return wait_on_semaphore(semaphore, CLOCK_REALTIME, *deadline);
}

int sem_clockwait(sem_t *semaphore, clockid_t clock, const timespec *deadline) {
    return wait_on_semaphore(semaphore, clock, *deadline);
}

int pthread_mutex_timedlock(pthread_mutex_t *mutex, const timespec *deadline) noexcept {
    return lock_mutex(mutex, CLOCK_REALTIME, *deadline);
}

int pthread_mutex_clocklock(pthread_mutex_t *mutex, clockid_t clock, const timespec *deadline) noexcept {
    return lock_mutex(mutex, clock, *deadline);
}

int ppoll(pollfd *files, nfds_t count, const timespec *timeout, const sigset_t *mask) {
    const bend::PeerWait wait(timeout != nullptr && count > 0);
    if (timeout == nullptr) return next_ppoll.get()(files, count, nullptr, mask);
    const timespec real = to_timespec(bend::to_real(nanoseconds(*timeout)));
    return next_ppoll.get()(files, count, &real, mask);
}

int select(int count, fd_set *readable, fd_set *writable, fd_set *exceptional, timeval *timeout) {
    const bend::PeerWait wait(timeout != nullptr && count > 0);
    if (timeout == nullptr) return next_select.get()(count, readable, writable, exceptional, nullptr);
    timeval real = to_real_timeval(*timeout);
    const int result = next_select.get()(count, readable, writable, exceptional, &real);
    *timeout = to_timeval(bend::to_bent(nanoseconds(real)));
    return result;
}

int pselect(int count, fd_set *readable, fd_set *writable, fd_set *exceptional, const timespec *timeout,
            const sigset_t *mask) {
    const bend::PeerWait wait(timeout != nullptr && count > 0);
    if (timeout == nullptr) return next_pselect.get()(count, readable, writable, exceptional, nullptr, mask);
    const timespec real = to_timespec(bend::to_real(nanoseconds(*timeout)));
    return next_pselect.get()(count, readable, writable, exceptional, &real, mask);
}

int setitimer(__itimer_which_t which, const itimerval *value, itimerval *previous) noexcept {
    if (which != ITIMER_REAL) return next_setitimer.get()(which, value, previous);
    const itimerval real = {to_real_timeval(value->it_interval), to_real_timeval(value->it_value)};
    const int result = next_setitimer.get()(which, &real, previous);
    if (result == 0 && previous != nullptr) *previous = scaled_back(*previous);
    return result;
}

int getitimer(__itimer_which_t which, itimerval *value) noexcept {
    const int result = next_getitimer.get()(which, value);
    if (result == 0 && which == ITIMER_REAL) *value = scaled_back(*value);
    return result;
}

int setsockopt(int handle, int level, int option, const void *value, socklen_t length) noexcept {
    const bool is_timeval = level == SOL_SOCKET && (option == SO_RCVTIMEO || option == SO_SNDTIMEO);
    if (is_timeval && length == sizeof(timeval)) {
        timeval bent{};
        std::memcpy(&bent, value, sizeof bent);
        const timeval real = to_real_timeval(bent);
        return next_setsockopt.get()(handle, level, option, &real, sizeof real);
    }
    const TcpTime *time = std::find_if(std::begin(kTcpTimes), std::end(kTcpTimes), [&](const TcpTime &row) {
        return level == IPPROTO_TCP && row.option == option;
    });
    if (time != std::end(kTcpTimes) && length == sizeof(int)) {
        int bent = 0;
        std::memcpy(&bent, value, sizeof bent);
        const int real = to_real_tcp_time(*time, bent);
        return next_setsockopt.get()(handle, level, option, &real, sizeof real);
    }
    return next_setsockopt.get()(handle, level, option, value, length);
}

}  // extern "C"
#pragma GCC visibility pop
