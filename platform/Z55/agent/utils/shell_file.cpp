#include "shell_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

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

std::string text_of(int file) {
    std::string text;
    char piece[1024];
    while (text.size() < kMostText) {
        const ssize_t count = read(file, piece, sizeof piece);
        if (count == 0 || (count < 0 && errno != EINTR)) break;
        if (count > 0) text.append(piece, static_cast<size_t>(count));
    }
    return text;
}

}  // namespace

// It is read through the descriptor that made it: whatever may stand at the path by then is not looked at.
std::optional<std::string> shell_file_text(const char *command, const char *path) {
    const int file = create_anew(path);
    if (file < 0) return std::nullopt;
    std::string text;
    if (run_shell(command) == 0) text = text_of(file);
    close(file);
    return text;
}
