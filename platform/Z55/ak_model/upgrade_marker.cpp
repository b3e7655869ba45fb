#include "upgrade_marker.h"

#include <mutex>

#include "../agent/utils/conf_file.h"
#include "../agent/utils/files.h"
#include "status_read.h"

namespace {

constexpr size_t kLongestMarker = 64 * 1024;  // bytes; a version is shorter by far
constexpr mode_t kMarkerMode = 0644;

// Two monitors may write at once.
constinit std::mutex lock;

std::string without_line_ends(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    return text;
}

std::optional<std::string> first_line(FILE *file) {
    std::string text(kLongestMarker, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file));
    if (text.empty()) return std::nullopt;
    return without_line_ends(text.substr(0, text.find('\n')).c_str());
}

bool is_folder(const std::string &path) {
    struct stat found {};
    return lstat(path.c_str(), &found) == 0 && S_ISDIR(found.st_mode);
}

// A folder is a marker whose line cannot be read.
std::optional<UpgradeMarker> read_marker(const std::string &path) {
    if (const File file = open_regular(path.c_str())) return UpgradeMarker{path, first_line(file.get())};
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
    return replace_file(path, version, kMarkerMode);
}

std::optional<UpgradeMarker> read_upgrade_marker(const std::string &path) {
    return read_marker(path);
}

bool remove_upgrade_marker(const UpgradeMarker &marker) {
    return remove_file(marker.path);
}
