#include "upgrade_marker.h"

#include <sys/stat.h>

#include <cstdio>
#include <memory>
#include <mutex>
#include <string_view>
#include <utility>

#include "../agent/utils/conf_file.h"
#include "../agent/utils/files.h"
#include "status_read.h"

namespace {

constexpr size_t kLongestMarker = 64 * 1024;  // bytes; a version is shorter by far
constexpr mode_t kMarkerMode = 0644;

// Guards all below and what stands at the path, from looking at it to changing it. It is not the file's
// identity that says whose it is: FAT gives one file several inode numbers.
constinit std::mutex lock;
constinit bool ours = false;                  // this process has written a marker
constinit bool taken = false;                 // what was left has been looked at
constinit UpgradeMarker *replaced = nullptr;  // what was left, not looked at when ours replaced it

std::string without_line_ends(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    return text;
}

std::optional<std::string> first_line(FILE *file, const std::string &path) {
    const auto text = read_stream(file, path.c_str(), kLongestMarker);
    if (!text || text->empty()) return std::nullopt;
    return without_line_ends(text->substr(0, text->find_first_of(std::string_view("\n\0", 2))));
}

bool is_folder(const std::string &path) {
    struct stat found {};
    return lstat(path.c_str(), &found) == 0 && S_ISDIR(found.st_mode);
}

// A folder is a marker whose line cannot be read.
std::optional<UpgradeMarker> read_marker(const std::string &path) {
    if (const File file = open_regular(path.c_str()))
        return UpgradeMarker{path, first_line(file.get(), path)};
    if (is_folder(path)) return UpgradeMarker{path, std::nullopt};
    return std::nullopt;
}

}  // namespace

std::string upgrade_marker_path() {
    return conf_value("OTA_TMP_FILE").value_or("");
}

std::string running_firmware_version() {
    return without_line_ends(read_firmware_version().value_or(""));
}

bool write_upgrade_marker(const std::string &path, const std::string &version) {
    const std::lock_guard<std::mutex> guard(lock);
    std::optional<UpgradeMarker> left;
    if (!ours && !taken) left = read_marker(path);
    if (!replace_file(path, version, kMarkerMode)) return false;
    if (left) replaced = new UpgradeMarker(*std::move(left));
    ours = true;
    return true;
}

std::optional<UpgradeMarker> take_left_marker(const std::string &path) {
    const std::lock_guard<std::mutex> guard(lock);
    taken = true;
    if (!ours) return read_marker(path);
    const std::unique_ptr<UpgradeMarker> left(std::exchange(replaced, nullptr));
    return left ? std::optional(*left) : std::nullopt;
}

Forgotten forget_left_marker(const UpgradeMarker &marker) {
    const std::lock_guard<std::mutex> guard(lock);
    if (ours) return Forgotten::replaced_by_ours;
    return remove_file(marker.path) ? Forgotten::deleted : Forgotten::failed;
}
