#include "upgrade_monitor.h"

#include <pthread.h>

#include <cerrno>
#include <cstdio>
#include <optional>
#include <string>

#include "../agent/alarm_rules.h"
#include "../agent/alarm_sink.h"
#include "../agent/utils/conf_file.h"
#include "../agent/utils/os.h"
#include "../agent/utils/text.h"
#include "../agent/utils/threads.h"
#include "../exports.h"
#include "../log_sources.h"
#include "../shared.h"
#include "status_read.h"
#include "upgrade_marker.h"

namespace {

constexpr char kMonitor[] = "OTA_monitor";
constexpr int kDefaultPeriodSeconds = 5;
constexpr int kFinalPeriodSeconds = 1;  // from the first progress above kFinalProgress on
constexpr int kFinalProgress = 95;

enum class CameraStatus { idle, downloading, upgrading };
enum class State { waiting, downloading, downloaded, upgrading, failed };

struct Round {
    CameraStatus status = CameraStatus::idle;  // a text of another kind leaves the last one
    int progress = 0;                          // percent
    std::string progress_text;
    std::string version;  // that the marker holds; "" while it is unknown
};

int configured_period() {
    const int period = conf_number("OTA_POLLING_PERIOD", 0).value_or(0);
    return period > 0 ? period : kDefaultPeriodSeconds;
}

void read_round(Round &round) {
    const std::string status = device_status("Upgrade_SW_status");
    round.progress_text = device_status("Upgrade_SW_process");
    std::printf("SW status Now  = %s,---  %s,%d -----\n", status.c_str(), kModelSource, __LINE__);
    std::printf("SW fwProcess Now download progress = %s,---  %s,%d -----\n", round.progress_text.c_str(),
                kModelSource, __LINE__);
    round.progress = to_int(round.progress_text.c_str());
    if (status == "Idle") round.status = CameraStatus::idle;
    if (status == "Downloading") round.status = CameraStatus::downloading;
    if (status == "Upgrading") round.status = CameraStatus::upgrading;
}

void write_marker(const std::string &version) {
    const std::string path = upgrade_marker_path();
    if (!write_upgrade_marker(path, version)) {
        const int error = errno;
        std::puts("Open OTA Temp file failed.");
        errno = error;  // a log that cannot be written has left another
        std::perror("Error");
        return;
    }
    std::printf("Created OTA Temp file:\"%s\\n", path.c_str());
}

State while_waiting(Round &round) {
    if (round.status != CameraStatus::downloading) return State::waiting;
    std::printf("(%s) start downloading\n", kMonitor);
    round.version = running_firmware_version();
    write_marker(round.version);
    return State::downloading;
}

// A login may bring the version while the camera downloads; later it may be the new firmware's.
void complete_marker(Round &round) {
    if (!round.version.empty() || round.status != CameraStatus::downloading) return;
    round.version = running_firmware_version();
    if (!round.version.empty()) write_marker(round.version);
}

State while_downloading(Round &round) {
    State next = State::downloading;
    complete_marker(round);
    std::printf("(%s) downloading progress = %d\n", kMonitor, round.progress);
    if (round.progress == 100) {
        std::printf("(%s) Download finished!!\n", kMonitor);
        std::printf("(%s) SOAP to AA!\n", kMonitor);
        next = State::downloaded;
        soap_OTA_upgrade_start();
    }
    if (round.status == CameraStatus::idle) {
        std::printf("(%s) Became Idle. Weird?  progress = %s\n", kMonitor, round.progress_text.c_str());
        if (round.progress != 0) return next;
        std::puts("PROGRESS == 0, FAIL!");
        std::printf("\n\nOTA FAILED!!!!!!!\n SOAP!\n");
        soap_OTA_download_failed();
        std::printf("(%s) OTA Failed. Leaving...\n", kMonitor);
        return State::failed;
    }
    if (round.status == CameraStatus::upgrading) {
        std::printf("(%s) start upgrading\n", kMonitor);
        next = State::upgrading;
    }
    return next;
}

State next_state(State state, Round &round) {
    if (state == State::waiting) return while_waiting(round);
    if (state == State::downloading) return while_downloading(round);
    return state;
}

// No latch hangs on it: where there is no SDK the log has said so.
void notify(AlarmStatus status) {
    (void)send_alarm("(OTA)", status);
}

}  // namespace

void *OTA_monitor(void *) {
    std::printf("(%s) OTA_monitor starts.\n", kMonitor);
    store_shared(ota_enable, 1);
    int period = configured_period();
    Round round;
    for (State state = State::waiting;;) {
        read_round(round);
        state = next_state(state, round);
        if (state == State::failed) return nullptr;
        if (round.progress > kFinalProgress) period = kFinalPeriodSeconds;
        pause_seconds(period);
    }
}

void start_OTA_monitoring() {
    std::puts("start_OTA_monitoring called");
    pthread_t ota_monitor_thread{};
    (void)start_thread(&ota_monitor_thread, OTA_monitor, nullptr);  // the upgrade goes on without
}

void soap_OTA_download_failed() {
    std::puts("soap_OTA_download_failed called");
    notify(kDownloadFailedNotice);
}

void soap_OTA_upgrade_start() {
    std::puts("soap_OTA_upgrade_start called");
    notify(kUpgradeStartNotice);
}

void soap_OTA_succeeded() {
    std::puts("soap_OTA_succeeded called");
    notify(kUpgradeSucceededNotice);
}

void soap_OTA_failed() {
    std::puts("soap_OTA_failed called");
    notify(kUpgradeFailedNotice);
}
