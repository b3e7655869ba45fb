#include "bend_skip.h"

#include <errno.h>
#include <limits.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "bend_file.h"

namespace bend {

namespace {

// Null unless this process takes part.
BendFile *shared_file() {
    static BendFile *const file = [] {
        const char *path = std::getenv("BEND_FILE");
        return path != nullptr && std::getenv("BEND_SKIP") != nullptr ? map_bend_file(path) : nullptr;
    }();
    return file;
}

// A server waits for peers all its life: that keeps nobody from skipping.
bool serves() {
    static const bool found = std::strcmp(std::getenv("BEND_SKIP"), "server") == 0;
    return found;
}

std::int64_t monotonic_ns() {
    const Moment reading = now(CLOCK_MONOTONIC);
    return reading.seconds * kSecond + reading.nanoseconds;
}

__attribute__((constructor)) void tell_of_process() {
    BendFile *file = shared_file();
    if (file == nullptr) return;
    BendProcess &own =
        file->processes[__atomic_fetch_add(&file->processes_begun, 1, __ATOMIC_ACQ_REL) % kBendProcesses];
    __atomic_store_n(&own.serves, serves() ? 1 : 0, __ATOMIC_RELEASE);
    __atomic_store_n(&own.started_ns, monotonic_ns(), __ATOMIC_RELEASE);
    __atomic_store_n(&own.pid, getpid(), __ATOMIC_RELEASE);
}

// A place in the table, -1 where it is full: such a wait is not seen and may end late.
int take_place() {
    BendFile *file = shared_file();
    const int own = getpid();
    for (int i = 0; i < kBendWaits; i++) {
        BendWait &wait = file->waits[i];
        std::int32_t free = 0;
        if (__atomic_load_n(&wait.pid, __ATOMIC_RELAXED) != 0) continue;
        if (__atomic_compare_exchange_n(&wait.pid, &free, own, false, __ATOMIC_ACQ_REL, __ATOMIC_RELAXED))
            return i;
    }
    return -1;
}

void free_place(int place) {
    if (place < 0) return;
    __atomic_store_n(&shared_file()->waits[place].sleeps, 0, __ATOMIC_RELEASE);
    __atomic_store_n(&shared_file()->waits[place].pid, 0, __ATOMIC_RELEASE);
}

void futex_wake(std::uint32_t *word) {
    syscall(SYS_futex, word, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

void fill_place(int place, std::int64_t deadline) {
    BendFile *file = shared_file();
    if (place >= 0) {
        __atomic_store_n(&file->waits[place].deadline_ns, deadline, __ATOMIC_RELAXED);
        __atomic_store_n(&file->waits[place].sleeps, 1, __ATOMIC_RELEASE);
    }
    __atomic_add_fetch(&file->waits_begun, 1, __ATOMIC_ACQ_REL);
    futex_wake(&file->waits_begun);
}

// Sleeps until the shared word is no more `seen`, or for the real length; the kernel takes its own size of
// time.
int futex_sleep(std::uint32_t seen, std::int64_t real_length) {
    const struct {
        long seconds, nanoseconds;
    } length = {static_cast<long>(real_length / kSecond), static_cast<long>(real_length % kSecond)};
    const long result = syscall(SYS_futex, &shared_file()->changes, FUTEX_WAIT, seen, &length, nullptr, 0);
    const int error = result == 0 ? 0 : errno;
    pass_gate();
    return error;
}

// One slice of a wait for `deadline`.
int sleep_slice(int place, std::uint32_t seen, clockid_t clock, const Moment &deadline) {
    fill_place(place, monotonic_ns() + left_until(clock, deadline));
    return futex_sleep(seen, real_wait(clock, deadline));
}

std::uint32_t changes() {
    return __atomic_load_n(&shared_file()->changes, __ATOMIC_ACQUIRE);
}

}  // namespace

bool skips() {
    return shared_file() != nullptr;
}

int sleep_skippably(clockid_t clock, const Moment &deadline) {
    const int place = take_place();
    int result = 0;
    while (result != EINTR) {
        const std::uint32_t seen = changes();
        if (left_until(clock, deadline) <= 0) break;
        result = sleep_slice(place, seen, clock, deadline);
    }
    free_place(place);
    return result == EINTR ? EINTR : 0;
}

int wait_skippably(pthread_cond_t *condition, pthread_mutex_t *mutex, clockid_t clock,
                   const Moment &deadline) {
    const std::atomic<unsigned> &signals = signals_sent(condition);
    const unsigned before = signals.load();
    const int place = take_place();
    pthread_mutex_unlock(mutex);
    int result = 0;
    for (;;) {
        const std::uint32_t seen = changes();
        if (signals.load() != before) break;
        if (left_until(clock, deadline) <= 0) {
            result = ETIMEDOUT;
            break;
        }
        sleep_slice(place, seen, clock, deadline);
    }
    free_place(place);
    pthread_mutex_lock(mutex);
    return result;
}

void tell_of_signal() {
    BendFile *file = shared_file();
    if (file == nullptr) return;
    __atomic_add_fetch(&file->changes, 1, __ATOMIC_ACQ_REL);
    futex_wake(&file->changes);
}

void pass_gate() {
    BendFile *file = shared_file();
    if (file == nullptr) return;
    const int error = errno;
    while (__atomic_load_n(&file->gate, __ATOMIC_SEQ_CST) != 0)
        syscall(SYS_futex, &file->gate, FUTEX_WAIT, 1, nullptr, nullptr, 0);
    errno = error;
}

PeerWait::PeerWait(bool waits) : place_(waits && skips() && !serves() ? take_place() : -1) {}

PeerWait::~PeerWait() {
    free_place(place_);
    pass_gate();
}

}  // namespace bend
