// The one door to the operating system: clocks, pauses, the shell, other programs. Any thread may call any of
// these. Everything that is started here gets an empty signal mask, every signal at its default and no
// descriptor but 0 to 2.
#ifndef Z55_AGENT_UTILS_OS_H
#define Z55_AGENT_UTILS_OS_H

#include <time.h>

#include <cstdint>
#include <optional>
#include <string>

// Seconds since the epoch on the wall clock, which is stepped by NTP.
time_t wall_seconds();

// Whole seconds that grow as the wall clock's would if nobody stepped it. The origin means nothing.
std::int64_t steady_seconds();

// Sleeps that long on the monotonic clock; a signal does not cut it short.
void sleep_milliseconds(std::int64_t milliseconds);

// Sleeps until the wall clock, not stepped meanwhile, would read `seconds` whole seconds more than it reads
// now: that many seconds less the part of the current second already gone.
void pause_seconds(long seconds);

// The same for a deadline `nanoseconds` into the current second; returns at once when that has passed.
void pause_within_second(long nanoseconds);

// The instant of the monotonic clock at which pause_seconds would end, for a wait that may end before.
timespec pause_deadline(long seconds);

// What a command may take before it is ended, with all that it has started, and counts as failed.
inline constexpr int kCommandSeconds = 60;

// Runs `command` with /bin/sh and waits for it, `limit_seconds` at most (longer on a busy machine) and a
// second more where even SIGKILL does not end it (a dead disk). Returns its exit code, 128 and the signal's
// number where one ended it; -1 when it could not be started or did not end. `wait_status` gets the raw
// status. While eight commands that did not end are still there no other one is started. The shell dies with
// the thread that waits for it, and so with the agent.
[[nodiscard]] int run_shell(const char *command, int limit_seconds = kCommandSeconds,
                            int *wait_status = nullptr);

// The same within kCommandSeconds. Returns what the command and all that it has started wrote to standard
// output; nothing when it failed or wrote more than 64 KiB.
[[nodiscard]] std::optional<std::string> read_shell(const char *command);

// Makes the process independent of what started it; the first call of main, before any other thread. From
// then on descriptors 0 to 2 are open ("/dev/null" where they were closed), files are made with the mask 022,
// no alarm runs and no signal is blocked but SIGALRM, which is left to the thread that unblocks it. None is
// ignored: those that were, SIGPIPE and SIGALRM have a handler that does nothing, so that they do no harm and
// a program that replaces the agent gets their default. SIGCHLD and faults are at their default.
void start_clean();

// Replaces this process with the reboot tool, which inherits descriptors 0 to 2, no alarm, an empty mask and
// every signal at its default. Returns only on failure: -1, errno set, and everything goes on as before, the
// tick too. Any number of threads at a time, after start_clean.
[[nodiscard]] int exec_reboot_tool();

// Writes all dirty pages back and drops the kernel's page cache. Failures are ignored.
void drop_page_cache();

#endif
