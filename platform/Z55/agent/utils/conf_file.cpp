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

namespace {

// Characters of one reading, line end included; what is longer is read as several.
constexpr size_t kLongestLine = 1022;
constexpr size_t kNumberSize = 16;  // of the buffer that a number is read into
constexpr char kWhiteSpace[] = " \t\n\r\v\f";

constinit std::mutex rewriting;  // held from reading a file to having replaced it

// One setting; the views last until the next reading.
struct Setting {
    std::string_view key, value;
};

// A text file's lines, read through a small block: what stands behind the line that is sought costs nothing.
class Lines {
  public:
    explicit Lines(const char *path) : file_(open(path, O_RDONLY | O_CLOEXEC)) {}
    ~Lines() {
        if (file_ >= 0) close(file_);
    }
    Lines(const Lines &) = delete;
    Lines &operator=(const Lines &) = delete;

    // Whether all that was asked for could be read.
    bool readable() const {
        return file_ >= 0 && !failed_;
    }

    // The next line that holds a setting; false at the end of the file.
    bool next(Setting &setting) {
        for (std::string_view line; next_line(line);) {
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
        size_t length = line_length();
        while (length == 0 && fill()) length = line_length();
        if (length == 0) length = end_ - begin_;  // the last line may lack its end
        line = {block_ + begin_, length};
        begin_ += length;
        return length > 0;
    }

    // Of the line that the block begins with; 0 while its end has not been read.
    size_t line_length() const {
        const size_t seen = std::min(end_ - begin_, kLongestLine);
        const void *line_end = std::memchr(block_ + begin_, '\n', seen);
        if (line_end != nullptr)
            return static_cast<size_t>(static_cast<const char *>(line_end) - block_) - begin_ + 1;
        return seen == kLongestLine ? seen : 0;
    }

    bool fill() {
        if (!readable()) return false;
        std::memmove(block_, block_ + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
        ssize_t count = -1;
        do {
            count = read(file_, block_ + end_, sizeof block_ - end_);
        } while (count < 0 && errno == EINTR);
        failed_ = count < 0;
        if (count > 0) end_ += static_cast<size_t>(count);
        return count > 0;
    }

    int file_;
    bool failed_ = false;
    size_t begin_ = 0, end_ = 0;  // of what has been read and not handed out
    char block_[2048];
};

std::optional<std::string> find_value(Lines &lines, std::string_view key) {
    for (Setting setting; lines.next(setting);) {
        if (setting.key == key) return std::string(setting.value);
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

// The file with only the first line with `key` changed; nothing when it cannot be read.
std::optional<NewText> rewritten(std::string_view key, std::string_view value, const char *path) {
    NewText result{"", false, false};
    Lines lines(path);
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

std::string resolved(const char *path) {
    char target[PATH_MAX];
    return realpath(path, target) != nullptr ? target : path;
}

// Opened for writing before anything is done: a file that may not be written stays as it is, one that is
// missing is created.
bool open_for_writing(const char *path, struct stat &now) {
    const int file = open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (file < 0) return false;
    const bool known = fstat(file, &now) == 0;
    close(file);
    return known;
}

bool rewrite(std::string_view key, std::string_view value, const char *path) {
    const std::lock_guard<std::mutex> lock(rewriting);
    struct stat now {};
    if (!open_for_writing(path, now)) return false;
    const auto result = rewritten(key, value, path);
    if (!result) return false;  // one that cannot be read would come out empty
    // While a camera cannot be reached the same value comes every few seconds: that must not wear the flash.
    // Without the key, the same length tells that there is nothing to drop.
    const bool same = result->found ? result->held : result->text.size() == static_cast<size_t>(now.st_size);
    return same || replace_file(resolved(path), result->text, 0666, &now);
}

}  // namespace

std::string_view trim_line(std::string_view line) {
    line = line.substr(0, line.find_last_not_of(kWhiteSpace) + 1);
    return line.substr(std::min(line.find_first_not_of(kWhiteSpace), line.size()));
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
    auto value = find_value(lines, key);
    if (!value && lines.readable()) value.emplace();
    return value;
}

std::optional<int> conf_number(std::string_view key, int if_missing) {
    Lines lines(kConfPath);
    const auto value = find_value(lines, key);
    if (value) return to_int(cut_to_buffer(*value, kNumberSize).c_str());
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
    if (value) std::memcpy(out, value->c_str(), value->size() + 1);
    return value || lines.readable() ? 0 : 1;
}
