// The door to the operating system as the unit tests have it: clocks that only pauses and tests move, pauses
// that return at once and are recorded, shell commands and the reboot tool that are recorded and answered by
// the test. Stands in for platform/Z55/agent/utils/os*.cpp. Any thread may call anything here.
#ifndef UNIT_SUPPORT_FAKE_OS_H
#define UNIT_SUPPORT_FAKE_OS_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

using Texts = std::vector<std::string>;

namespace fake_os {

// Back to the state of a fresh process: wall clock at kStart, steady clock at kSteadyStart, nothing recorded,
// nothing scripted.
inline constexpr std::int64_t kStart = 1'700'000'000;  // 2023-11-14 22:13:20 UTC
inline constexpr std::int64_t kSteadyStart = 5'000;
void reset();

// The clocks, in seconds. A pause moves both; these move one.
void set_wall(std::int64_t seconds);
void set_steady(std::int64_t seconds);
std::int64_t wall();

// Every pause but the queue worker's so far, in order: "5 s" of pause_seconds and pause_deadline, "300 ms" of
// sleep_milliseconds.
Texts pauses();

// From now on the deadline of a wait of this text ("10 s") never comes, and such a wait moves no clock; ""
// for none. Every other one has passed when pause_deadline returns.
void hold_deadlines(const std::string &pause);

// The nanoseconds of every pause_within_second (the queue worker's), in order.
std::vector<long> worker_pauses();

// `hook` is called on the pausing thread at every pause but the worker's, with the pause as its text, after
// the clocks have moved. At most one hook; an empty one takes it away.
void on_pause(std::function<void(const std::string &pause)> hook);

// Runs `body`, which may never return, on a thread of its own until it enters its n-th pause (counted from
// 1); there the thread stays for ever, so what it owns is left alone. Returns true then, false when `body`
// returned first. Blocks.
bool run_until_pause(int n, std::function<void()> body);

// Keeps the calling thread for ever: the end of a function that must not go on, such as a reboot.
[[noreturn]] void park();

struct ShellResult {
    int status = 0;           // wait status: an exit code of 1 is 256
    std::string output = "";  // of read_shell, where the status is 0
};

// `answer` gives the result of every command; without it all succeed and print nothing. It may also do what
// the command would have done to files.
void on_shell(std::function<ShellResult(const std::string &command)> answer);

// Every command of run_shell and read_shell, in order.
Texts shell_commands();

// The limit in seconds of every run_shell, in order.
std::vector<int> shell_limits();

// What exec_reboot_tool returns (with errno 2), and how often it was called. `action` is called first: park()
// makes it the reboot that does not return.
void on_reboot(int result, std::function<void()> action = {});
int reboots();

int page_cache_drops();

}  // namespace fake_os

#endif
