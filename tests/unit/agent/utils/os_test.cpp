// The real door to the system. The linker sends its clock calls, its sync and its failing calls here first.
#include "agent/utils/os.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

// The names under which clock_gettime and clock_nanosleep are called.
#if __TIMESIZE == 32
#define WRAPPED_GETTIME __wrap___clock_gettime64
#define WRAPPED_NANOSLEEP __wrap___clock_nanosleep_time64
#else
#define WRAPPED_GETTIME __wrap_clock_gettime
#define WRAPPED_NANOSLEEP __wrap_clock_nanosleep
#endif

namespace {

constexpr std::int64_t kSecond = 1'000'000'000;  // nanoseconds

struct Sleep {
    clockid_t clock;
    int flags;
    std::int64_t deadline;  // nanoseconds
    bool operator==(const Sleep &) const = default;
};

std::int64_t wall = 0, steady = 0;  // nanoseconds
std::vector<Sleep> sleeps;
int interruptions = 0;  // of the sleeps to come
bool refuse_spawn = false, refuse_pipe = false;
std::string cache_file_at_sync;
int syncs = 0;

std::string read_file(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

constexpr char kDropCaches[] = "/proc/sys/vm/drop_caches";

}  // namespace

extern "C" {

int WRAPPED_GETTIME(clockid_t clock, timespec *reading) {
    const std::int64_t now = clock == CLOCK_MONOTONIC ? steady : wall;
    reading->tv_sec = static_cast<time_t>(now / kSecond);
    reading->tv_nsec = static_cast<long>(now % kSecond);
    return 0;
}

int WRAPPED_NANOSLEEP(clockid_t clock, int flags, const timespec *deadline, timespec *) {
    sleeps.push_back({clock, flags, deadline->tv_sec * kSecond + deadline->tv_nsec});
    return interruptions-- > 0 ? EINTR : 0;
}

int __real_posix_spawn(pid_t *child, const char *path, const posix_spawn_file_actions_t *actions,
                       const posix_spawnattr_t *attributes, char *const *arguments, char *const *environment);
int __wrap_posix_spawn(pid_t *child, const char *path, const posix_spawn_file_actions_t *actions,
                       const posix_spawnattr_t *attributes, char *const *arguments,
                       char *const *environment) {
    if (refuse_spawn) return EAGAIN;
    return __real_posix_spawn(child, path, actions, attributes, arguments, environment);
}

int __real_pipe2(int *ends, int flags);
int __wrap_pipe2(int *ends, int flags) {
    return refuse_pipe ? -1 : __real_pipe2(ends, flags);
}

void __wrap_sync() {
    syncs++;
    cache_file_at_sync = read_file(kDropCaches);
}

}  // extern "C"

namespace {

class Os : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(std::filesystem::exists("/tmp/.device")) << "runs in the device view only";
        wall = 100 * kSecond;
        steady = 50 * kSecond + 700'000'000;
        sleeps.clear();
        interruptions = 0;
        refuse_spawn = refuse_pipe = false;
        syncs = 0;
    }
    static std::vector<Sleep> until(std::int64_t deadline) {
        return {{CLOCK_MONOTONIC, TIMER_ABSTIME, deadline}};
    }
};

// --- Clocks and pauses.

TEST_F(Os, WallSecondsAreWholeAndGoOnAfter2038) {
    wall = 123 * kSecond + 999'999'999;
    EXPECT_EQ(123, wall_seconds());
    wall = std::int64_t{0x80000005} * kSecond;
    EXPECT_EQ(0x80000005, wall_seconds());
}

TEST_F(Os, SteadySecondsGrowByAPauseWhateverTheFractions) {
    for (const std::int64_t wall_fraction : {0, 1, 300'000'000, 999'999'999}) {
        for (const std::int64_t steady_fraction : {0, 1, 500'000'000, 999'999'999}) {
            wall = 100 * kSecond + wall_fraction;
            steady = 50 * kSecond + steady_fraction;
            const std::int64_t before = steady_seconds();
            const std::int64_t late = 40'000'000;
            const std::int64_t pause = 5 * kSecond - wall_fraction + late;
            wall += pause;
            steady += pause;
            EXPECT_EQ(before + 5, steady_seconds()) << wall_fraction << " " << steady_fraction;
        }
    }
}

TEST_F(Os, SteadySecondsAreTheMonotonicClocksToTheNearest) {
    EXPECT_EQ(51, steady_seconds());
    wall += 300'000'000;
    EXPECT_EQ(50, steady_seconds());
}

TEST_F(Os, SteadySecondsDoNotFollowAStep) {
    const std::int64_t before = steady_seconds();
    wall += 365 * 86400 * kSecond;
    EXPECT_EQ(before, steady_seconds());
}

TEST_F(Os, SleepIsTheNominalLengthOnTheMonotonicClock) {
    sleep_milliseconds(300);
    EXPECT_EQ(until(steady + 300'000'000), sleeps);
}

TEST_F(Os, NoLengthIsNoSleep) {
    sleep_milliseconds(0);
    sleep_milliseconds(-5);
    pause_seconds(0);
    EXPECT_TRUE(sleeps.empty());
}

TEST_F(Os, ALongSleepDoesNotOverflow) {
    sleep_milliseconds(2'000'000'000);
    EXPECT_EQ(until(steady + 2'000'000 * kSecond), sleeps);
}

TEST_F(Os, ASignalDoesNotChangeTheEndOfASleep) {
    interruptions = 2;
    sleep_milliseconds(300);
    const Sleep one{CLOCK_MONOTONIC, TIMER_ABSTIME, steady + 300'000'000};
    EXPECT_EQ((std::vector<Sleep>{one, one, one}), sleeps);
}

TEST_F(Os, APauseIsItsSecondsLessThePartOfTheCurrentOneGone) {
    wall += 300'000'000;
    pause_seconds(5);
    EXPECT_EQ(until(steady + 4'700'000'000), sleeps);
    sleeps.clear();
    wall = 7 * kSecond;
    pause_seconds(5);
    EXPECT_EQ(until(steady + 5 * kSecond), sleeps);
    sleeps.clear();
    pause_seconds(1'000'000);
    EXPECT_EQ(until(steady + 1'000'000 * kSecond), sleeps);
}

TEST_F(Os, APauseWithinTheSecondEndsWhereTheSecondHasGoneFar) {
    wall += 30'000'000;
    pause_within_second(100'000'000);
    EXPECT_EQ(until(steady + 70'000'000), sleeps);
    sleeps.clear();
    for (const std::int64_t gone : {100'000'000, 500'000'000, 999'999'999}) {
        wall = 100 * kSecond + gone;
        pause_within_second(100'000'000);
    }
    EXPECT_TRUE(sleeps.empty());
}

// --- The shell.

TEST_F(Os, RunShellGivesTheWaitStatus) {
    EXPECT_EQ(0, run_shell("true"));
    EXPECT_EQ(3 * 256, run_shell("exit 3"));
    EXPECT_EQ(127 * 256, run_shell("no_such_program 2>/dev/null"));
    EXPECT_EQ(SIGKILL, run_shell("kill -9 $$"));
}

TEST_F(Os, RunShellUnderstandsTheWholeShell) {
    unlink("/tmp/os_test");
    EXPECT_EQ(0, run_shell("printf '%s' \"a  b\" | tr a x > /tmp/os_test && test -s /tmp/os_test"));
    EXPECT_EQ("x  b", read_file("/tmp/os_test"));
}

TEST_F(Os, ReadShellGivesAllThatWasWritten) {
    EXPECT_EQ("one\ntwo\n", read_shell("echo one; echo no >/dev/null; echo two; exit 5"));
    EXPECT_EQ("", read_shell("true"));
    EXPECT_EQ(std::string(100'000, '0'), read_shell("head -c 100000 /dev/zero | tr '\\0' 0"));
}

TEST_F(Os, WhatCannotStartIsAFailure) {
    refuse_spawn = true;
    EXPECT_EQ(-1, run_shell("true"));
    EXPECT_EQ("", read_shell("echo x"));
    refuse_spawn = false;
    refuse_pipe = true;
    EXPECT_EQ("", read_shell("echo x"));
}

// Signals set as badly as a caller can have them, put back afterwards.
class OddSignals {
  public:
    OddSignals() {
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_SETMASK, &all, &mask_);
        for (const int number : {SIGINT, SIGPIPE, SIGALRM}) signal(number, SIG_IGN);
    }
    ~OddSignals() {
        for (const int number : {SIGINT, SIGPIPE, SIGALRM}) signal(number, SIG_DFL);
        sigprocmask(SIG_SETMASK, &mask_, nullptr);
    }

  private:
    sigset_t mask_{};
};

// The signals of a line of /proc/PID/status, less the real-time ones, of which libraries keep some for
// themselves.
std::uint64_t signals_of(const std::string &status, const std::string &name) {
    const size_t found = status.find(name + ":");
    if (found == std::string::npos) return ~std::uint64_t{0};
    return std::strtoull(status.c_str() + found + name.size() + 1, nullptr, 16) & 0x7fffffff;
}

TEST_F(Os, TheProgramsThatAreStartedHaveAnEmptyMaskAndDefaultHandlers) {
    const OddSignals odd;
    const std::string read = read_shell("cat /proc/self/status");
    EXPECT_EQ(0, run_shell("cat /proc/self/status > /tmp/os_test"));
    for (const std::string &status : {read, read_file("/tmp/os_test")}) {
        EXPECT_EQ(0u, signals_of(status, "SigBlk"));
        EXPECT_EQ(0u, signals_of(status, "SigIgn"));
    }
}

TEST_F(Os, SignalsDoNotCutACommandShort) {
    struct sigaction action {};
    action.sa_handler = [](int) {};  // and no SA_RESTART
    sigaction(SIGALRM, &action, nullptr);
    const itimerval every_millisecond{{0, 1000}, {0, 1000}};
    setitimer(ITIMER_REAL, &every_millisecond, nullptr);
    EXPECT_EQ(512, run_shell("sleep 0.03; exit 2"));
    EXPECT_EQ("x\n", read_shell("sleep 0.03; echo x"));
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    signal(SIGALRM, SIG_DFL);
}

TEST_F(Os, NothingIsLeftBehind) {
    const auto descriptors = [] {
        size_t count = 0;
        for ([[maybe_unused]] const auto &d : std::filesystem::directory_iterator("/proc/self/fd")) count++;
        return count;
    };
    const size_t before = descriptors();
    for (int i = 0; i < 5; i++) {
        run_shell("true");
        read_shell("echo x");
        refuse_spawn = i % 2 == 0;
    }
    EXPECT_EQ(before, descriptors());
    EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG)) << "no child is left, dead or alive";
    EXPECT_EQ(ECHILD, errno);
}

TEST_F(Os, TheReadersPipeIsNotHandedOn) {
    run_shell("ls /proc/self/fd | grep -c . > /tmp/os_test");
    EXPECT_EQ(read_file("/tmp/os_test"), read_shell("ls /proc/self/fd | grep -c ."));
}

// --- The reboot tool. In its place stands a shell, which runs the file named by the tool's argument.

class RebootTool : public Os {
  protected:
    static constexpr char kTool[] = "/usr/bin/qmx_reboot";

    void SetUp() override {
        Os::SetUp();
        std::filesystem::remove(kTool);
        std::filesystem::remove("/tmp/os_test");
    }
    static void install_shell(const char *script) {
        std::filesystem::copy_file("/bin/sh", kTool);
        std::ofstream("reboot") << script;
    }
};

TEST_F(RebootTool, TakesTheProcessOverWithItsPathAndRebootAsArguments) {
    install_shell(
        "tr '\\0' '|' < /proc/$$/cmdline > /tmp/os_test; echo >> /tmp/os_test\n"
        // Read without a child: a shell blocks all signals while it starts one.
        "while read -r line; do case $line in SigBlk*) echo \"$line\" >> /tmp/os_test;; esac; done < "
        "/proc/$$/status\n");
    const pid_t child = fork();
    if (child == 0) {
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_SETMASK, &all, nullptr);
        exec_reboot_tool();
        _exit(99);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, status);
    EXPECT_EQ("/usr/bin/qmx_reboot|reboot|\nSigBlk:\t0000000000000000\n", read_file("/tmp/os_test"));
}

TEST_F(RebootTool, DoesNotInheritAnIgnoredSignal) {
    install_shell("cat /proc/$$/status > /tmp/os_test\n");
    const pid_t child = fork();
    if (child == 0) {
        signal(SIGPIPE, SIG_IGN);
        exec_reboot_tool();
        _exit(99);
    }
    waitpid(child, nullptr, 0);
    EXPECT_EQ(0u, signals_of(read_file("/tmp/os_test"), "SigIgn"));
}

TEST_F(RebootTool, LosesNoLogLine) {
    install_shell("exit 0\n");
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        if (std::freopen("/tmp/os_test", "w", stdout) == nullptr) _exit(98);
        std::fputs("a line without end", stdout);
        exec_reboot_tool();
        _exit(99);
    }
    waitpid(child, nullptr, 0);
    EXPECT_EQ("a line without end", read_file("/tmp/os_test"));
}

TEST_F(RebootTool, DoesNotInheritAPendingAlarm) {
    install_shell("sleep 0.1; echo alive > /tmp/os_test\n");
    const pid_t child = fork();
    if (child == 0) {
        const itimerval soon{{0, 0}, {0, 20'000}};
        sigset_t alarm_signal;
        sigemptyset(&alarm_signal);
        sigaddset(&alarm_signal, SIGALRM);
        sigprocmask(SIG_BLOCK, &alarm_signal, nullptr);
        setitimer(ITIMER_REAL, &soon, nullptr);
        exec_reboot_tool();
        _exit(99);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, status);
    EXPECT_EQ("alive\n", read_file("/tmp/os_test"));
}

TEST_F(RebootTool, DoesNotInheritAnAlarmThatHasFired) {
    install_shell("sleep 0.1; echo alive > /tmp/os_test\n");
    const pid_t child = fork();
    if (child == 0) {
        signal(SIGALRM, [](int) {
            const itimerval soon{{0, 0}, {0, 20'000}};
            setitimer(ITIMER_REAL, &soon, nullptr);
        });
        sigset_t alarm_signal;
        sigemptyset(&alarm_signal);
        sigaddset(&alarm_signal, SIGALRM);
        sigprocmask(SIG_BLOCK, &alarm_signal, nullptr);
        raise(SIGALRM);
        exec_reboot_tool();
        _exit(99);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, status);
    EXPECT_EQ("alive\n", read_file("/tmp/os_test"));
}

TEST_F(RebootTool, ThatIsMissingKeepsTheTickGoing) {
    const auto handler = [](int) { alarm(1); };
    signal(SIGALRM, handler);
    sigset_t alarm_signal;
    sigemptyset(&alarm_signal);
    sigaddset(&alarm_signal, SIGALRM);
    sigprocmask(SIG_BLOCK, &alarm_signal, nullptr);
    raise(SIGALRM);  // its handler would have armed the next one
    EXPECT_EQ(-1, exec_reboot_tool());
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(1u, alarm(0));
    EXPECT_EQ(+handler, signal(SIGALRM, SIG_DFL));
    sigprocmask(SIG_UNBLOCK, &alarm_signal, nullptr);
}

TEST_F(RebootTool, ThatIsMissingLeavesAlarmAndMaskAsTheyWere) {
    sigset_t mask, after;
    sigemptyset(&mask);
    sigaddset(&mask, SIGUSR1);
    sigprocmask(SIG_SETMASK, &mask, nullptr);
    signal(SIGPIPE, SIG_IGN);
    alarm(1000);
    EXPECT_EQ(-1, exec_reboot_tool());
    EXPECT_EQ(ENOENT, errno);
    EXPECT_NEAR(1000, alarm(0), 1);
    sigprocmask(SIG_SETMASK, nullptr, &after);
    EXPECT_EQ(1, sigismember(&after, SIGUSR1));
    EXPECT_EQ(0, sigismember(&after, SIGUSR2));

    EXPECT_EQ(SIG_IGN, signal(SIGPIPE, SIG_DFL));

    EXPECT_EQ(-1, exec_reboot_tool());
    EXPECT_EQ(0u, alarm(0)) << "none is armed that was not";
    sigemptyset(&mask);
    sigprocmask(SIG_SETMASK, &mask, nullptr);
}

// --- The page cache: a plain file of the view.

TEST_F(Os, ThePageCacheIsDroppedAfterAllIsWrittenBack) {
    ASSERT_TRUE(std::filesystem::exists("/tmp/.device/drop_caches"));
    std::ofstream(kDropCaches) << "0";
    drop_page_cache();
    EXPECT_EQ(1, syncs);
    EXPECT_EQ("0", cache_file_at_sync);
    EXPECT_EQ("1", read_file(kDropCaches));
}

}  // namespace
