#include "conf_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "../../exports.h"
#include "files.h"
#include "text.h"

namespace {

// Characters of one reading, line end included; what is longer is read as several.
constexpr size_t kLongestLine = 1022;
constexpr size_t kNumberSize = 16;  // of the buffer that a number is read into

constinit std::mutex rewriting;  // held from reading a file to having replaced it

constexpr bool is_white(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

std::string_view without_indent(std::string_view line) {
    while (!line.empty() && is_white(line.front())) line.remove_prefix(1);
    return line;
}

// The first character decides nearly always, without a call.
bool begins_with(std::string_view line, std::string_view beginning) {
    if (beginning.empty()) return true;
    return !line.empty() && line[0] == beginning[0] && line.starts_with(beginning);
}

// One setting; the views last until the next reading.
struct Setting {
    std::string_view key, value;
};

// A text file's lines, read through a small block: what stands behind the line that is sought costs nothing.
class Lines {
  public:
    // A file that `flags` ask for and that is missing is created as open as the mask allows. Whoever wants to
    // write tells himself.
    explicit Lines(const char *path, int flags = O_RDONLY)
        : path_(path), file_(open(path, flags | O_CLOEXEC, 0666)) {
        if (file_ < 0 && flags == O_RDONLY && errno != ENOENT) tell();
    }
    // errno stays what the reading left.
    ~Lines() {
        if (file_ < 0) return;
        const int error = errno;
        close(file_);
        errno = error;
    }
    Lines(const Lines &) = delete;
    Lines &operator=(const Lines &) = delete;

    bool stat(struct stat &now) const {
        return file_ >= 0 && fstat(file_, &now) == 0;
    }

    // Whether all that was asked for could be read.
    bool readable() const {
        return file_ >= 0 && !failed_;
    }

    // The next setting whose line begins with `beginning`; false at the end of the file. Other lines are
    // passed over without a closer look.
    bool next(Setting &setting, std::string_view beginning = {}) {
        for (std::string_view line; next_line(line);) {
            if (!begins_with(without_indent(line), beginning)) continue;
            line = trim_line(line.substr(0, line.find('\0')));
            const size_t equals = line.find('=');
            if (line.empty() || line[0] == '#' || equals == std::string_view::npos) continue;
            setting = {line.substr(0, equals), line.substr(equals + 1)};
            return true;
        }
        return false;
    }

  private:
    bool next_line(std::string_view &line) {
        const char *line_end = end_of_line();
        while (line_end == nullptr && fill()) line_end = end_of_line();
        if (line_end == nullptr) line_end = end_;  // the last line may lack its end
        line = {begin_, static_cast<size_t>(line_end - begin_)};
        begin_ = line_end;
        return !line.empty();
    }

    // Of the line that begins what has been read; null while that does not hold it.
    const char *end_of_line() const {
        const size_t seen = std::min(static_cast<size_t>(end_ - begin_), kLongestLine);
        const void *line_end = std::memchr(begin_, '\n', seen);
        if (line_end != nullptr) return static_cast<const char *>(line_end) + 1;
        return seen == kLongestLine ? begin_ + seen : nullptr;
    }

    bool fill() {
        if (!readable()) return false;
        const size_t kept = static_cast<size_t>(end_ - begin_);
        std::memmove(block_, begin_, kept);
        ssize_t count = -1;
        do {
            count = read(file_, block_ + kept, sizeof block_ - kept);
        } while (count < 0 && errno == EINTR);
        failed_ = count < 0;
        if (failed_) tell();
        begin_ = block_;
        end_ = block_ + kept + std::max<ssize_t>(count, 0);
        return count > 0;
    }

    void tell() const {
        const int error = errno;
        std::printf("configuration not read, %s:%s\n", path_, std::strerror(error));
        errno = error;
    }

    const char *path_;
    int file_;
    bool failed_ = false;
    const char *begin_ = block_, *end_ = block_;  // of what has been read and not handed out
    char block_[2048];
};

// The value of the first line with `key`, valid as long as `lines` is.
std::optional<std::string_view> find_value(Lines &lines, std::string_view key) {
    for (Setting setting; lines.next(setting, key);) {
        if (setting.key == key) return setting.value;
    }
    return std::nullopt;
}

// `value` as a line with `key` can hold it: it brings no line end of its own, and the line is read in one
// piece.
std::string_view storable(std::string_view key, std::string_view value) {
    const size_t room = kLongestLine - std::min(key.size() + 2, kLongestLine);
    return value.substr(0, std::min(room, value.find_first_of("\r\n")));
}

struct NewText {
    std::string text;
    bool found, held;  // whether the file has the key, and with this value
};

// The file, which is `now`, with only the first line with `key` changed; nothing when it cannot be read or
// may not be written. It is created where it is missing.
std::optional<NewText> rewritten(std::string_view key, std::string_view value, const char *path,
                                 struct stat &now) {
    Lines lines(path, O_RDWR | O_CREAT);
    if (!lines.stat(now)) return std::nullopt;
    NewText result{"", false, false};
    result.text.reserve(static_cast<size_t>(now.st_size) + value.size() + 1);
    for (Setting setting; lines.next(setting);) {
        if (!result.found && setting.key == key) {
            result.found = true;
            result.held = setting.value == value;
            setting.value = value;
        }
        result.text.append(setting.key).append("=").append(setting.value).append("\n");
    }
    if (!lines.readable()) return std::nullopt;
    return result;
}

// What is to be replaced: where `path` is a symbolic link, its target.
std::string resolved(const char *path) {
    char target[PATH_MAX];
    const bool link = readlink(path, target, sizeof target) >= 0;
    return link && realpath(path, target) != nullptr ? target : path;
}

bool rewrite(std::string_view key, std::string_view value, const char *path) {
    const std::lock_guard<std::mutex> lock(rewriting);
    struct stat now {};
    const auto result = rewritten(key, value, path, now);
    if (!result) return false;  // one that cannot be read would come out empty
    // While a camera cannot be reached the same value comes every few seconds: that must not wear the flash.
    // Without the key, the same length tells that there is nothing to drop.
    const bool same = result->found ? result->held : result->text.size() == static_cast<size_t>(now.st_size);
    return same || replace_file(resolved(path), result->text, 0666, &now);
}

}  // namespace

std::string_view trim_line(std::string_view line) {
    while (!line.empty() && is_white(line.back())) line.remove_suffix(1);
    return without_indent(line);
}

std::optional<std::vector<conf_pair>> read_conf_pairs(const char *path) {
    Lines lines(path);
    std::vector<conf_pair> pairs;
    for (Setting setting; lines.next(setting);) {
        pairs.push_back({std::string(setting.key), std::string(setting.value)});
    }
    if (!lines.readable()) return std::nullopt;
    return pairs;
}

std::optional<std::string> conf_value(std::string_view key, const char *path) {
    Lines lines(path);
    const auto value = find_value(lines, key);
    if (!value && !lines.readable()) return std::nullopt;
    return std::optional<std::string>(std::in_place, value.value_or(""));
}

bool conf_value_into(char *out, size_t size, std::string_view key) {
    Lines lines(kConfPath);
    const auto value = find_value(lines, key);
    copy_text(out, size, value.value_or(""));
    return value || lines.readable();
}

std::optional<int> conf_number(std::string_view key, int if_missing) {
    Lines lines(kConfPath);
    if (const auto value = find_value(lines, key)) {
        char digits[kNumberSize];
        copy_text(digits, *value);
        return to_int(digits);
    }
    if (!lines.readable()) return std::nullopt;
    return if_missing;
}

int write_conf_value(std::string_view key, std::string_view value, const char *path) {
    if (rewrite(key, storable(key, value), path)) return 0;
    std::printf("write_conf_value failed: key = %.*s, %s\n", static_cast<int>(key.size()), key.data(),
                std::strerror(errno));
    return 1;
}

int read_conf_value(const char *key, char *out, const char *path) {
    if (key == nullptr || out == nullptr || path == nullptr) return 1;
    Lines lines(path);
    const auto value = find_value(lines, key);
    if (value) copy_text(out, value->size() + 1, *value);
    return value || lines.readable() ? 0 : 1;
}
