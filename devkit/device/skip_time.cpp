// bend-skip: moves the bent clocks of the processes that share BEND_FILE on while all their threads only
// sleep (README.md in this folder). One thread. It looks at the processes from outside: whoever could be
// about to do something keeps it from skipping.
#include <dirent.h>
#include <fcntl.h>
#include <linux/futex.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "bend_file.h"

namespace {

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int64_t kLookAgain = 300'000;  // real nanoseconds between two looks while nothing begins

struct Arguments {
    BendFile *file = nullptr;
    double speed = 1;
};

std::int64_t real_now() {
    timespec reading{};
    clock_gettime(CLOCK_MONOTONIC, &reading);
    return reading.tv_sec * kSecond + reading.tv_nsec;
}

// Reading of the bent monotonic clock.
std::int64_t bent_now(const Arguments &own) {
    const std::int64_t origin = __atomic_load_n(&own.file->origin_ns, __ATOMIC_ACQUIRE);
    return origin + static_cast<std::int64_t>(static_cast<double>(real_now() - origin) * own.speed) +
           __atomic_load_n(&own.file->skipped_ns, __ATOMIC_ACQUIRE);
}

// The files of /proc that tell of one thread, kept open.
struct ThreadFiles {
    int state = -1, children = -1, runs = -1;
    std::string seen = {};  // what `runs` held: how often it was given a processor, too
};

struct WatchedProcess {
    std::map<std::string, ThreadFiles> threads;
};

void close_files(const ThreadFiles &files) {
    close(files.state);
    close(files.children);
    close(files.runs);
}

// What the file holds now; empty when its thread has gone.
std::string reread(int file) {
    char text[512];
    const ssize_t length = pread(file, text, sizeof text, 0);
    return length > 0 ? std::string(text, static_cast<size_t>(length)) : std::string();
}

bool sleeps(const ThreadFiles &files) {
    const std::string state = reread(files.state);
    const size_t name_end = state.rfind(')');
    return name_end != std::string::npos && name_end + 2 < state.size() && state[name_end + 2] == 'S';
}

bool has_child(const ThreadFiles &files) {
    return !reread(files.children).empty();
}

bool only_waits(ThreadFiles &files) {
    files.seen = reread(files.runs);
    return sleeps(files) && !has_child(files);
}

// Whether it has slept ever since only_waits.
bool still_waits(const ThreadFiles &files) {
    return sleeps(files) && reread(files.runs) == files.seen;
}

// Opens the files of the threads that have come, closes those of the threads that have gone. False where the
// process has gone.
bool look_at_threads(pid_t pid, WatchedProcess &process) {
    const std::string folder = "/proc/" + std::to_string(pid) + "/task";
    DIR *tasks = opendir(folder.c_str());
    if (tasks == nullptr) return false;
    std::map<std::string, ThreadFiles> present;
    for (const dirent *entry = readdir(tasks); entry != nullptr; entry = readdir(tasks)) {
        if (entry->d_name[0] == '.') continue;
        const auto known = process.threads.find(entry->d_name);
        if (known != process.threads.end()) {
            present.insert(process.threads.extract(known));
            continue;
        }
        const std::string own = folder + "/" + entry->d_name;
        present[entry->d_name] = {open((own + "/stat").c_str(), O_RDONLY | O_CLOEXEC),
                                  open((own + "/children").c_str(), O_RDONLY | O_CLOEXEC),
                                  open((own + "/schedstat").c_str(), O_RDONLY | O_CLOEXEC)};
    }
    closedir(tasks);
    for (const auto &[name, files] : process.threads) close_files(files);
    process.threads = std::move(present);
    return true;
}

// Whether every thread of the process waits and none has a child.
bool is_quiet(pid_t pid, WatchedProcess &process) {
    auto &threads = process.threads;
    return look_at_threads(pid, process) && std::all_of(threads.begin(), threads.end(), [](auto &thread) {
               return only_waits(thread.second);
           });
}

// Whether none has run since is_quiet.
bool is_still_quiet(const WatchedProcess &process) {
    const auto &threads = process.threads;
    return std::all_of(threads.begin(), threads.end(),
                       [](const auto &thread) { return still_waits(thread.second); });
}

// Whether no thread of a server has a child: the camera's reboot tool ends the agent before more time may
// pass.
bool has_no_child(pid_t pid, WatchedProcess &process) {
    return look_at_threads(pid, process) &&
           std::none_of(process.threads.begin(), process.threads.end(),
                        [](const auto &thread) { return has_child(thread.second); });
}

class Watch {
  public:
    explicit Watch(const Arguments &own) : own_(own) {}

    // Whether everybody only sleeps.
    bool all_quiet() {
        const std::vector<pid_t> pids = living();
        if (std::all_of(pids.begin(), pids.end(), [this](pid_t pid) { return serves(pid); })) return false;
        for (auto known = processes_.begin(); known != processes_.end();) {
            const bool lives = std::find(pids.begin(), pids.end(), known->first) != pids.end();
            if (!lives)
                for (const auto &[name, files] : known->second.threads) close_files(files);
            known = lives ? std::next(known) : processes_.erase(known);
        }
        return std::all_of(pids.begin(), pids.end(), [&](pid_t pid) {
            WatchedProcess &process = processes_[pid];
            return serves(pid) ? has_no_child(pid, process) : is_quiet(pid, process);
        });
    }

    // Whether that has been so ever since all_quiet: one that was looked at first may have been woken
    // meanwhile, by another or by its time.
    bool still_quiet() const {
        return std::all_of(processes_.begin(), processes_.end(), [this](const auto &known) {
            return serves(known.first) || is_still_quiet(known.second);
        });
    }

    // The processes that are there. What the others left in the table is taken out.
    std::vector<pid_t> living() const {
        std::vector<pid_t> pids;
        for (BendProcess &process : begun()) {
            const pid_t pid = __atomic_load_n(&process.pid, __ATOMIC_ACQUIRE);
            if (pid == 0) continue;
            if (kill(pid, 0) == 0) {
                if (std::find(pids.begin(), pids.end(), pid) == pids.end()) pids.push_back(pid);
            } else {
                forget(pid);
                __atomic_store_n(&process.pid, 0, __ATOMIC_RELEASE);
            }
        }
        return pids;
    }

  private:
    bool serves(pid_t pid) const {
        const auto processes = begun();
        return std::any_of(processes.begin(), processes.end(), [pid](const BendProcess &process) {
            return process.pid == pid && process.serves != 0;
        });
    }

    // The places of the table that were ever taken.
    std::span<BendProcess> begun() const {
        const std::uint32_t count = __atomic_load_n(&own_.file->processes_begun, __ATOMIC_ACQUIRE);
        return {own_.file->processes, std::min<size_t>(count, kBendProcesses)};
    }

    // What a process that has ended left in the table.
    void forget(pid_t pid) const {
        for (BendWait &wait : own_.file->waits) {
            if (__atomic_load_n(&wait.pid, __ATOMIC_ACQUIRE) != pid) continue;
            __atomic_store_n(&wait.sleeps, 0, __ATOMIC_RELEASE);
            __atomic_store_n(&wait.pid, 0, __ATOMIC_RELEASE);
        }
    }

    const Arguments &own_;
    std::map<pid_t, WatchedProcess> processes_;
};

// The reading up to which may be skipped, 0 where somebody waits for a peer or should be awake, and where
// nobody sleeps until a moment: a thread that the kernel took the processor from at the start of a wait looks
// asleep.
std::int64_t first_deadline(const Arguments &own, std::int64_t now) {
    std::int64_t first = __atomic_load_n(&own.file->skip_limit_ns, __ATOMIC_ACQUIRE);
    bool told = false;
    for (const BendWait &wait : own.file->waits) {
        if (__atomic_load_n(&wait.pid, __ATOMIC_ACQUIRE) == 0) continue;
        if (__atomic_load_n(&wait.sleeps, __ATOMIC_ACQUIRE) == 0) return 0;
        first = std::min(first, __atomic_load_n(&wait.deadline_ns, __ATOMIC_RELAXED));
        told = true;
    }
    return told && first > now ? first : 0;
}

void skip(const Arguments &own, std::int64_t length) {
    __atomic_add_fetch(&own.file->skipped_ns, length, __ATOMIC_ACQ_REL);
    __atomic_add_fetch(&own.file->changes, 1, __ATOMIC_ACQ_REL);
    syscall(SYS_futex, &own.file->changes, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

// Whom a peer or its own time wakes waits at the gate while it is closed, before it reads a clock.
void set_gate(const Arguments &own, std::uint32_t closed) {
    __atomic_store_n(&own.file->gate, closed, __ATOMIC_SEQ_CST);
    if (closed == 0) syscall(SYS_futex, &own.file->gate, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

// Skips to the first deadline unless somebody has begun to do something since `begun` waits were told and
// everybody was quiet. False where a deadline has come by itself or somebody waits for a peer.
bool skip_if_still_quiet(const Arguments &own, const Watch &everybody, std::uint32_t begun) {
    set_gate(own, 1);
    const std::int64_t now = bent_now(own), target = first_deadline(own, now);
    const bool same = __atomic_load_n(&own.file->waits_begun, __ATOMIC_ACQUIRE) == begun;
    if (target > 0 && same && everybody.still_quiet()) skip(own, target - now);
    set_gate(own, 0);
    return target > 0;
}

[[noreturn]] void skip_for_ever(const Arguments &own) {
    Watch everybody(own);
    const timespec pause{0, kLookAgain};
    for (;;) {
        const std::uint32_t begun = __atomic_load_n(&own.file->waits_begun, __ATOMIC_ACQUIRE);
        if (first_deadline(own, bent_now(own)) > 0 && everybody.all_quiet()) {
            if (skip_if_still_quiet(own, everybody, begun)) continue;
        } else {
            everybody.living();
        }
        syscall(SYS_futex, &own.file->waits_begun, FUTEX_WAIT, begun, &pause, nullptr, 0);
    }
}

int usage() {
    std::fputs("usage: BEND_FILE=FILE BEND_SPEED=X bend-skip\n", stderr);
    return 2;
}

}  // namespace

int main(int count, char **) {
    const char *path = std::getenv("BEND_FILE"), *speed = std::getenv("BEND_SPEED");
    Arguments own;
    if (path == nullptr || speed == nullptr || count > 1) return usage();
    own.speed = std::atof(speed);
    own.file = map_bend_file(path);
    if (own.file == nullptr) {
        std::perror(path);
        return 1;
    }
    skip_for_ever(own);
}
