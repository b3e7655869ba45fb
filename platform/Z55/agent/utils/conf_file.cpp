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
#include <memory>
#include <mutex>

#include "../../exports.h"

namespace {

constexpr int kReadLimit = 1023;  // bytes per read, terminator included; a longer line is read as several
constexpr char kWhiteSpace[] = " \t\n\r\v\f";

constinit std::mutex rewriting;  // held from reading a file to having replaced it

using File = std::unique_ptr<FILE, int (*)(FILE *)>;

// The next line that holds a setting; false at the end of the file.
bool next_pair(FILE *file, conf_pair &pair) {
    char buffer[kReadLimit + 1];
    while (std::fgets(buffer, kReadLimit, file) != nullptr) {
        std::string line = buffer;
        trim_line(line);
        const size_t equals = line.find('=');
        if (line.empty() || line[0] == '#' || equals == std::string::npos) continue;
        pair.key = line.substr(0, equals);
        pair.value = line.substr(equals + 1);
        return true;
    }
    return false;
}

bool write_all(int file, const std::string &text) {
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = write(file, text.data() + done, text.size() - done);
        if (count < 0 && errno != EINTR) return false;
        if (count > 0) done += static_cast<size_t>(count);
    }
    return fsync(file) == 0 || errno == EINVAL;
}

// A rename that is not in the folder's own record is lost with the power.
void sync_folder_of(const std::string &path) {
    const int folder = open(path.substr(0, path.rfind('/') + 1).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0) return;
    fsync(folder);
    close(folder);
}

enum class Replaced { done, not_possible, disk_failed };

// Writes `text` to a temporary file beside `path` with the mode and owner of `old` and renames it over
// `path`.
Replaced replace_file(const std::string &path, const struct stat &old, const std::string &text) {
    std::string temporary = path + ".XXXXXX";
    const int file = mkostemp(temporary.data(), O_CLOEXEC);
    if (file < 0) return Replaced::not_possible;
    Replaced result = Replaced::not_possible;
    if (fchown(file, old.st_uid, old.st_gid) == 0 && fchmod(file, old.st_mode & 07777) == 0) {
        if (!write_all(file, text)) {
            result = Replaced::disk_failed;
        } else if (std::rename(temporary.c_str(), path.c_str()) == 0) {
            result = Replaced::done;
        }
    }
    close(file);
    if (result == Replaced::done) {
        sync_folder_of(path);
    } else {
        unlink(temporary.c_str());
    }
    return result;
}

// The length is set last: what a full disk refuses must not cost the entries that are there already.
bool overwrite_in_place(int file, const std::string &text) {
    return write_all(file, text) && ftruncate(file, static_cast<off_t>(text.size())) == 0;
}

// `value` as a line with `key` can hold it: it brings no line end of its own, and the line is read in one
// piece.
std::string_view storable(std::string_view key, std::string_view value) {
    const size_t room = kReadLimit - 1 - std::min<size_t>(key.size() + 2, kReadLimit - 1);
    return value.substr(0, std::min(room, value.find_first_of("\r\n")));
}

// The file's new text: only the first line with `key` changes.
std::string rewritten(std::vector<conf_pair> pairs, std::string_view key, std::string_view value) {
    const auto pair =
        std::find_if(pairs.begin(), pairs.end(), [&](const conf_pair &p) { return p.key == key; });
    if (pair != pairs.end()) pair->value = storable(key, value);
    std::string text;
    for (const conf_pair &p : pairs) text += p.key + "=" + p.value + "\n";
    return text;
}

std::string resolved(const char *path) {
    char target[PATH_MAX];
    return realpath(path, target) != nullptr ? target : path;
}

}  // namespace

std::string &trim_line(std::string &line) {
    line.erase(line.find_last_not_of(kWhiteSpace) + 1);
    line.erase(0, line.find_first_not_of(kWhiteSpace));
    return line;
}

std::optional<std::vector<conf_pair>> read_conf_pairs(const char *path) {
    const File file(std::fopen(path, "re"), std::fclose);
    if (!file) return std::nullopt;
    std::vector<conf_pair> pairs;
    for (conf_pair pair; next_pair(file.get(), pair);) pairs.push_back(pair);
    if (std::ferror(file.get()) != 0) return std::nullopt;
    return pairs;
}

std::optional<std::string> conf_value(std::string_view key, const char *path) {
    const auto pairs = read_conf_pairs(path);
    if (!pairs) return std::nullopt;
    for (const conf_pair &pair : *pairs) {
        if (pair.key == key) return pair.value;
    }
    return std::string();
}

std::optional<int> conf_number(std::string_view key) {
    char text[16];
    if (!conf_value_into(text, key)) return std::nullopt;
    return to_int(text);
}

int write_conf_value(std::string_view key, std::string_view value, const char *path) {
    const std::lock_guard<std::mutex> lock(rewriting);
    // Opened before anything is done: a file that may not be written stays as it is, one that is missing is
    // created.
    const int file = open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (file < 0) return 1;
    const auto pairs = read_conf_pairs(path);
    struct stat old {};
    bool done = false;
    if (pairs && fstat(file, &old) == 0) {  // one that cannot be read would come out empty
        const std::string text = rewritten(*pairs, key, value);
        const Replaced replaced = replace_file(resolved(path), old, text);
        done = replaced == Replaced::done ||
               (replaced == Replaced::not_possible && overwrite_in_place(file, text));
    }
    close(file);
    return done ? 0 : 1;
}

int read_conf_value(const char *key, char *out, const char *path) {
    if (key == nullptr || out == nullptr || path == nullptr) return 1;
    const auto pairs = read_conf_pairs(path);
    if (!pairs) return 1;
    for (const conf_pair &pair : *pairs) {
        if (pair.key != key) continue;
        std::memcpy(out, pair.value.c_str(), pair.value.size() + 1);
        break;
    }
    return 0;
}
