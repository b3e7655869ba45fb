// Shell commands, from their start to an end that does not depend on them.
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <mutex>
#include <optional>
#include <string>

#include "os.h"
#include "os_inherit.h"

namespace {

constexpr std::int64_t kFirstPause = 1;  // milliseconds, as the next two
constexpr std::int64_t kLongestPause = 10;
constexpr std::int64_t kDeathMilliseconds = 1000;  // that SIGKILL is given
constexpr size_t kMostOutput = 65536;

// The commands that did not end, and what guards them.
constinit std::mutex left_behind_lock;
constinit pid_t left_behind[8] = {};  // 0: a free place

std::int64_t monotonic_milliseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

// A wait in pauses that grow, so that a short command is not held up. The kernels of the device cannot wait
// for a child with a limit, and SIGCHLD belongs to the whole process. A pause counts for what it took, but
// for twice its length at most: on a machine that is busy with other things a command has longer.
class Patience {
  public:
    explicit Patience(std::int64_t milliseconds) : left_(milliseconds) {}
    // False when it is over.
    [[nodiscard]] bool pause() {
        if (left_ <= 0) return false;
        const std::int64_t start = monotonic_milliseconds();
        sleep_milliseconds(pause_);
        left_ -= std::clamp(monotonic_milliseconds() - start, pause_, 2 * pause_);
        pause_ = std::min(2 * pause_, kLongestPause);
        return true;
    }

  private:
    std::int64_t left_;
    std::int64_t pause_ = kFirstPause;
};

// Runs in the agent's own memory: nothing here may allocate, lock or return.
[[noreturn]] void become_shell(const char *command, int output) {
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (output >= 0) dup2(output, STDOUT_FILENO);
    close_descriptors();
    reset_signals();
    execl("/bin/sh", "sh", "-c", command, nullptr);
    _exit(127);
}

// `output`, where not -1, becomes the standard output. Returns the child, which leads a process group of its
// own, or -1. Not posix_spawn: it cannot close descriptors that it is not told of.
pid_t start_shell(const char *command, int output) {
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);    // a handler must not run in the child
    const pid_t child = vfork();                    // NOLINT(clang-analyzer-security.insecureAPI.vfork)
    if (child == 0) become_shell(command, output);  // NOLINT(clang-analyzer-unix.Vfork): it keeps the rules
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return child;
}

// Waits for the end of the child, whose status is -1 where another one has taken it. False when the patience
// is over first.
bool ends_within(Patience &patience, pid_t child, int &status) {
    for (;;) {
        const pid_t ended = waitpid(child, &status, WNOHANG);
        if (ended == child) return true;
        if (ended < 0 && errno != EINTR) {
            status = -1;
            return true;
        }
        if (!patience.pause()) return false;
    }
}

// The place of a command that has ended since it was left behind, or that was always free; null when there is
// none. Under left_behind_lock.
pid_t *free_place() {
    for (pid_t &child : left_behind) {
        if (child != 0 && waitpid(child, nullptr, WNOHANG) != 0) child = 0;
    }
    pid_t *const place = std::find(std::begin(left_behind), std::end(left_behind), 0);
    return place != std::end(left_behind) ? place : nullptr;
}

bool may_start() {
    const std::lock_guard<std::mutex> lock(left_behind_lock);
    if (free_place() != nullptr) return true;
    errno = EBUSY;
    return false;
}

void tell_not_started() {
    std::printf("command not started: %s\n", std::strerror(errno));
}

// Beyond the places a command is forgotten: several threads may have started one at once.
void leave_behind(pid_t child) {
    const std::lock_guard<std::mutex> lock(left_behind_lock);
    if (pid_t *const place = free_place()) *place = child;
}

// The child is still there, so its number is the group's and nobody else's.
int end_group(pid_t child) {
    kill(-child, SIGKILL);
    Patience patience(kDeathMilliseconds);
    int status = -1;
    if (ends_within(patience, child, status)) return status;
    leave_behind(child);
    return -1;
}

int wait_for(pid_t child, Patience &patience) {
    int status = -1;
    return ends_within(patience, child, status) ? status : end_group(child);
}

// Of a wait status; -1 stays what it is.
int exit_code(int status) {
    if (status == -1) return -1;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

// Reads to the end of the output. False when the patience is over first or the output is too long.
bool read_all(int output, Patience &patience, std::string &text) {
    char piece[1024];
    while (text.size() <= kMostOutput) {
        const ssize_t count = read(output, piece, sizeof piece);
        if (count == 0) return true;
        if (count > 0) {
            text.append(piece, static_cast<size_t>(count));
        } else if (!patience.pause()) {
            return false;
        }
    }
    return false;
}

}  // namespace

int run_shell(const char *command, int limit_seconds, int *wait_status) {
    const pid_t child = may_start() ? start_shell(command, -1) : -1;
    if (child < 0) tell_not_started();
    Patience patience(std::int64_t{limit_seconds} * 1000);
    const int status = child >= 0 ? wait_for(child, patience) : -1;
    if (wait_status != nullptr) *wait_status = status;
    return exit_code(status);
}

std::optional<std::string> read_shell(const char *command) {
    int ends[2];
    if (!may_start() || pipe2(ends, O_CLOEXEC) != 0) {
        tell_not_started();
        return std::nullopt;
    }
    fcntl(ends[0], F_SETFL, O_NONBLOCK);
    const pid_t child = start_shell(command, ends[1]);
    if (child < 0) tell_not_started();
    close(ends[1]);
    std::string text;
    int status = -1;
    if (child >= 0) {
        Patience patience(std::int64_t{kCommandSeconds} * 1000);
        if (read_all(ends[0], patience, text)) {
            status = wait_for(child, patience);
        } else {
            end_group(child);
        }
    }
    close(ends[0]);
    if (status != 0) return std::nullopt;
    return text;
}
