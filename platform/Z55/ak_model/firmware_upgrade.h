// Firmware upgrades: the request with its checks, the camera's upgrade switch, the SD card's reserve file and
// the settling of an upgrade that ended with a reboot.
#ifndef Z55_AK_MODEL_FIRMWARE_UPGRADE_H
#define Z55_AK_MODEL_FIRMWARE_UPGRADE_H

#include <string>

// Checks that an upgrade is possible, requests it and starts its monitor. Returns 0 when requested, -1 on a
// failed check or transfer, or the camera's error code where a reply lacks what was asked. Any SDK thread;
// blocks for up to six requests per check.
int doOTA();

// Switches the camera's upgrade facility on, in up to six tries. Returns 0 or the last transfer result.
int otaON();

// Makes the 102,400,000-byte reserve file on the SD card. Returns 0, or -1 when it exists or dd failed.
int dummyFileCreator();

// Deletes the reserve file. Returns 0, or -1 when it is missing or cannot be deleted.
int deleteDummyFile();

// Tells the cloud how an upgrade ended that the marker file says was running, and deletes the marker.
void checkOtaTmpFile();

// The marker file's path from the configuration; "" when it is not set.
std::string upgrade_marker_path();

// The running firmware version without line ends; "" when it is unknown.
std::string running_firmware_version();

#endif
