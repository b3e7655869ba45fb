// The upgrade monitor: a detached thread per upgrade that follows the camera to the reboot and tells the
// cloud.
#ifndef Z55_AK_MODEL_UPGRADE_MONITOR_H
#define Z55_AK_MODEL_UPGRADE_MONITOR_H

// Starts OTA_monitor; a failure is reported on standard error only. Any thread.
void start_OTA_monitoring();

// The four notices of an upgrade, each a log line and an alarm record.
void soap_OTA_download_failed();
void soap_OTA_upgrade_start();
void soap_OTA_succeeded();
void soap_OTA_failed();

#endif
