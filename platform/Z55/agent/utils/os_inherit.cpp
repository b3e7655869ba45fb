// What the agent takes over from what started it, and what it hands on.
#include "os_inherit.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <initializer_list>
#include <iterator>
#include <mutex>

#include "os.h"
#include "tick.h"

namespace {

constexpr char kRebootTool[] = "/usr/bin/qmx_reboot";
constexpr rlim_t kMostDescriptors = 65536;  // where the system sets a limit that is none

// What a handler that does nothing cannot stand for: with it a fault would come again for ever, and only with
// the default does the end of a child wait for the one who asks.
constexpr int kNeverHandled[] = {SIGCHLD, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS};
// Writing to a terminal from the background, a call that is resumed after the handler would fail for ever.
constexpr int kNotResumed[] = {SIGTTIN, SIGTTOU};

#ifdef CLOSE_RANGE_CLOEXEC
constexpr unsigned kCloseOnExec = CLOSE_RANGE_CLOEXEC;
#else
constexpr unsigned kCloseOnExec = 4;
#endif

// One call where the kernel has it.
bool close_range_above_2([[maybe_unused]] unsigned flags) {
#ifdef SYS_close_range
    return syscall(SYS_close_range, 3U, ~0U, flags) == 0;
#else
    return false;
#endif
}

// Descriptors are given out from the lowest number up and end here.
int descriptor_limit() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    return static_cast<int>(std::min(limit.rlim_cur, kMostDescriptors));
}

void close_descriptors_on_exec() {
    if (close_range_above_2(kCloseOnExec)) return;
    const int limit = descriptor_limit();
    for (int descriptor = 3; descriptor < limit; descriptor++) fcntl(descriptor, F_SETFD, FD_CLOEXEC);
}

void do_nothing(int) {}

bool is_in(const auto &numbers, int number) {
    return std::find(std::begin(numbers), std::end(numbers), number) != std::end(numbers);
}

void handle_quietly(int number) {
    struct sigaction action {};
    action.sa_handler = is_in(kNeverHandled, number) ? SIG_DFL : do_nothing;
    action.sa_flags = is_in(kNotResumed, number) ? 0 : SA_RESTART;
    sigaction(number, &action, nullptr);
}

// An ignored signal stays ignored in the program that replaces the agent, a handled one does not.
void handle_ignored_signals() {
    for (int number = 1; number < NSIG; number++) {
        struct sigaction action {};
        if (sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) handle_quietly(number);
    }
}

// A descriptor that is opened gets the lowest free number.
void open_standard_descriptors() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; descriptor++) {
        if (fcntl(descriptor, F_GETFD) < 0) open("/dev/null", O_RDWR);
    }
}

}  // namespace

void close_descriptors() {
    if (close_range_above_2(0)) return;
    const int limit = descriptor_limit();
    for (int descriptor = 3; descriptor < limit; descriptor++) close(descriptor);
}

void reset_signals() {
    struct sigaction normal {};
    normal.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; number++) sigaction(number, &normal, nullptr);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

void start_clean() {
    open_standard_descriptors();
    umask(S_IWGRP | S_IWOTH);
    alarm(0);
    handle_ignored_signals();
    for (const int number : {SIGPIPE, SIGALRM}) handle_quietly(number);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGALRM);
    pthread_sigmask(SIG_SETMASK, &blocked, nullptr);
}

// Nothing of the process changes for it that another thread could miss: a handler ends with exec, a
// descriptor is closed by it, and the mask is this thread's. What is pending meets its handler before.
int exec_reboot_tool() {
    static constinit std::mutex one_at_a_time;
    std::fflush(stdout);
    const std::lock_guard<std::mutex> lock(one_at_a_time);
    const unsigned remaining = stop_tick();
    handle_ignored_signals();
    close_descriptors_on_exec();
    sigset_t none, before;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, &before);
    const int result = execl(kRebootTool, kRebootTool, "reboot", nullptr);
    const int error = errno;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    resume_tick(remaining);
    errno = error;
    return result;
}
