#include "instants.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <iterator>
#include <mutex>
#include <string_view>
#include <thread>

namespace {

struct State {
    std::mutex lock;
    std::condition_variable changed;
    bool counting = false;
    int number = -1;
    std::function<void()> act;
    std::thread thread;
    bool gone_on = false;  // `act` has returned or waits
    Texts seen;
};

// Never destroyed: threads of the agent outlive main.
State &state() {
    static State &instance = *new State;
    return instance;
}

thread_local bool acting = false;
std::atomic<int> all_waits = 0;

void let_go_on() {
    State &s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.gone_on = true;
    s.changed.notify_all();
}

void run_act() {
    acting = true;
    state().act();
    let_go_on();
}

// How the lines begin that the request primitives print around a transfer: the request is the instant.
constexpr std::string_view kTransferLines[] = {
    "curl", "%s size", "res: ", "easy remote", "(poll)", "*** (poll)", "!!!***", "<RemoteControl>",
};

bool is_of_transfer(std::string_view line) {
    if (line.empty() || line[0] == '\n') return true;
    return std::any_of(std::begin(kTransferLines), std::end(kTransferLines),
                       [line](std::string_view begin) { return line.starts_with(begin); });
}

void pass_line(const char *line) {
    if (!is_of_transfer(line)) instants::pass(std::string("line ") + line);
}

}  // namespace

namespace instants {

void begin(int number, std::function<void()> act) {
    State &s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.counting = true;
    s.number = number;
    s.act = std::move(act);
    s.gone_on = false;
    s.seen.clear();
}

void pass(const std::string &what) {
    State &s = state();
    std::unique_lock<std::mutex> guard(s.lock);
    if (!s.counting || acting) return;
    s.seen.push_back(what);
    if (static_cast<int>(s.seen.size()) - 1 != s.number) return;
    s.thread = std::thread(run_act);
    s.changed.wait(guard, [&] { return s.gone_on; });
}

void stop_counting() {
    State &s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.counting = false;
}

int waits() {
    return all_waits;
}

Texts end() {
    stop_counting();
    State &s = state();
    std::unique_lock<std::mutex> guard(s.lock);
    std::thread thread = std::move(s.thread);
    guard.unlock();
    if (thread.joinable()) thread.join();
    return s.seen;
}

}  // namespace instants

extern "C" {

int __real_puts(const char *line);
int __real_pthread_cond_wait(pthread_cond_t *condition, pthread_mutex_t *mutex);

int __wrap_puts(const char *line) {
    const int result = __real_puts(line);
    pass_line(line);
    return result;
}

__attribute__((format(printf, 1, 2))) int __wrap_printf(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = std::vprintf(format, arguments);
    va_end(arguments);
    pass_line(format);
    return result;
}

int __wrap_pthread_cond_wait(pthread_cond_t *condition, pthread_mutex_t *mutex) {
    all_waits++;
    if (acting) let_go_on();
    return __real_pthread_cond_wait(condition, mutex);
}

}  // extern "C"
