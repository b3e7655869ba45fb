#include "upgrade.h"

#include <cstdlib>

namespace {

void upgrade_step(Camera &cam, unsigned count, int step);

void next_step(Camera &cam, unsigned count, int step) {
    cam.timer.after_ms(cam.config["upgrade"]["step_ms"],
                       [&cam, count, step] { upgrade_step(cam, count, step); });
}

void show(Camera &cam, const char *status, int progress) {
    cam.status["FwUpgradeStatus"] = status;
    cam.status["FwDownloadProgress"] = std::to_string(progress);
}

// "1.0.5" after "1.0.4": what the maker offers next, so that an upgrade can be ordered again.
std::string next_version(const std::string &version) {
    const size_t dot = version.rfind('.');
    if (dot == std::string::npos) return version + ".1";
    return version.substr(0, dot + 1) + std::to_string(std::atoi(version.c_str() + dot + 1) + 1);
}

void finish_upgrade(Camera &cam, bool new_firmware) {
    {
        std::lock_guard guard(cam.lock);
        if (new_firmware) {
            const std::string version = cam.status.value("NewFirmwareVersion", "");
            cam.config["fwver"] = version;
            cam.status["NewFirmwareVersion"] = next_version(version);
            cam.status["NewFirmwareEvent"] = "0";
        }
    }
    restart_camera(cam);
    cam.run_reboot_tool();
}

// Step 0 < n <= steps downloads, one more flashes, the one after that restarts.
void upgrade_step(Camera &cam, unsigned count, int step) {
    std::unique_lock guard(cam.lock);
    if (cam.upgrade_count != count) return;
    const int steps = cam.config["upgrade"]["steps"];
    const std::string outcome = cam.config["upgrade"]["outcome"];
    if (step > steps + 1) {
        guard.unlock();
        finish_upgrade(cam, outcome == "success");
        return;
    }
    if (step > steps / 2 && outcome == "fail_download") return show(cam, "Idle", 0);
    if (step > steps / 2 && outcome == "stuck") return;
    if (step > steps)
        show(cam, "Upgrading", 100);
    else
        show(cam, "Downloading", 100 * step / steps);
    next_step(cam, count, step + 1);
}

}  // namespace

int start_upgrade(Camera &cam) {
    if (cam.status.value("FwUpgradeStatus", "Idle") != "Idle") return camera_busy;
    show(cam, "Downloading", 0);
    next_step(cam, ++cam.upgrade_count, 1);
    return 0;
}
