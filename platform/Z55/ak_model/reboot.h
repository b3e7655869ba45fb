// The reboot of the device.
#ifndef Z55_AK_MODEL_REBOOT_H
#define Z55_AK_MODEL_REBOOT_H

// Replaces the process with the reboot tool, after a log line. Returns only on failure: -1. Any thread.
[[nodiscard]] int reboot_device();

#endif
