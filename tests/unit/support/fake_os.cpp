#include "fake_os.h"

#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "agent/utils/os.h"
#include "locked_state.h"

namespace {

constexpr std::int64_t kSecond = 1'000'000'000;  // nanoseconds

struct State {
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

LockedState<State> &state() {
    static LockedState<State> instance;
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
    const auto hook = state().with([&](State &s) {
        s.wall += nanoseconds;
        s.steady += nanoseconds;
        s.pauses.push_back(text);
        return s.pause_hook;
    });
    if (hook) hook(text);
    park_if_due();
}

fake_os::ShellResult shell(const char *command) {
    const auto answer = state().with([&](State &s) {
        s.commands.push_back(command);
        return s.shell;
    });
    return answer ? answer(command) : fake_os::ShellResult{};
}

}  // namespace

namespace fake_os {

void reset() {
    state().reset();
}

void set_wall(std::int64_t seconds) {
    state().set(&State::wall, seconds * kSecond);
}

void set_steady(std::int64_t seconds) {
    state().set(&State::steady, seconds * kSecond);
}

std::int64_t wall() {
    return state().get(&State::wall) / kSecond;
}

Texts pauses() {
    return state().get(&State::pauses);
}

std::vector<long> worker_pauses() {
    return state().get(&State::worker_pauses);
}

void hold_deadlines(const std::string &pause) {
    state().set(&State::held_deadline, pause);
}

void on_pause(std::function<void(const std::string &pause)> hook) {
    state().set(&State::pause_hook, std::move(hook));
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
    state().set(&State::shell, std::move(answer));
}

Texts shell_commands() {
    return state().get(&State::commands);
}

std::vector<int> shell_limits() {
    return state().get(&State::limits);
}

void on_reboot(int result, std::function<void()> action) {
    state().set(&State::reboot_result, result);
    state().set(&State::reboot_action, std::move(action));
}

int reboots() {
    return state().get(&State::reboots);
}

int page_cache_drops() {
    return state().get(&State::drops);
}

}  // namespace fake_os

// --- The door itself.

time_t wall_seconds() {
    return static_cast<time_t>(fake_os::wall());
}

std::int64_t steady_seconds() {
    return state().get(&State::steady) / kSecond;
}

void sleep_milliseconds(std::int64_t milliseconds) {
    record_pause(milliseconds * std::int64_t{1'000'000}, std::to_string(milliseconds) + " ms");
}

void pause_seconds(long seconds) {
    record_pause(seconds * kSecond, std::to_string(seconds) + " s");
}

timespec pause_deadline(long seconds) {
    const std::string text = std::to_string(seconds) + " s";
    const bool held = state().get(&State::held_deadline) == text;
    record_pause(held ? 0 : seconds * kSecond, text);
    timespec deadline{};
    if (held) {
        clock_gettime(CLOCK_MONOTONIC, &deadline);
        deadline.tv_sec += 3600;  // longer than any test
    }
    return deadline;
}

void pause_within_second(long nanoseconds) {
    state().with([=](State &s) { s.worker_pauses.push_back(nanoseconds); });
}

int run_shell(const char *command, int limit_seconds, int *wait_status) {
    state().with([=](State &s) { s.limits.push_back(limit_seconds); });
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
    const auto [result, action] = state().with([](State &s) {
        s.reboots++;
        return std::pair(s.reboot_result, s.reboot_action);
    });
    if (action) action();
    errno = ENOENT;
    return result;
}

void drop_page_cache() {
    state().with([](State &s) { s.drops++; });
}
