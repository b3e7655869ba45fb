#include "encoder_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace desk {
namespace {

constexpr uint32_t kLongestFrame = 16 * 1024 * 1024;

// The environment without what is preloaded here: the encoder keeps the machine's time and may be of another
// architecture.
std::vector<char *> clean_environment() {
    std::vector<char *> kept;
    for (char **entry = environ; *entry != nullptr; entry++) {
        if (strncmp(*entry, "LD_PRELOAD=", 11) != 0) kept.push_back(*entry);
    }
    kept.push_back(nullptr);
    return kept;
}

// Empty signal mask, default handlers, /dev/null, `out`, our standard error, nothing else.
pid_t spawn_clean(const std::string &path, const std::string &profile, int out) {
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&files, out, 1);
    posix_spawn_file_actions_addclosefrom_np(&files, 3);
    char *arguments[] = {const_cast<char *>(path.c_str()), const_cast<char *>(profile.c_str()), nullptr};
    pid_t pid = -1;
    if (posix_spawn(&pid, path.c_str(), &files, &attributes, arguments, clean_environment().data()) != 0)
        pid = -1;
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
    return pid;
}

bool read_all(int fd, void *to, size_t length) {
    auto *at = static_cast<uint8_t *>(to);
    while (length != 0) {
        const ssize_t n = read(fd, at, length);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        at += n;
        length -= static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

EncoderProcess::EncoderProcess(const std::string &path, const std::string &profile) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    pid_ = spawn_clean(path, profile, ends[1]);
    close(ends[1]);
    out_ = ends[0];
}

EncoderProcess::~EncoderProcess() {
    if (out_ >= 0) close(out_);
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
}

bool EncoderProcess::read_frame(EncoderFrameHeader &header, std::vector<uint8_t> &data) {
    if (!read_all(out_, &header, sizeof header) || header.length > kLongestFrame) return false;
    data.resize(header.length);
    return read_all(out_, data.data(), data.size());
}

}  // namespace desk
