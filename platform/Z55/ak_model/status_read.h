// Reading of single device states: what get_device_status answers, and the firmware version that others need
// too.
#ifndef Z55_AK_MODEL_STATUS_READ_H
#define Z55_AK_MODEL_STATUS_READ_H

#include <optional>
#include <string>

// The last line of the first 16 KiB of "/tmp/FWVER.txt", with its line end if it has one; nothing when there
// is no regular file (a link is not followed). Any thread.
[[nodiscard]] std::optional<std::string> read_firmware_version();

// The state of that name, as long as the cloud's buffer would hold it; nothing when it could not be had, or
// "ERROR" in its place. Any thread; block for one queued request, for the card's two figures for df and
// whoever asks it at the same time (61 s each at most).
[[nodiscard]] std::optional<std::string> read_device_status(const char *name);
std::string device_status(const char *name);

#endif
