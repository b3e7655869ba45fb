// Firmware upgrades: the request with its checks, the camera's upgrade switch and the settling of an upgrade
// that ended with a reboot.
#ifndef Z55_AK_MODEL_FIRMWARE_UPGRADE_H
#define Z55_AK_MODEL_FIRMWARE_UPGRADE_H

// Checks that an upgrade is possible, requests it and starts its monitor. Returns 0 when requested, -1 on a
// failed check or transfer, or the camera's error code where a reply lacks what was asked. Any SDK thread;
// blocks for up to six requests per check, and where the request failed while the reserve is made anew.
[[nodiscard]] int doOTA();

// Switches the camera's upgrade facility on, in up to six tries. Returns 0 or the last transfer result.
[[nodiscard]] int otaON();

// Tells the cloud how an upgrade ended that the marker file says was running, and deletes the marker.
void checkOtaTmpFile();

#endif
