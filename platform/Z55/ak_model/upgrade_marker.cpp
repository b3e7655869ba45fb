#include "upgrade_marker.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "../agent/utils/conf_file.h"
#include "status_read.h"

namespace {

std::string without_line_ends(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    return text;
}

std::optional<std::string> first_line(FILE *marker) {
    char *line = nullptr;
    size_t capacity = 0;
    const ssize_t length = getline(&line, &capacity, marker);
    std::optional<std::string> text;
    if (length >= 0) text = without_line_ends(line);
    std::free(line);
    return text;
}

}  // namespace

std::string upgrade_marker_path() {
    return conf_value("OTA_TMP_FILE").value_or("");
}

std::string running_firmware_version() {
    return without_line_ends(read_firmware_version().value_or(""));
}

bool write_upgrade_marker(const std::string &path) {
    FILE *marker = std::fopen(path.c_str(), "w+e");
    if (marker == nullptr) return false;
    std::fputs(running_firmware_version().c_str(), marker);
    std::fclose(marker);
    return true;
}

std::optional<UpgradeMarker> read_upgrade_marker(const std::string &path) {
    FILE *file = std::fopen(path.c_str(), "re");
    if (file == nullptr) return std::nullopt;
    UpgradeMarker marker{path, first_line(file)};
    std::fclose(file);
    return marker;
}

bool remove_upgrade_marker(const UpgradeMarker &marker) {
    return unlink(marker.path.c_str()) == 0;
}
