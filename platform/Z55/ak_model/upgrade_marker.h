// The upgrade marker: a file that holds the firmware version that ran when an upgrade began, so that the
// start after its reboot can tell whether the upgrade took. Any thread; each function blocks for the disk.
#ifndef Z55_AK_MODEL_UPGRADE_MARKER_H
#define Z55_AK_MODEL_UPGRADE_MARKER_H

#include <optional>
#include <string>

struct UpgradeMarker {
    std::string path;
    std::optional<std::string> version;  // its first line without line end; nothing when that cannot be read
};

// The marker's path from the configuration; "" when it is not set.
std::string upgrade_marker_path();

// The running firmware version without line ends; "" when it is unknown.
std::string running_firmware_version();

// Puts a marker that holds `version` at `path`, whole and durably. Returns false, errno set, when it could not
// be written.
[[nodiscard]] bool write_upgrade_marker(const std::string &path, const std::string &version);

// The marker at `path`; nothing when there is none. A link or a FIFO is none.
std::optional<UpgradeMarker> read_upgrade_marker(const std::string &path);

// Deletes the marker, durably. Returns false, errno set, when it cannot be deleted.
[[nodiscard]] bool remove_upgrade_marker(const UpgradeMarker &marker);

#endif
