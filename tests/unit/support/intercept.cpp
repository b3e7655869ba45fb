#include "intercept.h"

#include <curl/curl.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <utility>

#include "locked_state.h"

namespace {

struct State {
    std::map<std::string, int> refused;  // by function: the calls that go well before
    std::function<long()> processor_clock;
    std::vector<std::pair<void *(*)(void *), pthread_t>> created;
    int semaphore_waits = 0;
    int transfers = 0;
    std::vector<long> connect_timeouts;
    std::map<int, long> transfer_numbers;
    std::vector<std::string> synced;
    std::function<void(const std::string &)> sync_hook;
    int timed_waits = 0;
    int trims = 0;
    void *(*held_routine)(void *) = nullptr;
    std::set<void *> blocks;
};

LockedState<State> &state() {
    static LockedState<State> instance;
    return instance;
}

bool due(const char *function) {
    return state().with([function](State &s) {
        const auto found = s.refused.find(function);
        if (found == s.refused.end() || found->second-- > 0) return false;
        s.refused.erase(found);
        return true;
    });
}

int refused(int error) {
    errno = error;
    return -1;
}

void *taken(void *block) {
    if (block != nullptr) state().with([block](State &s) { s.blocks.insert(block); });
    return block;
}

void given_back(void *block) {
    state().with([block](State &s) { s.blocks.erase(block); });
}

std::atomic<void (*)(unsigned)> alarm_hook{nullptr};

// Never destroyed: threads of the agent outlive main.
std::mutex &held_lock = *new std::mutex;
std::condition_variable &let_on = *new std::condition_variable;
bool threads_are_held = false;

struct HeldThread {
    void *(*routine)(void *);
    void *argument;
};

void *run_when_let_on(void *held) {
    const std::unique_ptr<HeldThread> thread(static_cast<HeldThread *>(held));
    {
        std::unique_lock<std::mutex> lock(held_lock);
        let_on.wait(lock, [] { return !threads_are_held; });
    }
    return thread->routine(thread->argument);
}

void hold(bool held) {
    const std::lock_guard<std::mutex> lock(held_lock);
    threads_are_held = held;
    let_on.notify_all();
}

}  // namespace

namespace intercept {

void refuse_next(const std::string &function, int after) {
    state().with([&](State &s) { s.refused[function] = after; });
}

void interrupt_next_read() {
    refuse_next("interrupted read");
}

bool still_refuses(const std::string &function) {
    return state().with([&](State &s) { return s.refused.count(function) != 0; });
}

void set_processor_clock(std::function<long()> clock) {
    state().set(&State::processor_clock, std::move(clock));
}

void set_processor_ticks(long ticks) {
    set_processor_clock([ticks] { return ticks; });
}

std::vector<pthread_t> created(void *(*routine)(void *)) {
    std::vector<pthread_t> threads;
    for (const auto &[of, thread] : state().get(&State::created)) {
        if (of == routine) threads.push_back(thread);
    }
    return threads;
}

int semaphore_waits() {
    return state().get(&State::semaphore_waits);
}

int transfers() {
    return state().get(&State::transfers);
}

std::vector<long> connect_timeouts() {
    return state().get(&State::connect_timeouts);
}

long transfer_number(int option) {
    return state().with([option](State &s) {
        const auto found = s.transfer_numbers.find(option);
        return found == s.transfer_numbers.end() ? -1 : found->second;
    });
}

std::vector<std::string> synced() {
    return state().get(&State::synced);
}

void on_sync(std::function<void(const std::string &)> hook) {
    state().set(&State::sync_hook, std::move(hook));
}

int timed_waits() {
    return state().get(&State::timed_waits);
}

void hold_threads(void *(*routine)(void *)) {
    state().set(&State::held_routine, routine);
    hold(true);
}

void let_threads_on() {
    state().set(&State::held_routine, static_cast<void *(*)(void *)>(nullptr));
    hold(false);
}

size_t blocks() {
    return state().with([](State &s) { return s.blocks.size(); });
}

int trims() {
    return state().get(&State::trims);
}

void on_alarm(void (*hook)(unsigned)) {
    alarm_hook = hook;
}

void reset() {
    hold(false);
    alarm_hook = nullptr;
    state().reset();
}

}  // namespace intercept

extern "C" {

int __real_pthread_attr_init(pthread_attr_t *attributes);
int __real_pthread_attr_setdetachstate(pthread_attr_t *attributes, int state);
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*routine)(void *),
                          void *argument);
int __real_sem_init(sem_t *semaphore, int shared, unsigned value);
int __real_sem_wait(sem_t *semaphore);
int __real_fsync(int file);
ssize_t __real_read(int file, void *out, size_t size);
// One of the two, by the C library and how long its file sizes are.
[[gnu::weak]] int __real_fstat(int file, void *out);
[[gnu::weak]] int __real_fstat64(int file, void *out);
[[gnu::weak]] int __real___fstat64_time64(int file, void *out);
int __real_fchown(int file, uid_t owner, gid_t group);
int __real_fchmod(int file, mode_t mode);
int __real_close(int file);
CURL *__real_curl_easy_init(void);
void __real_curl_easy_cleanup(CURL *handle);
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *block, size_t size);
void __real_free(void *block);
[[gnu::weak]] int __real_malloc_trim(size_t kept);  // glibc's own
unsigned __real_alarm(unsigned seconds);
[[gnu::weak]] int __real_pthread_cond_timedwait(pthread_cond_t *condition, pthread_mutex_t *mutex,
                                                const timespec *deadline);
[[gnu::weak]] int __real___pthread_cond_timedwait64(pthread_cond_t *condition, pthread_mutex_t *mutex,
                                                    const timespec *deadline);
size_t __real_fread(void *out, size_t size, size_t count, FILE *file);
clock_t __real_clock(void);
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
    if (due("pthread_create")) return EAGAIN;
    const bool held = state().get(&State::held_routine) == routine;
    const int result =
        held ? __real_pthread_create(thread, attributes, run_when_let_on, new HeldThread{routine, argument})
             : __real_pthread_create(thread, attributes, routine, argument);
    if (result == 0) state().with([=](State &s) { s.created.emplace_back(routine, *thread); });
    return result;
}

int __wrap_sem_init(sem_t *semaphore, int shared, unsigned value) {
    if (!due("sem_init")) return __real_sem_init(semaphore, shared, value);
    errno = ENOSPC;
    return -1;
}

int __wrap_sem_wait(sem_t *semaphore) {
    state().with([](State &s) { s.semaphore_waits++; });
    if (!due("sem_wait")) return __real_sem_wait(semaphore);
    errno = EINTR;
    return -1;
}

void *__wrap_malloc(size_t size) {
    return due("malloc") ? nullptr : taken(__real_malloc(size));
}

void *__wrap_calloc(size_t count, size_t size) {
    return due("calloc") ? nullptr : taken(__real_calloc(count, size));
}

void *__wrap_realloc(void *block, size_t size) {
    if (due("realloc")) return nullptr;
    given_back(block);  // before another thread gets it
    return taken(__real_realloc(block, size));
}

void __wrap_free(void *block) {
    given_back(block);
    __real_free(block);
}

int __wrap_malloc_trim(size_t kept) {
    state().with([](State &s) { s.trims++; });
    return __real_malloc_trim(kept);
}

unsigned __wrap_alarm(unsigned seconds) {
    if (const auto hook = alarm_hook.load()) hook(seconds);
    return __real_alarm(seconds);
}

int __wrap_pthread_cond_timedwait(pthread_cond_t *condition, pthread_mutex_t *mutex,
                                  const timespec *deadline) {
    state().with([](State &s) { s.timed_waits++; });
    return __real_pthread_cond_timedwait(condition, mutex, deadline);
}

// The name of 32-bit targets.
int __wrap___pthread_cond_timedwait64(pthread_cond_t *condition, pthread_mutex_t *mutex,
                                      const timespec *deadline) {
    state().with([](State &s) { s.timed_waits++; });
    return __real___pthread_cond_timedwait64(condition, mutex, deadline);
}

size_t __wrap_fread(void *out, size_t size, size_t count, FILE *file) {
    return due("fread") ? 0 : __real_fread(out, size, count, file);
}

clock_t __wrap_clock(void) {
    const auto clock = state().get(&State::processor_clock);
    return clock ? clock() : __real_clock();
}

int __wrap_fsync(int file) {
    char path[PATH_MAX];
    const std::string link = "/proc/self/fd/" + std::to_string(file);
    const ssize_t length = readlink(link.c_str(), path, sizeof path);
    const std::string name(path, length > 0 ? static_cast<size_t>(length) : 0);
    const auto hook = state().with([&](State &s) {
        s.synced.push_back(name);
        return s.sync_hook;
    });
    if (hook) hook(name);
    return due("fsync") ? refused(EIO) : __real_fsync(file);
}

ssize_t __wrap_read(int file, void *out, size_t size) {
    if (due("interrupted read")) return refused(EINTR);
    return due("read") ? refused(EIO) : __real_read(file, out, size);
}

int __wrap_fstat(int file, void *out) {
    return due("fstat") ? refused(EIO) : __real_fstat(file, out);
}

int __wrap_fstat64(int file, void *out) {
    return due("fstat") ? refused(EIO) : __real_fstat64(file, out);
}

// The name of 32-bit targets.
int __wrap___fstat64_time64(int file, void *out) {
    return due("fstat") ? refused(EIO) : __real___fstat64_time64(file, out);
}

int __wrap_fchown(int file, uid_t owner, gid_t group) {
    return due("fchown") ? refused(EIO) : __real_fchown(file, owner, group);
}

int __wrap_fchmod(int file, mode_t mode) {
    return due("fchmod") ? refused(EIO) : __real_fchmod(file, mode);
}

int __wrap_close(int file) {
    const int result = __real_close(file);
    return due("close") ? refused(EIO) : result;
}

CURL *__wrap_curl_easy_init(void) {
    state().with([](State &s) { s.transfers++; });
    return due("curl_easy_init") ? nullptr : taken(__real_curl_easy_init());
}

void __wrap_curl_easy_cleanup(CURL *handle) {
    given_back(handle);
    __real_curl_easy_cleanup(handle);
}

CURLcode __wrap_curl_easy_setopt(CURL *handle, CURLoption option, ...) {
    va_list arguments;
    va_start(arguments, option);
    void *value = va_arg(arguments, void *);  // a pointer or a long: the agent sets no other kind
    va_end(arguments);
    if (option < CURLOPTTYPE_OBJECTPOINT) {
        const long number = reinterpret_cast<long>(value);
        state().with([=](State &s) {
            s.transfer_numbers[option] = number;
            if (option == CURLOPT_CONNECTTIMEOUT && number > 0) s.connect_timeouts.push_back(number);
        });
    }
    const bool text =
        option >= CURLOPTTYPE_OBJECTPOINT && option < CURLOPTTYPE_FUNCTIONPOINT && value != nullptr;
    if (text && due("curl_easy_setopt")) return CURLE_OUT_OF_MEMORY;
    return __real_curl_easy_setopt(handle, option, value);
}

}  // extern "C"
