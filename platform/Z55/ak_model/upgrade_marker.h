// The upgrade marker: a file that holds the firmware version that ran when an upgrade began, so that the
// start after its reboot can tell whether the upgrade took. Monitors write it, the start checks settle it;
// any thread, each function blocks for the disk and is done before the cloud is told anything.
//
//   left by the process before --take_left_marker--> being settled --forget_left_marker--> gone
//      |                                               |
//      +------------- write_upgrade_marker ------------+--> ours: settled by the process after the reboot
//
// A marker that was left and not yet taken when ours replaced it is kept in memory: its outcome is told too.
#ifndef Z55_AK_MODEL_UPGRADE_MARKER_H
#define Z55_AK_MODEL_UPGRADE_MARKER_H

#include <optional>
#include <string>

struct UpgradeMarker {
    std::string path;
    std::optional<std::string> version;  // its first line without line end; nothing when that cannot be read
};

// What became of a marker that was to be deleted. `failed` leaves the reason in errno.
enum class Forgotten { deleted, replaced_by_ours, failed };

// The marker's path from the configuration; "" when it is not set.
std::string upgrade_marker_path();

// The running firmware version without line ends; "" when it is unknown.
std::string running_firmware_version();

// Puts a marker of this process that holds `version` at `path`, whole and durably. Returns false, errno set,
// when it could not be written.
[[nodiscard]] bool write_upgrade_marker(const std::string &path, const std::string &version);

// The marker that the process before left at `path`; nothing when there is none. A link or a FIFO is none.
[[nodiscard]] std::optional<UpgradeMarker> take_left_marker(const std::string &path);

// Deletes the marker that was taken, durably, unless ours stands in its place by now.
[[nodiscard]] Forgotten forget_left_marker(const UpgradeMarker &marker);

#endif
