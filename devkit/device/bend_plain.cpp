// The bent functions whose arguments are the same for every size of time_t, and what happens when the library
// loads.
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include "bend_clock.h"
#include "bend_skip.h"

static_assert(sizeof(time_t) == sizeof(long), "the functions called here have the plain names");

namespace {

template <typename Function>
using Next = bend::NextFunction<Function>;

constinit Next<decltype(nanosleep)> next_nanosleep{"nanosleep"};
constinit Next<decltype(ppoll)> next_ppoll{"ppoll"};
constinit Next<decltype(epoll_pwait)> next_epoll_pwait{"epoll_pwait"};
constinit Next<decltype(accept)> next_accept{"accept"};
constinit Next<decltype(accept4)> next_accept4{"accept4"};
constinit Next<decltype(recv)> next_recv{"recv"};
constinit Next<decltype(setitimer)> next_setitimer{"setitimer"};
constinit Next<decltype(pthread_cond_signal)> next_signal{"pthread_cond_signal"};
constinit Next<decltype(pthread_cond_broadcast)> next_broadcast{"pthread_cond_broadcast"};

timespec to_timespec(std::int64_t time) {
    return {static_cast<time_t>(time / bend::kSecond), static_cast<long>(time % bend::kSecond)};
}

// Sleeps a bent length. Returns the bent length that was left when a signal came, else 0.
std::int64_t sleep_bent(std::int64_t length) {
    if (bend::skips()) {
        const bend::Moment end = bend::later(bend::now(CLOCK_MONOTONIC), length);
        if (bend::sleep_skippably(CLOCK_MONOTONIC, end) == 0) return 0;
        return std::max<std::int64_t>(bend::left_until(CLOCK_MONOTONIC, end), 0);
    }
    const timespec real = to_timespec(bend::to_real(length));
    timespec left{};
    if (next_nanosleep.get()(&real, &left) == 0) return 0;
    return bend::to_bent(left.tv_sec * bend::kSecond + left.tv_nsec);
}

__attribute__((constructor)) void prepare() {
    // The tools that the program starts live in plain time.
    unsetenv("LD_PRELOAD");
    // A signal handler may re-arm the alarm and must not be the first to look this up.
    next_setitimer.get();
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

unsigned sleep(unsigned seconds) {
    return static_cast<unsigned>(sleep_bent(seconds * bend::kSecond) / bend::kSecond);
}

int usleep(useconds_t microseconds) {
    if (sleep_bent(microseconds * bend::kMicrosecond) == 0) return 0;
    errno = EINTR;
    return -1;
}

int poll(pollfd *files, nfds_t count, int timeout) {
    const bend::PeerWait wait(timeout >= 0 && count > 0);
    if (timeout < 0) return next_ppoll.get()(files, count, nullptr, nullptr);
    const timespec real = to_timespec(bend::to_real(timeout * bend::kMillisecond));
    return next_ppoll.get()(files, count, &real, nullptr);
}

// What a program hardened by _FORTIFY_SOURCE calls in its place.
int __poll_chk(pollfd *files, nfds_t count, int timeout, size_t size) {
    if (size / sizeof *files < count) abort();
    return poll(files, count, timeout);
}

int epoll_pwait(int handle, epoll_event *events, int count, int timeout, const sigset_t *mask) {
    // Whole milliseconds, rounded up: a wait that was not zero never becomes a busy loop.
    const std::int64_t real = bend::to_real(timeout * bend::kMillisecond) + bend::kMillisecond - 1;
    const int milliseconds =
        timeout < 0 ? -1 : static_cast<int>(std::min<std::int64_t>(real / bend::kMillisecond, INT_MAX));
    const bend::PeerWait wait(timeout >= 0);
    return next_epoll_pwait.get()(handle, events, count, milliseconds, mask);
}

int epoll_wait(int handle, epoll_event *events, int count, int timeout) {
    return epoll_pwait(handle, events, count, timeout, nullptr);
}

// A peer may be waited for here without an end, while time is skipped.
int accept(int handle, sockaddr *address, socklen_t *length) {
    const int result = next_accept.get()(handle, address, length);
    bend::pass_gate();
    return result;
}

int accept4(int handle, sockaddr *address, socklen_t *length, int flags) {
    const int result = next_accept4.get()(handle, address, length, flags);
    bend::pass_gate();
    return result;
}

ssize_t recv(int handle, void *buffer, size_t size, int flags) {
    const ssize_t result = next_recv.get()(handle, buffer, size, flags);
    bend::pass_gate();
    return result;
}

unsigned alarm(unsigned seconds) noexcept {
    const std::int64_t microseconds =
        (bend::to_real(seconds * bend::kSecond) + bend::kMicrosecond - 1) / bend::kMicrosecond;
    itimerval real{};
    real.it_value.tv_sec = static_cast<time_t>(microseconds / 1'000'000);
    real.it_value.tv_usec = static_cast<suseconds_t>(microseconds % 1'000'000);
    itimerval previous{};
    next_setitimer.get()(ITIMER_REAL, &real, &previous);
    const std::int64_t left = bend::to_bent(previous.it_value.tv_sec * bend::kSecond +
                                            previous.it_value.tv_usec * bend::kMicrosecond);
    return static_cast<unsigned>((left + bend::kSecond - 1) / bend::kSecond);
}

int pthread_cond_signal(pthread_cond_t *condition) noexcept {
    bend::signals_sent(condition)++;
    const int result = next_signal.get()(condition);
    bend::tell_of_signal();
    return result;
}

int pthread_cond_broadcast(pthread_cond_t *condition) noexcept {
    bend::signals_sent(condition)++;
    const int result = next_broadcast.get()(condition);
    bend::tell_of_signal();
    return result;
}

// The host's disks are none of the agent's business: the call is only recorded, beside those of the device
// tools.
void sync() noexcept {
    const std::int64_t time = bend::real_now(CLOCK_REALTIME);
    char line[128];
    const int length =
        std::snprintf(line, sizeof line, "{\"tool\":\"sync\",\"args\":[],\"time\":%lld.%09lld,\"pid\":%d}\n",
                      static_cast<long long>(time / bend::kSecond),
                      static_cast<long long>(time % bend::kSecond), static_cast<int>(getpid()));
    const int file = open("/tmp/.device/calls", O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (file < 0) return;
    [[maybe_unused]] const ssize_t written = write(file, line, static_cast<size_t>(length));
    close(file);
}

}  // extern "C"
#pragma GCC visibility pop
