// device-view: runs a command in a private view of the device (README.md in this folder). Three processes:
// the launcher stays outside the PID namespace and passes signals and the exit code; process 1 builds the
// view and reaps; the command.
#include <fcntl.h>
#include <linux/if.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/personality.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include "view_files.h"

namespace {

constexpr int kCannotBuildView = 125;
constexpr int kCannotStartCommand = 127;
constexpr int kKilled = 128 + SIGKILL;
constexpr timespec kGrace = {2, 0};  // between handing a signal to the command and killing the view

struct ViewOptions {
    FileOptions files;
    bool private_network = true;
    bool keep = false;
    std::string pid_file;
    char **command = nullptr;
};

[[noreturn]] void fail(const std::string &what) {
    throw std::system_error(errno, std::generic_category(), what);
}

std::string next_value(char **&argument) {
    const std::string name = *argument++;
    if (*argument == nullptr) throw std::invalid_argument(name + " needs a value");
    return *argument++;
}

ViewOptions parse(char **argument) {
    ViewOptions options;
    while (*argument != nullptr && std::strcmp(*argument, "--") != 0) {
        const std::string name = *argument;
        if (name == "--keep") {
            options.keep = true;
            ++argument;
        } else if (name == "--net") {
            const std::string value = next_value(argument);
            if (value != "private" && value != "host")
                throw std::invalid_argument("--net takes private or host");
            options.private_network = value == "private";
        } else if (name == "--sd-megabytes") {
            options.files.sd_megabytes = std::stol(next_value(argument));
        } else if (name == "--pid-file") {
            options.pid_file = std::filesystem::absolute(next_value(argument));
        } else if (name == "--bind") {
            options.files.kept_folders.push_back(std::filesystem::absolute(next_value(argument)));
        } else {
            throw std::invalid_argument("unknown option " + name);
        }
    }
    if (*argument == nullptr || argument[1] == nullptr)
        throw std::invalid_argument("no command given after --");
    options.command = argument + 1;
    return options;
}

void add_defaults(ViewOptions &options) {
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe");
    options.files.kept_folders.insert(options.files.kept_folders.end(), {VIEW_SOURCE_DIR, VIEW_BUILD_DIR});
    options.files.tools_folder = VIEW_TOOLS_DIR;
    options.files.programs_folder = self.parent_path();
    options.files.linked_programs = {"bend-step"};
    // The command starts in /tmp, where a relative path would mean something else.
    static std::string resolved;
    if (std::strchr(options.command[0], '/') != nullptr) {
        resolved = std::filesystem::absolute(options.command[0]);
        options.command[0] = resolved.data();
    }
}

int open_to_write(const char *path) {
    return open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
}

void write_text(int file, const char *path, const std::string &text) {
    const bool written =
        file >= 0 && write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (file >= 0) close(file);
    if (!written) fail(std::string("cannot write ") + path);
}

void write_proc(const std::string &name, const std::string &text) {
    const std::string path = "/proc/self/" + name;
    write_text(open_to_write(path.c_str()), path.c_str(), text);
}

// Root needs no user namespace, unless it is root of a container only.
void enter_namespaces(bool private_network) {
    const int kinds = CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWIPC | (private_network ? CLONE_NEWNET : 0);
    const uid_t user = geteuid();
    const gid_t group = getegid();
    if (user == 0 && unshare(kinds) == 0) return;
    if (unshare(kinds | CLONE_NEWUSER) != 0) {
        fail(
            "the kernel refuses user namespaces (run as root, or see the sysctls "
            "kernel.unprivileged_userns_clone and "
            "user.max_user_namespaces; a plain chroot never allows them, a pivoted root does)");
    }
    write_proc("setgroups", "deny");
    write_proc("uid_map", "0 " + std::to_string(user) + " 1");
    write_proc("gid_map", "0 " + std::to_string(group) + " 1");
}

void bring_loopback_up() {
    const int handle = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP | IFF_RUNNING;
    if (handle < 0 || ioctl(handle, SIOCSIFFLAGS, &request) != 0) fail("cannot bring the loopback up");
    close(handle);
}

sigset_t stop_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGCHLD, SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, number);
    return signals;
}

int exit_code(int status) {
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

[[noreturn]] void run_command(const ViewOptions &options, const sigset_t &mask) {
    sigprocmask(SIG_SETMASK, &mask, nullptr);
    personality(ADDR_NO_RANDOMIZE);
    setenv("PWD", "/tmp", 1);
    // The host's own ifconfig would be found in a sbin folder first.
    const char *path = getenv("PATH");
    setenv("PATH", (std::string("/usr/bin:") + (path != nullptr ? path : "/bin")).c_str(), 1);
    execvp(options.command[0], options.command);
    std::fprintf(stderr, "device-view: cannot start %s: %s\n", options.command[0], std::strerror(errno));
    _exit(kCannotStartCommand);
}

// Reaps everything that has ended; true, with its exit code, when `child` was among it.
bool reaped(pid_t child, int &code) {
    bool found = false;
    int status = 0;
    for (pid_t ended = waitpid(-1, &status, WNOHANG); ended > 0; ended = waitpid(-1, &status, WNOHANG)) {
        if (ended != child) continue;
        code = exit_code(status);
        found = true;
    }
    return found;
}

// Waits until `command` ends; SIGTERM (from the launcher alone) is passed to it and starts the grace time.
int watch_command(pid_t command) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGCHLD);
    sigaddset(&signals, SIGTERM);
    const timespec *patience = nullptr;
    for (;;) {
        const int number = sigtimedwait(&signals, nullptr, patience);
        int code = 0;
        if (reaped(command, code)) return code;
        if (number == SIGTERM) {
            if (patience != nullptr) return kKilled;
            patience = &kGrace;
            kill(command, SIGTERM);
        } else if (number < 0 && errno == EAGAIN) {
            return kKilled;
        }
    }
}

void wait_for_stop() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    while (sigwaitinfo(&signals, nullptr) != SIGTERM) {
    }
}

// Process 1. `launcher` is the reading end of a pipe that only the launcher can write: a byte comes when it
// has done its part; it hangs up when that dies.
int run_view(const ViewOptions &options, const sigset_t &mask, int launcher) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    // A new user namespace has cleared this; without it nobody could look into the view by /proc/PID/root.
    prctl(PR_SET_DUMPABLE, 1);
    char ready = 0;
    if (read(launcher, &ready, 1) != 1) return kKilled;
    mount_view(options.files);
    if (options.private_network) bring_loopback_up();
    if (chdir("/tmp") != 0) fail("cannot enter /tmp");
    const pid_t command = fork();
    if (command < 0) fail("cannot fork");
    if (command == 0) run_command(options, mask);
    const int code = watch_command(command);
    if (options.keep && code != kKilled) wait_for_stop();
    return code;
}

// Waits until process 1 ends; a first stop signal asks it to end the command, a second one kills it.
int watch_view(pid_t view) {
    const sigset_t signals = stop_signals();
    for (int stops = 0;;) {
        const int number = sigwaitinfo(&signals, nullptr);
        int code = 0;
        if (reaped(view, code)) return code;
        if (number > 0 && number != SIGCHLD) kill(view, stops++ == 0 ? SIGTERM : SIGKILL);
    }
}

int launch(ViewOptions options) {
    add_defaults(options);
    sigset_t mask;
    const sigset_t signals = stop_signals();
    sigprocmask(SIG_BLOCK, &signals, &mask);
    // Before the path can mean a file of the view.
    const int pid_file = options.pid_file.empty() ? -1 : open_to_write(options.pid_file.c_str());
    enter_namespaces(options.private_network);
    int alive[2];
    if (pipe2(alive, O_CLOEXEC) != 0) fail("cannot make a pipe");
    const pid_t view = fork();
    if (view < 0) fail("cannot fork");
    if (view == 0) {
        close(alive[1]);
        return run_view(options, mask, alive[0]);
    }
    // Before the command runs: whoever hears of it may look for the file.
    if (!options.pid_file.empty()) write_text(pid_file, options.pid_file.c_str(), std::to_string(view));
    if (write(alive[1], "", 1) != 1) fail("cannot start the view");
    if (options.keep) std::fprintf(stderr, "device-view: to enter: nsenter --all --target %d\n", view);
    return watch_view(view);
}

}  // namespace

int main(int, char **argv) {
    try {
        return launch(parse(argv + 1));
    } catch (const std::invalid_argument &error) {
        std::fprintf(stderr,
                     "device-view: %s\nusage: device-view [--net private|host] [--sd-megabytes N] [--bind "
                     "DIR]... [--keep] "
                     "-- command [argument...]\n",
                     error.what());
    } catch (const std::exception &error) {
        std::fprintf(stderr, "device-view: %s\n", error.what());
    }
    return kCannotBuildView;
}
