#include "shell_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "os.h"

namespace {

constexpr int kAttempts = 5;  // against somebody who makes the file again and again
constexpr size_t kMostText = 65536;

int create_anew(const char *path) {
    int file = -1;
    for (int attempt = 0; file < 0 && attempt < kAttempts; attempt++) {
        unlink(path);
        file = open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    }
    return file;
}

// Whether it could be read, as far as it is taken.
bool read_text(int file, std::string &text) {
    char piece[1024];
    while (text.size() < kMostText) {
        const ssize_t count = read(file, piece, sizeof piece);
        if (count == 0) break;
        if (count < 0 && errno != EINTR) return false;
        if (count > 0) text.append(piece, static_cast<size_t>(count));
    }
    return true;
}

void tell(const char *path) {
    std::printf("shell output not read, %s:%s\n", path, std::strerror(errno));
}

}  // namespace

// It is read through the descriptor that made it: whatever may stand at the path by then is not looked at.
std::optional<std::string> shell_file_text(const char *command, const char *path, bool *answered) {
    const int file = create_anew(path);
    if (file < 0) {
        if (errno != EEXIST) tell(path);  // what somebody else keeps there is no failure of the agent's
        return std::nullopt;
    }
    std::string text;
    const bool ran = run_shell(command) == 0;
    const bool read = ran && read_text(file, text);
    if (ran && !read) tell(path);
    if (answered != nullptr) *answered = read;
    close(file);
    return text;
}
