// Shell commands as they really run: results, what a command inherits, and its end when it does not end
// itself. Time runs as fast as a test wants; what SIGKILL ends is the test's choice too.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "agent/utils/os.h"
#include "read_file.h"
#include "row_names.h"
#include "wrapped_clocks.h"

namespace {

constexpr std::int64_t kSecond = 1'000'000'000;  // nanoseconds
constexpr char kFile[] = "/tmp/os_test";

std::int64_t start_of_time = 0;             // nanoseconds of the machine's clock
std::atomic<int> speed{1};                  // of the clocks that the door sees
std::atomic<bool> immortal{false};          // nothing dies of SIGKILL
std::atomic<pid_t> last_killed{0};          // as kill was told
std::atomic<bool> all_were_blocked{false};  // signals, at an instant

// A clock that only pauses move, by `slowness` halves of their length; it ends with the first kill.
bool clock_of_pauses = false;
int slowness = 2;
std::int64_t paused = 0;  // nanoseconds

timespec to_timespec(std::int64_t nanoseconds) {
    timespec result{};
    result.tv_sec = static_cast<time_t>(nanoseconds / kSecond);
    result.tv_nsec = static_cast<long>(nanoseconds % kSecond);
    return result;
}

}  // namespace

extern "C" {

int REAL_GETTIME(clockid_t clock, timespec *reading);
int WRAPPED_GETTIME(clockid_t clock, timespec *reading) {
    if (clock_of_pauses) {
        *reading = to_timespec(paused);
        return 0;
    }
    REAL_GETTIME(clock, reading);
    const std::int64_t real = reading->tv_sec * kSecond + reading->tv_nsec;
    if (start_of_time == 0) start_of_time = real;
    *reading = to_timespec((real - start_of_time) * speed);
    return 0;
}

int REAL_NANOSLEEP(clockid_t clock, int flags, const timespec *deadline, timespec *rest);
int WRAPPED_NANOSLEEP(clockid_t clock, int flags, const timespec *deadline, timespec *rest) {
    if (clock_of_pauses) {
        paused += (deadline->tv_sec * kSecond + deadline->tv_nsec - paused) * slowness / 2;
        return 0;
    }
    const timespec real =
        to_timespec(start_of_time + (deadline->tv_sec * kSecond + deadline->tv_nsec) / speed);
    return REAL_NANOSLEEP(clock, flags, &real, rest);
}

int __real_pthread_sigmask(int how, const sigset_t *set, sigset_t *before);
int __wrap_pthread_sigmask(int how, const sigset_t *set, sigset_t *before) {
    bool all = how == SIG_SETMASK;
    for (const int number : {SIGALRM, SIGCHLD, SIGHUP, SIGINT, SIGTERM, SIGUSR1, SIGUSR2, SIGWINCH})
        all = all && sigismember(set, number) == 1;
    if (all) all_were_blocked = true;
    return __real_pthread_sigmask(how, set, before);
}

int __real_kill(pid_t process, int number);
int __wrap_kill(pid_t process, int number) {
    last_killed = process;
    if (immortal) return 0;
    int result = __real_kill(process, number);
    // No time has passed on this clock: where vfork is a fork in truth (a sanitizer, an emulator), the child
    // may not lead its group yet.
    while (clock_of_pauses && result != 0 && errno == ESRCH) result = __real_kill(process, number);
    clock_of_pauses = false;
    return result;
}

}  // extern "C"

namespace {

double seconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

class Shell : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(std::filesystem::exists("/tmp/.device")) << "runs in the device view only";
        std::filesystem::remove(kFile);
        seconds();  // time starts here, on one thread
    }
    void TearDown() override {
        speed = 1;
        immortal = false;
        clock_of_pauses = false;
    }
};

// What the tests' commands hang in: longer than any test takes, and unlike anybody else's.
#define HANG "sleep 47110815"

bool any_hangs() {
    for (const auto &entry : std::filesystem::directory_iterator("/proc")) {
        if (read_file(entry.path() / "cmdline") == std::string("sleep\0"
                                                               "47110815\0",
                                                               15))
            return true;
    }
    return false;
}

// Blocks for as long as one of them lives.
void expect_none_hangs() {
    while (any_hangs()) usleep(1000);
}

// What run_shell and read_shell have to give alike.
struct Way {
    const char *name;
    // Runs a command and returns what it printed, "failed" when it failed.
    std::string (*run)(const std::string &command);
};

constexpr Way kWays[] = {
    {.name = "run_shell",
     .run =
         [](const std::string &command) {
             const int status = run_shell(("(" + command + ") > " + kFile).c_str());
             return status == 0 ? read_file(kFile) : std::string("failed");
         }},
    {.name = "read_shell",
     .run = [](const std::string &command) { return read_shell(command.c_str()).value_or("failed"); }},
};

class EachWay : public Shell, public testing::WithParamInterface<Way> {};
INSTANTIATE_TEST_SUITE_P(Shell, EachWay, testing::ValuesIn(kWays), by_name);

// --- Results.

TEST_F(Shell, RunningGivesTheWaitStatus) {
    EXPECT_EQ(run_shell("true"), 0);
    EXPECT_EQ(run_shell("exit 3"), 3);
    EXPECT_EQ(run_shell("no_such_program 2>/dev/null"), 127);
    EXPECT_EQ(run_shell("kill -9 $$"), 128 + SIGKILL);
    int wait_status = 0;
    EXPECT_EQ(run_shell("exit 3", kCommandSeconds, &wait_status), 3);
    EXPECT_EQ(wait_status, 3 * 256);
}

TEST_F(Shell, ReadingGivesAllThatWasWritten) {
    EXPECT_EQ(read_shell("echo one; echo no >/dev/null; echo two"), "one\ntwo\n");
    EXPECT_EQ(read_shell("true"), "");
    EXPECT_EQ(read_shell("(sleep 0.05; echo late) &"), "late\n");
}

TEST_F(Shell, AnAnswerHasUpTo64KiB) {
    EXPECT_EQ(read_shell("head -c 65536 /dev/zero | tr '\\0' 0"), std::string(65'536, '0'));
    EXPECT_EQ(read_shell("head -c 65537 /dev/zero"), std::nullopt);
    EXPECT_EQ(read_shell("yes"), std::nullopt);
}

TEST_F(Shell, WhatAFailedCommandPrintedIsNoAnswer) {
    EXPECT_EQ(read_shell("echo one; exit 5"), std::nullopt);
    EXPECT_EQ(read_shell("echo one; kill -9 $$"), std::nullopt);
}

TEST_P(EachWay, UnderstandsTheWholeShell) {
    EXPECT_EQ(GetParam().run("printf '%s' \"a  b\" | tr a x && test -d /tmp"), "x  b");
}

TEST_P(EachWay, ReturnsWhatItsOwnCommandPrinted) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; i++) {
        threads.emplace_back([text = std::to_string(i)] {
            for (int round = 0; round < 10; round++) {
                EXPECT_EQ(read_shell(("echo " + text).c_str()), text + "\n");
            }
        });
    }
    for (std::thread &thread : threads) thread.join();
}

// --- What cannot start.

// The kernel makes no process any more for the caller. False where it cannot be told so (emulation).
bool refuse_processes() {
#ifdef __NR_vfork
    constexpr unsigned kCalls[] = {__NR_vfork, __NR_fork, __NR_clone, __NR_clone3};
#else
    constexpr unsigned kCalls[] = {__NR_clone, __NR_clone3};
#endif
    std::vector<sock_filter> filter = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, 0)};
    for (const unsigned call : kCalls) {
        filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1));
        filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EAGAIN));
    }
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    const sock_fprog program = {static_cast<unsigned short>(filter.size()), filter.data()};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

TEST_F(Shell, WhatCannotStartIsAFailure) {
    constexpr int kSkipped = 77;
    const pid_t child = fork();
    if (child == 0) {
        if (!refuse_processes()) _exit(kSkipped);
        testing::internal::CaptureStdout();
        const bool failed = run_shell("true") == -1 && !read_shell("echo x");
        const std::string line = "command not started: Resource temporarily unavailable\n";
        _exit(failed && testing::internal::GetCapturedStdout() == line + line ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    if (status == kSkipped << 8) GTEST_SKIP() << "no system call can be refused here";
    EXPECT_EQ(status, 0);
}

TEST_F(Shell, WithoutAShellTheResultIsTheShellsForNoProgram) {
    std::filesystem::create_directory("/tmp/no_shell");
    const pid_t child = fork();
    if (child == 0) _exit(chroot("/tmp/no_shell") == 0 ? run_shell("true") : 1);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 127 << 8);
}

TEST_F(Shell, WithoutADescriptorForThePipeReadingIsAFailure) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit few{3, limit.rlim_max};
    testing::internal::CaptureStdout();
    setrlimit(RLIMIT_NOFILE, &few);
    EXPECT_EQ(read_shell("echo x"), std::nullopt);
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "command not started: Too many open files\n");
}

// --- What a command inherits.

TEST_P(EachWay, HandsOnNoDescriptorAbove2) {
    const int low = open("/dev/null", O_RDONLY);
    const int high = fcntl(low, F_DUPFD, 250);
    EXPECT_EQ(GetParam().run("ls /proc/$$/fd; true"), "0\n1\n2\n");
    close(low);
    close(high);
}

// Signals set as badly as a caller can have them, put back afterwards.
class OddSignals {
  public:
    OddSignals() {
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_SETMASK, &all, &mask_);
        for (const int number : kIgnored) signal(number, SIG_IGN);
    }
    ~OddSignals() {
        for (const int number : kIgnored) signal(number, SIG_DFL);
        sigprocmask(SIG_SETMASK, &mask_, nullptr);
    }

  private:
    static constexpr int kIgnored[] = {SIGHUP, SIGINT, SIGPIPE, SIGALRM};
    sigset_t mask_{};
};

// The signals of a line of /proc/PID/status, less the real-time ones, of which libraries keep some for
// themselves.
std::uint64_t signals_of(const std::string &status, const std::string &name) {
    const size_t found = status.find(name + ":");
    if (found == std::string::npos) return ~std::uint64_t{0};
    return std::strtoull(status.c_str() + found + name.size() + 1, nullptr, 16) & 0x7fffffff;
}

TEST_P(EachWay, GivesAnEmptyMaskAndDefaultHandlers) {
    const OddSignals odd;
    const std::string status = GetParam().run("cat /proc/self/status");
    EXPECT_EQ(signals_of(status, "SigBlk"), 0u);
    EXPECT_EQ(signals_of(status, "SigIgn"), 0u);
}

// Its memory is the agent's until then.
TEST_P(EachWay, RunsNoHandlerBeforeItIsTheShell) {
    all_were_blocked = false;
    EXPECT_EQ(GetParam().run("echo x"), "x\n");
    EXPECT_TRUE(all_were_blocked);
}

TEST_P(EachWay, LeavesItsCallersMaskAndHandlersAlone) {
    sigset_t usr1, before, after;
    sigemptyset(&usr1);
    sigaddset(&usr1, SIGUSR1);
    pthread_sigmask(SIG_SETMASK, &usr1, &before);
    signal(SIGUSR2, SIG_IGN);
    EXPECT_EQ(GetParam().run("echo x"), "x\n");
    pthread_sigmask(SIG_SETMASK, &before, &after);
    EXPECT_EQ(sigismember(&after, SIGUSR1), 1);
    EXPECT_EQ(sigismember(&after, SIGUSR2), 0);
    EXPECT_EQ(signal(SIGUSR2, SIG_DFL), SIG_IGN);
}

TEST_P(EachWay, IsCalledSh) {
    EXPECT_EQ(GetParam().run("echo $0"), "sh\n");
}

TEST_P(EachWay, MakesAProcessGroup) {
    EXPECT_EQ(GetParam().run("test $(cut -d' ' -f5 /proc/$$/stat) = $$ && echo own"), "own\n");
}

TEST_P(EachWay, IsNotCutShortBySignals) {
    struct sigaction action {};
    action.sa_handler = [](int) {};  // and no SA_RESTART
    sigaction(SIGALRM, &action, nullptr);
    const itimerval every_millisecond{{0, 1000}, {0, 1000}};
    setitimer(ITIMER_REAL, &every_millisecond, nullptr);
    EXPECT_EQ(GetParam().run("sleep 0.03; echo x"), "x\n");
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    signal(SIGALRM, SIG_DFL);
}

// --- The end.

void expect_no_child() {
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left, dead or alive";
    EXPECT_EQ(errno, ECHILD);
}

TEST_P(EachWay, LeavesNothingBehind) {
    const auto descriptors = [] {
        size_t count = 0;
        for ([[maybe_unused]] const auto &d : std::filesystem::directory_iterator("/proc/self/fd")) count++;
        return count;
    };
    const size_t before = descriptors();
    for (int i = 0; i < 5; i++) GetParam().run(i % 2 == 0 ? "echo x" : "exit 1");
    EXPECT_EQ(descriptors(), before);
    expect_no_child();
}

struct HungRow {
    const char *name;
    const char *command;
};

class Hung : public Shell, public testing::WithParamInterface<std::tuple<Way, HungRow>> {};

TEST_P(Hung, CommandIsEndedWithItsChildrenAfterAMinute) {
    const auto &[way, row] = GetParam();
    speed = 100;
    const double start = seconds();
    EXPECT_EQ(way.run(row.command), "failed");
    EXPECT_GE(seconds() - start, 60);
    EXPECT_LT(seconds() - start, 600);
    expect_none_hangs();
}

INSTANTIATE_TEST_SUITE_P(
    Shell, Hung,
    testing::Combine(testing::ValuesIn(kWays),
                     testing::Values(HungRow{"Itself", "echo x; exec " HANG},
                                     HungRow{"AChild", HANG " & echo x; wait"},
                                     HungRow{"WithoutOutput", "exec >/dev/null; " HANG " & wait"})),
    [](const auto &row) { return std::string(std::get<0>(row.param).name) + std::get<1>(row.param).name; });

TEST_F(Shell, AGrandchildThatKeepsTheOutputIsEndedAfterAMinute) {
    speed = 100;
    EXPECT_EQ(read_shell(HANG " & echo x"), std::nullopt);
    expect_none_hangs();
}

struct LimitRow {
    const char *name;
    int seconds;
    int slowness;             // halves of a pause's length that it takes
    std::int64_t kill_after;  // milliseconds
};

class LimitOf : public Shell, public testing::WithParamInterface<LimitRow> {};

// Looks after 1, 3, 7, 15 ms, then every 10 ms. A pause counts for what it took, but for its length at least
// and for twice that at most.
TEST_P(LimitOf, ACommandIsOver) {
    paused = 0;
    slowness = GetParam().slowness;
    clock_of_pauses = true;
    EXPECT_EQ(run_shell("exec " HANG, GetParam().seconds), 128 + SIGKILL);
    EXPECT_EQ(paused / 1'000'000, GetParam().kill_after);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, LimitOf,
    testing::Values(
        LimitRow{.name = "pauses of their length", .seconds = 10, .slowness = 2, .kill_after = 10'005},
        LimitRow{.name = "a minute", .seconds = 60, .slowness = 2, .kill_after = 60'005},
        LimitRow{.name = "pauses that end early", .seconds = 10, .slowness = 1, .kill_after = 5'002},
        LimitRow{.name = "pauses twice as long", .seconds = 10, .slowness = 4, .kill_after = 10'010},
        LimitRow{.name = "pauses four times as long", .seconds = 10, .slowness = 8, .kill_after = 20'020}),
    by_name);

TEST_F(Shell, AnAnswerIsWaitedForAMinute) {
    paused = 0;
    slowness = 2;
    clock_of_pauses = true;
    EXPECT_EQ(read_shell("exec " HANG), std::nullopt);
    EXPECT_EQ(paused / 1'000'000, 60'005);
}

TEST_F(Shell, ACommandWhoseEndSomebodyElseTookIsAFailure) {
    signal(SIGCHLD, SIG_IGN);  // the system takes it
    last_killed = 0;
    int wait_status = 0;
    EXPECT_EQ(run_shell("exit 0", kCommandSeconds, &wait_status), -1);
    EXPECT_EQ(wait_status, -1);
    EXPECT_EQ(read_shell("echo x"), std::nullopt);
    EXPECT_EQ(last_killed, 0) << "the number may be another process's by now";
    signal(SIGCHLD, SIG_DFL);
}

// One that hangs in the kernel: SIGKILL does nothing to it until its disk answers.
TEST_F(Shell, ACommandThatCannotBeEndedIsLeftBehind) {
    speed = 100;
    immortal = true;
    const double start = seconds();
    EXPECT_EQ(run_shell("exec " HANG, 10), -1);
    EXPECT_GE(seconds() - start, 11);
    EXPECT_LT(seconds() - start, 110);
    const pid_t hung = -last_killed;
    EXPECT_EQ(read_shell("exec " HANG), std::nullopt);
    const pid_t hung_reader = -last_killed;
    speed = 1;
    immortal = false;
    EXPECT_EQ(read_shell("echo x"), "x\n") << "others run meanwhile";
    kill(hung, SIGKILL);
    kill(hung_reader, SIGKILL);
    siginfo_t ended{};
    for (const pid_t child : {hung, hung_reader}) {
        EXPECT_EQ(waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT), 0);
    }
    EXPECT_EQ(run_shell("true"), 0);
    expect_no_child();
}

TEST_F(Shell, BesidesEightThatCannotBeEndedNoneIsStarted) {
    speed = 100;
    immortal = true;
    std::vector<pid_t> hung;
    for (int i = 0; i < 8; i++) {
        EXPECT_EQ(run_shell("exec " HANG, 1), -1);
        hung.push_back(-last_killed);
    }
    speed = 1;
    testing::internal::CaptureStdout();
    EXPECT_EQ(run_shell("touch /tmp/os_test"), -1);
    EXPECT_EQ(read_shell("touch /tmp/os_test"), std::nullopt);
    const std::string line = "command not started: Device or resource busy\n";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), line + line);
    EXPECT_FALSE(std::filesystem::exists(kFile));
    immortal = false;
    kill(hung[3], SIGKILL);
    siginfo_t ended{};
    waitid(P_PID, static_cast<id_t>(hung[3]), &ended, WEXITED | WNOWAIT);
    EXPECT_EQ(run_shell("touch /tmp/os_test"), 0);
    for (const pid_t child : hung) kill(child, SIGKILL);
}

TEST_F(Shell, ACommandDiesWithTheAgent) {
    const pid_t agent = fork();
    if (agent == 0) _exit(run_shell("exec " HANG));
    while (!any_hangs()) usleep(1000);
    kill(agent, SIGKILL);
    waitpid(agent, nullptr, 0);
    expect_none_hangs();
}

}  // namespace
