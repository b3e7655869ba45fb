// supervise: keeps the agent running inside a device view (README.md in this folder). One thread: it copies
// what the agent prints and waits for its end in one poll loop.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

namespace {

constexpr char kPidFile[] = "/tmp/.device/agent.pid";
constexpr char kRebootsFile[] = "/tmp/.device/reboots";
constexpr char kExitsFile[] = "/tmp/.device/exits";
constexpr char kCallsFile[] = "/tmp/.device/calls";
constexpr int kBootMilliseconds = 200;   // what a start of the device takes here
constexpr int kStopMilliseconds = 2000;  // that the agent is given to end after SIGTERM
constexpr int kUsage = 2;
constexpr int kCannotStart = 127;

struct Supervisor {
    bool respawn = false;
    char **command = nullptr;
    int log = -1;      // descriptor of the agent log, -1 without one
    int signals = -1;  // SIGCHLD, SIGTERM and SIGINT arrive here
};

struct Agent {
    pid_t pid = -1;
    int output = -1;                // reading end of its standard output and standard error
    std::streamoff first_call = 0;  // where the tools' calls of its time begin: pids come back
};

void write_all(int file, const char *data, size_t length) {
    while (length > 0) {
        const ssize_t written = write(file, data, length);
        if (written < 0 && errno != EINTR) return;
        if (written < 0) continue;
        data += written;
        length -= static_cast<size_t>(written);
    }
}

void print(const Supervisor &own, const char *data, size_t length) {
    write_all(STDOUT_FILENO, data, length);
    if (own.log >= 0) write_all(own.log, data, length);
}

void report(const Supervisor &own, const std::string &text) {
    const std::string line = "supervise: " + text + "\n";
    print(own, line.data(), line.size());
}

// Replaced whole, so that a reader never sees half a number.
void write_number(const char *path, long number) {
    const std::string temporary = std::string(path) + ".new";
    std::ofstream(temporary) << number << '\n';
    std::rename(temporary.c_str(), path);
}

long read_number(const char *path) {
    long number = 0;
    std::ifstream(path) >> number;
    return number;
}

void append_exit(pid_t pid, int status) {
    std::ofstream(kExitsFile, std::ios::app)
        << "{\"pid\":" << pid << ",\"exit\":" << (WIFEXITED(status) ? WEXITSTATUS(status) : 0)
        << ",\"signal\":" << (WIFSIGNALED(status) ? WTERMSIG(status) : 0) << "}\n";
}

std::streamoff size_of_calls() {
    std::ifstream calls(kCallsFile, std::ios::ate);
    return calls ? static_cast<std::streamoff>(calls.tellg()) : 0;
}

// The reboot tool takes the place of the agent and succeeds, or kills it.
bool ended_by_reboot(const Agent &ended, int status) {
    const bool replaced = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    const bool killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    const std::string tool = "{\"tool\":\"qmx_reboot\"",
                      caller = "\"pid\":" + std::to_string(ended.pid) + ",";
    std::ifstream calls(kCallsFile);
    calls.seekg(ended.first_call <= size_of_calls() ? ended.first_call : 0);
    for (std::string line; std::getline(calls, line);) {
        if (line.rfind(tool, 0) != 0) continue;
        const bool by_agent = line.find(caller) != std::string::npos;
        if (by_agent ? replaced : killed) return true;
    }
    return false;
}

[[noreturn]] void become_agent(const Supervisor &own, int output) {
    setpgid(0, 0);
    write_number(kPidFile, getpid());
    // As from init, whatever we inherited: nothing is ignored, nothing blocked.
    for (int number = 1; number < SIGRTMIN; ++number) signal(number, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    if (chdir("/tmp") == 0) execvp(own.command[0], own.command);
    std::fprintf(stderr, "supervise: cannot start %s: %s\n", own.command[0], std::strerror(errno));
    _exit(kCannotStart);
}

Agent start_agent(const Supervisor &own) {
    int ends[2];
    Agent started;
    started.first_call = size_of_calls();
    if (pipe2(ends, O_CLOEXEC) != 0 || (started.pid = fork()) < 0) {
        std::perror("supervise: cannot start the agent");
        std::exit(kCannotStart);
    }
    if (started.pid == 0) become_agent(own, ends[1]);
    setpgid(started.pid, started.pid);
    close(ends[1]);
    fcntl(ends[0], F_SETFL, O_NONBLOCK);
    started.output = ends[0];
    return started;
}

// Copies what there is. False at the end of the output.
bool copy_output(const Supervisor &own, int output) {
    char piece[4096];
    for (;;) {
        const ssize_t length = read(output, piece, sizeof piece);
        if (length == 0) return false;
        if (length < 0) return errno == EAGAIN || errno == EINTR;
        print(own, piece, static_cast<size_t>(length));
    }
}

// Copies the agent's output until it ends; true with its wait status. False when `stop` was asked for
// meanwhile.
bool watch_agent(const Supervisor &own, Agent &running, int &status) {
    pollfd files[] = {{own.signals, POLLIN, 0}, {running.output, POLLIN, 0}};
    for (;;) {
        poll(files, 2, -1);
        // A pipe at its end is always readable; a negative descriptor is not looked at.
        if (files[1].revents != 0 && !copy_output(own, running.output)) files[1].fd = -1;
        signalfd_siginfo signal{};
        if (read(own.signals, &signal, sizeof signal) != sizeof signal) continue;
        if (signal.ssi_signo != SIGCHLD) return false;
        if (waitpid(running.pid, &status, WNOHANG) == running.pid) break;
    }
    kill(-running.pid, SIGKILL);  // what it leaves behind ends with it
    copy_output(own, running.output);
    close(running.output);
    return true;
}

void stop_agent(const Supervisor &own, const Agent &running) {
    kill(-running.pid, SIGTERM);
    pollfd output = {running.output, POLLIN, 0};
    while (poll(&output, 1, kStopMilliseconds) > 0 && copy_output(own, running.output)) {
    }
    kill(-running.pid, SIGKILL);
    waitpid(running.pid, nullptr, 0);
}

// False when a signal to stop came before the time was over.
bool wait_for_boot(const Supervisor &own) {
    pollfd file = {own.signals, POLLIN, 0};
    signalfd_siginfo signal{};
    while (poll(&file, 1, kBootMilliseconds) > 0) {
        if (read(own.signals, &signal, sizeof signal) == sizeof signal && signal.ssi_signo != SIGCHLD)
            return false;
    }
    return true;
}

std::string describe(int status) {
    if (!WIFSIGNALED(status)) return "ended with exit code " + std::to_string(WEXITSTATUS(status));
    return "was ended by signal " + std::to_string(WTERMSIG(status)) + " (" + strsignal(WTERMSIG(status)) +
           ")";
}

int supervise(const Supervisor &own) {
    for (;;) {
        Agent running = start_agent(own);
        int status = 0;
        if (!watch_agent(own, running, status)) {
            stop_agent(own, running);
            return 0;
        }
        if (ended_by_reboot(running, status)) {
            const long reboots = read_number(kRebootsFile) + 1;
            write_number(kRebootsFile, reboots);
            report(own, "the agent rebooted the device (" + std::to_string(reboots) + ")");
        } else {
            append_exit(running.pid, status);
            report(own, "the agent " + describe(status));
            if (!own.respawn) return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
        }
        if (!wait_for_boot(own)) return 0;
    }
}

bool parse(char **argument, Supervisor &own) {
    for (; *argument != nullptr && std::strcmp(*argument, "--") != 0; ++argument) {
        if (std::strcmp(*argument, "--respawn") == 0) {
            own.respawn = true;
        } else if (std::strcmp(*argument, "--agent-log") == 0 && argument[1] != nullptr) {
            own.log = open(*++argument, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
            if (own.log < 0) std::perror(*argument);
        } else {
            return false;
        }
    }
    if (*argument == nullptr || argument[1] == nullptr) return false;
    own.command = argument + 1;
    return true;
}

}  // namespace

int main(int, char **arguments) {
    Supervisor own;
    if (!parse(arguments + 1, own)) {
        std::fputs("usage: supervise [--agent-log FILE] [--respawn] -- agent-command...\n", stderr);
        return kUsage;
    }
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGCHLD, SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, number);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    own.signals = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    // A reader of our output that went away must not end the agent.
    signal(SIGPIPE, SIG_IGN);
    write_number(kRebootsFile, read_number(kRebootsFile));
    return supervise(own);
}
