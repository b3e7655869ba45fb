#include "fake_os.h"

#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "agent/utils/os.h"

namespace {

constexpr std::int64_t kSecond = 1'000'000'000;  // nanoseconds

struct State {
    std::mutex lock;
    std::int64_t wall = fake_os::kStart * kSecond;
    std::int64_t steady = fake_os::kSteadyStart * kSecond;
    Texts pauses;
    std::vector<long> worker_pauses;
    std::string held_deadline;
    std::function<void(const std::string &)> pause_hook;
    std::function<fake_os::ShellResult(const std::string &)> shell;
    Texts commands;
    std::vector<int> limits;
    int reboot_result = -1;
    std::function<void()> reboot_action;
    int reboots = 0;
    int drops = 0;
};

// Never destroyed: parked threads and the queue worker outlive main.
State &state() {
    static State &instance = *new State;
    return instance;
}

// A run of run_until_pause, shared with its thread.
struct Run {
    std::mutex lock;
    std::condition_variable changed;
    int pauses_left = 0;
    bool parked = false, returned = false;
};

thread_local std::shared_ptr<Run> current_run;

void park_if_due() {
    if (!current_run) return;
    {
        const std::lock_guard<std::mutex> lock(current_run->lock);
        if (--current_run->pauses_left > 0) return;
        current_run->parked = true;
        current_run->changed.notify_all();
    }
    fake_os::park();
}

void record_pause(std::int64_t nanoseconds, const std::string &text) {
    std::function<void(const std::string &)> hook;
    {
        State &s = state();
        const std::lock_guard<std::mutex> lock(s.lock);
        s.wall += nanoseconds;
        s.steady += nanoseconds;
        s.pauses.push_back(text);
        hook = s.pause_hook;
    }
    if (hook) hook(text);
    park_if_due();
}

fake_os::ShellResult shell(const char *command) {
    std::function<fake_os::ShellResult(const std::string &)> answer;
    {
        State &s = state();
        const std::lock_guard<std::mutex> lock(s.lock);
        s.commands.push_back(command);
        answer = s.shell;
    }
    return answer ? answer(command) : fake_os::ShellResult{};
}

template <typename T>
T locked(T State::*member) {
    State &s = state();
    const std::lock_guard<std::mutex> lock(s.lock);
    return s.*member;
}

template <typename T>
void set_locked(T State::*member, T value) {
    State &s = state();
    const std::lock_guard<std::mutex> lock(s.lock);
    s.*member = std::move(value);
}

}  // namespace

namespace fake_os {

void reset() {
    State &s = state();
    const std::lock_guard<std::mutex> lock(s.lock);
    s.wall = kStart * kSecond;
    s.steady = kSteadyStart * kSecond;
    s.pauses.clear();
    s.worker_pauses.clear();
    s.held_deadline.clear();
    s.pause_hook = nullptr;
    s.shell = nullptr;
    s.commands.clear();
    s.limits.clear();
    s.reboot_result = -1;
    s.reboot_action = nullptr;
    s.reboots = 0;
    s.drops = 0;
}

void set_wall(std::int64_t seconds) {
    set_locked(&State::wall, seconds * kSecond);
}

void set_steady(std::int64_t seconds) {
    set_locked(&State::steady, seconds * kSecond);
}

std::int64_t wall() {
    return locked(&State::wall) / kSecond;
}

Texts pauses() {
    return locked(&State::pauses);
}

std::vector<long> worker_pauses() {
    return locked(&State::worker_pauses);
}

void hold_deadlines(const std::string &pause) {
    set_locked(&State::held_deadline, pause);
}

void on_pause(std::function<void(const std::string &pause)> hook) {
    set_locked(&State::pause_hook, std::move(hook));
}

bool run_until_pause(int n, std::function<void()> body) {
    const auto run = std::make_shared<Run>();
    run->pauses_left = n;
    std::thread([run, body = std::move(body)] {
        current_run = run;
        body();
        current_run.reset();
        const std::lock_guard<std::mutex> lock(run->lock);
        run->returned = true;
        run->changed.notify_all();
    }).detach();
    std::unique_lock<std::mutex> lock(run->lock);
    run->changed.wait(lock, [&] { return run->parked || run->returned; });
    return run->parked;
}

void park() {
    for (;;) pause();
}

void on_shell(std::function<ShellResult(const std::string &command)> answer) {
    set_locked(&State::shell, std::move(answer));
}

Texts shell_commands() {
    return locked(&State::commands);
}

std::vector<int> shell_limits() {
    return locked(&State::limits);
}

void on_reboot(int result, std::function<void()> action) {
    set_locked(&State::reboot_result, result);
    set_locked(&State::reboot_action, std::move(action));
}

int reboots() {
    return locked(&State::reboots);
}

int page_cache_drops() {
    return locked(&State::drops);
}

}  // namespace fake_os

// --- The door itself.

time_t wall_seconds() {
    return static_cast<time_t>(fake_os::wall());
}

std::int64_t steady_seconds() {
    return locked(&State::steady) / kSecond;
}

void sleep_milliseconds(std::int64_t milliseconds) {
    record_pause(milliseconds * std::int64_t{1'000'000}, std::to_string(milliseconds) + " ms");
}

void pause_seconds(long seconds) {
    record_pause(seconds * kSecond, std::to_string(seconds) + " s");
}

timespec pause_deadline(long seconds) {
    const std::string text = std::to_string(seconds) + " s";
    const bool held = locked(&State::held_deadline) == text;
    record_pause(held ? 0 : seconds * kSecond, text);
    timespec deadline{};
    if (held) {
        clock_gettime(CLOCK_MONOTONIC, &deadline);
        deadline.tv_sec += 3600;  // longer than any test
    }
    return deadline;
}

void pause_within_second(long nanoseconds) {
    State &s = state();
    const std::lock_guard<std::mutex> lock(s.lock);
    s.worker_pauses.push_back(nanoseconds);
}

int run_shell(const char *command, int limit_seconds, int *wait_status) {
    {
        State &s = state();
        const std::lock_guard<std::mutex> lock(s.lock);
        s.limits.push_back(limit_seconds);
    }
    const int status = shell(command).status;
    if (wait_status != nullptr) *wait_status = status;
    return status;
}

std::optional<std::string> read_shell(const char *command) {
    const fake_os::ShellResult result = shell(command);
    if (result.status != 0) return std::nullopt;
    return result.output;
}

int exec_reboot_tool() {
    State &s = state();
    std::function<void()> action;
    int result = -1;
    {
        const std::lock_guard<std::mutex> lock(s.lock);
        s.reboots++;
        action = s.reboot_action;
        result = s.reboot_result;
    }
    if (action) action();
    errno = ENOENT;
    return result;
}

void drop_page_cache() {
    State &s = state();
    const std::lock_guard<std::mutex> lock(s.lock);
    s.drops++;
}
