// What the agent takes over from what started it, and what the reboot tool takes over from the agent. Every
// test changes a process of its own. Alarms go off fifty times as fast; the kernel is one without close_range
// where a test wants that.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdarg.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "agent/utils/os.h"
#include "agent/utils/os_inherit.h"
#include "agent/utils/tick.h"
#include "read_file.h"
#include "row_names.h"

namespace {

constexpr long kAlarmMicroseconds = 20'000;  // that a second lasts
constexpr char kFile[] = "/tmp/os_test";

}  // namespace

extern "C" long __real_syscall(long number, ...);

extern "C" unsigned __wrap_alarm(unsigned seconds) {
    const itimerval next{{0, 0}, {0, static_cast<suseconds_t>(seconds) * kAlarmMicroseconds}};
    itimerval last{};
    setitimer(ITIMER_REAL, &next, &last);
    const long left = last.it_value.tv_sec * 1'000'000 + last.it_value.tv_usec;
    errno = EINVAL;  // a call that succeeds may leave anything there
    return static_cast<unsigned>((left + kAlarmMicroseconds - 1) / kAlarmMicroseconds);
}

namespace {

bool old_kernel = false;

}  // namespace

// The one call that the agent makes by its number is close_range.
extern "C" long __wrap_syscall(long number, ...) {
    va_list arguments;
    va_start(arguments, number);
    const unsigned first = va_arg(arguments, unsigned);
    const unsigned last = va_arg(arguments, unsigned);
    const unsigned flags = va_arg(arguments, unsigned);
    va_end(arguments);
    if (!old_kernel) return __real_syscall(number, first, last, flags);
    errno = ENOSYS;
    return -1;
}

namespace {

// A line of /proc/PID/status that holds signals, less the real-time ones, of which libraries keep some for
// themselves.
std::uint64_t signals_of(const std::string &status, const std::string &name) {
    const size_t found = status.find(name + ":");
    if (found == std::string::npos) return ~std::uint64_t{0};
    return std::strtoull(status.c_str() + found + name.size() + 1, nullptr, 16) & 0x7fffffff;
}

constexpr std::uint64_t bit(int number) {
    return std::uint64_t{1} << (number - 1);
}

sigset_t set_of(std::initializer_list<int> numbers) {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : numbers) sigaddset(&set, number);
    return set;
}

void set_mask(int how, const sigset_t &set) {
    pthread_sigmask(how, &set, nullptr);
}

// A process of its own: how it ended, and what its body returned.
struct Ended {
    int status = -1;  // wait status
    std::string text;
};

Ended in_process(const std::function<std::string()> &body) {
    std::filesystem::remove("/tmp/os_answer");
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        const std::string text = body();
        std::ofstream("/tmp/os_answer") << text;
        _exit(0);
    }
    Ended ended;
    waitpid(child, &ended.status, 0);
    ended.text = read_file("/tmp/os_answer");
    return ended;
}

class Inherited : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(std::filesystem::exists("/tmp/.device")) << "runs in the device view only";
        std::filesystem::remove(kFile);
    }
    void TearDown() override {
        old_kernel = false;
    }
};

// Whatever is read before it is written is full of ones.
[[gnu::noinline]] void fill_stack() {
    volatile char ones[16384];
    for (volatile char &byte : ones) byte = static_cast<char>(0xff);
}

// The number that the next descriptor gets.
int next_descriptor() {
    const int descriptor = open(kFile, O_WRONLY | O_CREAT, 0644);
    close(descriptor);
    return descriptor;
}

// --- Descriptors.

struct ClosedRow {
    const char *name;
    std::vector<int> descriptors;
};

class Closed : public Inherited, public testing::WithParamInterface<ClosedRow> {};

TEST_P(Closed, StandardDescriptorsAreOpenAndNobodyElses) {
    const Ended ended = in_process([] {
        for (const int descriptor : GetParam().descriptors) close(descriptor);
        start_clean();
        const bool above = open(kFile, O_WRONLY | O_CREAT, 0644) > STDERR_FILENO;
        std::string targets = above ? "" : "a standard descriptor was free;";
        for (const int descriptor : GetParam().descriptors) {
            targets += std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor)).string();
        }
        return targets;
    });
    std::string expected;
    for (size_t i = 0; i < GetParam().descriptors.size(); i++) expected += "/dev/null";
    EXPECT_EQ(ended.text, expected);
}

INSTANTIATE_TEST_SUITE_P(Rows, Closed,
                         testing::Values(ClosedRow{.name = "none", .descriptors = {}},
                                         ClosedRow{.name = "input", .descriptors = {0}},
                                         ClosedRow{.name = "output", .descriptors = {1}},
                                         ClosedRow{.name = "errors", .descriptors = {2}},
                                         ClosedRow{.name = "output and errors", .descriptors = {1, 2}},
                                         ClosedRow{.name = "all", .descriptors = {0, 1, 2}}),
                         by_name);

TEST_F(Inherited, StandardDescriptorsThatAreOpenStayAsTheyAre) {
    EXPECT_EQ(in_process([] {
                  dup2(open(kFile, O_WRONLY | O_CREAT, 0644), STDOUT_FILENO);
                  start_clean();
                  return std::filesystem::read_symlink("/proc/self/fd/1").string();
              }).text,
              kFile);
}

TEST_F(Inherited, WhereAllAreOpenNoneIsAdded) {
    EXPECT_EQ(in_process([] {
                  const int before = next_descriptor();
                  start_clean();
                  return std::to_string(next_descriptor() - before);
              }).text,
              "0");
}

TEST_F(Inherited, FilesAreNotWritableByOthersWhateverTheMaskWas) {
    for (const mode_t mask : {0, 022, 0777}) {
        in_process([mask] {
            umask(mask);
            start_clean();
            std::filesystem::remove(kFile);
            close(open(kFile, O_WRONLY | O_CREAT, 0666));
            return "";
        });
        EXPECT_EQ(std::filesystem::status(kFile).permissions(), std::filesystem::perms{0644});
    }
}

// --- Signals.

void ignore_and_block_all() {
    for (int number = 1; number < NSIG; number++) signal(number, SIG_IGN);
    sigset_t all;
    sigfillset(&all);
    set_mask(SIG_SETMASK, all);
    fill_stack();
}

TEST_F(Inherited, NoSignalIsBlockedButSigalrmAndNoneIgnored) {
    const Ended ended = in_process([] {
        ignore_and_block_all();
        start_clean();
        return read_file("/proc/self/status");
    });
    EXPECT_EQ(signals_of(ended.text, "SigBlk"), bit(SIGALRM));
    EXPECT_EQ(signals_of(ended.text, "SigIgn"), 0u);
}

TEST_F(Inherited, ResetSignalsAreNeitherBlockedNorIgnored) {
    const Ended ended = in_process([] {
        ignore_and_block_all();
        reset_signals();
        return read_file("/proc/self/status");
    });
    EXPECT_EQ(signals_of(ended.text, "SigBlk"), 0u);
    EXPECT_EQ(signals_of(ended.text, "SigIgn"), 0u);
}

TEST_F(Inherited, WhatWasIgnoredDoesNoHarm) {
    const Ended ended = in_process([] {
        std::vector<int> numbers = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGUSR1, SIGTSTP, SIGTTOU, SIGRTMAX};
        for (const int number : numbers) signal(number, SIG_IGN);
        start_clean();
        for (const int number : numbers) raise(number);
        return "alive";
    });
    EXPECT_EQ(ended.text, "alive");
}

// A call that such a signal meets goes on, but for those that a terminal sends for that very call.
TEST_F(Inherited, WhatWasIgnoredCutsNoCallShort) {
    const Ended ended = in_process([] {
        const std::vector<int> numbers = {SIGHUP, SIGUSR1, SIGPIPE, SIGALRM, SIGTTIN, SIGTTOU};
        for (const int number : numbers) signal(number, SIG_IGN);
        start_clean();
        std::string flags;
        for (const int number : numbers) {
            struct sigaction action {};
            sigaction(number, nullptr, &action);
            const int known = action.sa_flags & (SA_RESTART | SA_NOCLDSTOP);
            flags += known == SA_RESTART ? "goes on," : known == 0 ? "ends," : "?,";
        }
        return flags;
    });
    EXPECT_EQ(ended.text, "goes on,goes on,goes on,goes on,ends,ends,");
}

TEST_F(Inherited, WhatWasNotIgnoredEndsTheProcess) {
    EXPECT_EQ(in_process([] {
                  start_clean();
                  raise(SIGTERM);
                  return "alive";
              }).status,
              SIGTERM);
}

// A handler that only returns would meet the same fault again, for ever.
TEST_F(Inherited, AFaultThatWasIgnoredEndsTheProcess) {
    EXPECT_EQ(in_process([] {
                  signal(SIGFPE, SIG_IGN);
                  start_clean();
                  raise(SIGFPE);
                  return "alive";
              }).status,
              SIGFPE);
}

TEST_F(Inherited, TheEndOfACommandIsSeenThoughSigchldWasIgnored) {
    EXPECT_EQ(in_process([] {
                  signal(SIGCHLD, SIG_IGN);
                  start_clean();
                  return std::to_string(run_shell("exit 3"));
              }).text,
              "3");
}

TEST_F(Inherited, ABrokenPipeIsAnError) {
    const Ended ended = in_process([] {
        start_clean();
        int ends[2];
        if (pipe(ends) != 0) return std::string("no pipe");
        close(ends[0]);
        const ssize_t written = write(ends[1], "x", 1);
        return std::to_string(written) + (errno == EPIPE ? " EPIPE" : "");
    });
    EXPECT_EQ(ended.text, "-1 EPIPE");
}

TEST_F(Inherited, NoAlarmRunsAndOneThatWentOffDoesNoHarm) {
    const Ended ended = in_process([] {
        set_mask(SIG_BLOCK, set_of({SIGALRM}));
        raise(SIGALRM);
        __wrap_alarm(1);
        start_clean();
        const unsigned left = __wrap_alarm(0);
        set_mask(SIG_UNBLOCK, set_of({SIGALRM}));
        return std::to_string(left);
    });
    EXPECT_EQ(ended.text, "0");
}

// --- The reboot tool. In its place stands a shell, which runs the file named by the tool's argument.

class RebootTool : public Inherited {
  protected:
    static constexpr char kTool[] = "/usr/bin/qmx_reboot";

    void SetUp() override {
        Inherited::SetUp();
        std::filesystem::remove(kTool);
    }
    static void install_shell(const char *script) {
        std::filesystem::copy_file("/bin/sh", kTool);
        std::ofstream("reboot") << script;
    }
    // The wait status of an agent that starts, prepares itself and is replaced by the tool.
    static int replaced(const std::function<void()> &prepare) {
        return in_process([&] {
                   start_clean();
                   prepare();
                   (void)exec_reboot_tool();
                   _exit(99);
                   return "";
               })
            .status;
    }
};

TEST_F(RebootTool, TakesTheProcessOverWithItsPathAndRebootAsArguments) {
    install_shell("tr '\\0' '|' < /proc/$$/cmdline > /tmp/os_test\n");
    EXPECT_EQ(replaced([] {}), 0);
    EXPECT_EQ(read_file(kFile), "/usr/bin/qmx_reboot|reboot|");
}

TEST_F(RebootTool, InheritsNoBlockedSignal) {
    // Read without a child: a shell blocks all signals while it starts one.
    install_shell(
        "while read -r line; do case $line in SigBlk*) echo \"$line\" > /tmp/os_test;; esac; done < "
        "/proc/$$/status\n");
    EXPECT_EQ(replaced([] {
                  sigset_t all;
                  sigfillset(&all);
                  set_mask(SIG_SETMASK, all);
                  fill_stack();
              }),
              0);
    EXPECT_EQ(read_file(kFile), "SigBlk:\t0000000000000000\n");
}

TEST_F(RebootTool, InheritsNoIgnoredSignal) {
    install_shell("cat /proc/$$/status > /tmp/os_test\n");
    const Ended ended = in_process([] {
        signal(SIGHUP, SIG_IGN);  // as from the script that starts the agent
        start_clean();
        signal(SIGUSR1, SIG_IGN);  // as by a vendor's library
        (void)exec_reboot_tool();
        return "";
    });
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(signals_of(read_file(kFile), "SigIgn"), 0u);
}

struct KernelRow {
    const char *name;
    bool old;            // without close_range
    rlim_t descriptors;  // how many the process may have
};

class RebootToolOn : public RebootTool, public testing::WithParamInterface<KernelRow> {
  protected:
    // The first and the last that close on no exec; whoever started the test may have left others.
    static void hold_descriptors() {
        const int zero = open("/dev/zero", O_RDONLY);
        for (const int descriptor : {3, 250}) dup2(zero, descriptor);
        for (int inherited = 251; inherited < 1024; inherited++) close(inherited);
        const rlimit limit{GetParam().descriptors, GetParam().descriptors};
        setrlimit(RLIMIT_NOFILE, &limit);
        old_kernel = GetParam().old;
    }
};

TEST_P(RebootToolOn, InheritsNoDescriptorAbove2) {
    install_shell("ls -l /proc/$$/fd > /tmp/os_test\n");
    EXPECT_EQ(replaced([] { hold_descriptors(); }), 0);
    const std::string list = read_file(kFile);
    EXPECT_NE(list.find(" 2 -> "), std::string::npos) << list;
    EXPECT_EQ(list.find("/dev/zero"), std::string::npos) << list;
}

// What a command of the agent's gets is closed in another way than what the tool gets.
TEST_P(RebootToolOn, AndSoDoesACommand) {
    EXPECT_EQ(in_process([] {
                  hold_descriptors();
                  return read_shell("ls /proc/$$/fd; true").value_or("failed");
              }).text,
              "0\n1\n2\n");
}

INSTANTIATE_TEST_SUITE_P(
    Rows, RebootToolOn,
    testing::Values(KernelRow{.name = "Kernel", .old = false, .descriptors = 100},
                    KernelRow{.name = "OldKernel", .old = true, .descriptors = 1024},
                    KernelRow{.name = "OldKernelFewDescriptors", .old = true, .descriptors = 251}),
    by_name);

TEST_F(RebootTool, LosesNoLogLine) {
    install_shell("exit 0\n");
    replaced([] {
        if (std::freopen(kFile, "w", stdout) == nullptr) _exit(98);
        std::fputs("a line without end", stdout);
    });
    EXPECT_EQ(read_file(kFile), "a line without end");
}

// The handler of the tests: the tick as the agent's has it, and errno as it was.
void tick_again(int) {
    const int error = errno;
    arm_tick();
    errno = error;
}

void handle_alarms_with_tick() {
    struct sigaction action {};
    action.sa_handler = tick_again;
    action.sa_flags = SA_RESTART;
    sigaction(SIGALRM, &action, nullptr);
}

struct AlarmRow {
    const char *name;
    void (*prepare)();
};

class TickOf : public RebootTool, public testing::WithParamInterface<AlarmRow> {};

TEST_P(TickOf, TheAgentDoesNotEndTheTool) {
    install_shell("sleep 0.1; echo alive > /tmp/os_test\n");
    EXPECT_EQ(replaced([] {
                  handle_alarms_with_tick();
                  GetParam().prepare();
              }),
              0);
    EXPECT_EQ(read_file(kFile), "alive\n");
}

INSTANTIATE_TEST_SUITE_P(Rows, TickOf,
                         testing::Values(AlarmRow{.name = "Runs", .prepare = [] { arm_tick(); }},
                                         AlarmRow{.name = "HasGoneOff", .prepare = [] { raise(SIGALRM); }},
                                         AlarmRow{.name = "HasGoneOffUnblocked",
                                                  .prepare =
                                                      [] {
                                                          raise(SIGALRM);
                                                          set_mask(SIG_UNBLOCK, set_of({SIGALRM}));
                                                      }}),
                         by_name);

// --- A reboot tool that is missing: the agent goes on as before.

std::string failed_reboot() {
    const int result = exec_reboot_tool();
    return std::to_string(result) + (errno == ENOENT ? " ENOENT" : "");
}

TEST_F(RebootTool, ThatIsMissingIsAFailure) {
    EXPECT_EQ(in_process([] {
                  start_clean();
                  return failed_reboot();
              }).text,
              "-1 ENOENT");
}

TEST_F(RebootTool, ThatIsMissingKeepsATickGoingWhoseAlarmHasGoneOff) {
    EXPECT_EQ(in_process([] {
                  start_clean();
                  handle_alarms_with_tick();
                  arm_tick();
                  __wrap_alarm(0);
                  raise(SIGALRM);
                  failed_reboot();
                  return std::to_string(__wrap_alarm(0));
              }).text,
              "1");
}

TEST_F(RebootTool, ThatIsMissingStartsNoTick) {
    EXPECT_EQ(in_process([] {
                  start_clean();
                  failed_reboot();
                  return std::to_string(__wrap_alarm(0));
              }).text,
              "0");
}

TEST_F(RebootTool, ThatIsMissingLeavesAlarmMaskAndHandlersAsTheyWere) {
    const Ended ended = in_process([] {
        start_clean();
        set_mask(SIG_SETMASK, set_of({SIGUSR1, SIGALRM}));
        __wrap_alarm(40);
        const std::string before = read_file("/proc/self/status");
        const std::string result = failed_reboot();
        const std::string after = read_file("/proc/self/status");
        // A second of it may have gone on a busy machine.
        std::string text = result + (__wrap_alarm(0) >= 30 ? " armed" : " not armed");
        for (const char *line : {"SigBlk", "SigIgn", "SigCgt"}) {
            text += signals_of(before, line) == signals_of(after, line) ? " same" : " changed";
        }
        return text;
    });
    EXPECT_EQ(ended.text, "-1 ENOENT armed same same same");
}

// --- Several reboots at once, each of which fails.

std::atomic<int> ticks{0};

bool broken_pipe_is_an_error() {
    int ends[2];
    if (pipe(ends) != 0) return false;
    close(ends[0]);
    const bool error = write(ends[1], "x", 1) == -1 && errno == EPIPE;
    close(ends[1]);
    return error;
}

// Each thread's mask tells it from the others.
bool reboots_in_vain(int thread) {
    const sigset_t own = set_of({SIGALRM, thread % 2 == 0 ? SIGUSR1 : SIGUSR2});
    set_mask(SIG_SETMASK, own);
    bool good = true;
    for (int round = 0; round < 1000; round++) {
        good = good && exec_reboot_tool() == -1 && broken_pipe_is_an_error();
        sigset_t now;
        pthread_sigmask(SIG_SETMASK, nullptr, &now);
        for (const int number : {SIGALRM, SIGUSR1, SIGUSR2}) {
            good = good && sigismember(&now, number) == sigismember(&own, number);
        }
    }
    return good;
}

TEST_F(RebootTool, ThatIsMissingStaysWithoutEffectForEightThreadsAtOnce) {
    const Ended ended = in_process([] {
        const rlimit few{64, 64};  // where descriptors are closed one by one
        setrlimit(RLIMIT_NOFILE, &few);
        start_clean();
        struct sigaction action {};
        action.sa_handler = [](int number) {
            ticks++;
            tick_again(number);
        };
        action.sa_flags = SA_RESTART;
        sigaction(SIGALRM, &action, nullptr);
        arm_tick();
        std::atomic<bool> good{true};
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; i++) {
            threads.emplace_back([&good, i] {
                if (!reboots_in_vain(i)) good = false;
            });
        }
        set_mask(SIG_UNBLOCK, set_of({SIGALRM}));
        for (std::thread &thread : threads) thread.join();
        for (const int before = ticks; ticks < before + 3;) pause();  // for ever, where the tick is lost
        return std::string(good ? "good" : "something was lost");
    });
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.text, "good");
}

}  // namespace
