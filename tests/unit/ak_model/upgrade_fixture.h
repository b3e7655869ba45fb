// A camera with new firmware, and what an upgrade leaves behind.
#ifndef UNIT_UPGRADE_FIXTURE_H
#define UNIT_UPGRADE_FIXTURE_H

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "agent_test.h"
#include "camera_script.h"
#include "exports.h"
#include "marked_log.h"
#include "shared.h"

inline constexpr char kMarker[] = "/tmp/ota.marker";
inline constexpr char kFirmwareVersion[] = "/tmp/FWVER.txt";
inline constexpr char kReserve[] = "/tmp/fuse_d/.ota.tmp";

inline CameraReply element(const std::string &tag, const std::string &value) {
    return {.body = "<" + tag + ">" + value + "</" + tag + ">"};
}

class UpgradeTest : public CameraTest {
  protected:
    void SetUp() override {
        CameraTest::SetUp();
        set_conf("OTA_TMP_FILE", kMarker);
        std::strcpy(hostIP, FakeCamera::kHost);
        mkdir("/tmp/fuse_d", 0755);
        for (const char *path : {kMarker, kFirmwareVersion, kReserve}) unlink(path);
        rmdir(kMarker);
        rmdir(kReserve);
    }
};

#endif
