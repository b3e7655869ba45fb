// Reading of single device states: what get_device_status answers, and the firmware version that others need
// too.
#ifndef Z55_AK_MODEL_STATUS_READ_H
#define Z55_AK_MODEL_STATUS_READ_H

#include <optional>
#include <string>

// The last line of "/tmp/FWVER.txt", with its line end if it has one; nothing when the file is missing. Any
// thread.
std::optional<std::string> read_firmware_version();

// What get_device_status answers, "ERROR" on its failure. Any thread; blocks for one queued request.
std::string device_status(const char *name);

#endif
