#include "firmware_upgrade.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>

#include "../agent/utils/reply.h"
#include "../agent/utils/reply_text.h"
#include "../agent/utils/text.h"
#include "../exports.h"
#include "../log_sources.h"
#include "../z55cgi.h"
#include "reserve_file.h"
#include "status_read.h"
#include "upgrade_marker.h"
#include "upgrade_monitor.h"

namespace {

constexpr int kTries = 6;

// The first value that `ask` yields in six tries without a pause; nothing when all fail.
template <typename Ask>
auto six_tries(Ask ask) {
    decltype(ask()) value{};
    for (int i = 0; i < kTries && !value; i++) value = ask();
    return value;
}

Reply fetch_status(const char *key) {
    return six_tries([&] { return get_status(key); });
}

// A status by its cloud name; nothing when six tries gave no value.
std::optional<std::string> status_value(const char *name) {
    return six_tries([&] {
        auto value = read_device_status(name);
        if (value == "ERROR") value.reset();
        return value;
    });
}

// What the checks collect. One that fails ends the request with `result`.
struct Checks {
    std::string event, adaptor, card, space;
    int result = -1;
};

// Whether `reply` has the element; where it lacks it the camera's error code is the result.
bool take_element(Checks &checks, const Reply &reply, const char *element, std::string &value) {
    const auto found = find_xml_value(*reply, element);
    if (found)
        value = *found;
    else
        checks.result = error_code_number(*reply);
    return found.has_value();
}

bool take_status(const char *name, std::string &value) {
    const auto found = status_value(name);
    if (found) value = *found;
    return found.has_value();
}

bool check_event(Checks &checks) {
    const auto reply = fetch_status("NewFirmwareEvent");
    if (!reply) {
        std::fprintf(stderr, "local_response is null:   (%s, %d)\n", kModelSource, __LINE__);
        return false;
    }
    if (!take_element(checks, reply, "NewFirmwareEvent", checks.event)) {
        std::printf("fwEvent ErrorCode: %d\n", checks.result);
        return false;
    }
    std::printf("debug , fwEvent = %s,---  %s,%d -----\n", checks.event.c_str(), kModelSource, __LINE__);
    return true;
}

bool check_new_version(Checks &) {
    std::string version;
    if (!take_status("firmware_newver", version)) return false;
    std::printf("debug , firmware_newver = %s,---  %s,%d -----\n", version.c_str(), kModelSource, __LINE__);
    return true;
}

bool check_adaptor(Checks &checks) {
    return take_status("Adapt", checks.adaptor);
}

bool check_card(Checks &checks) {
    return take_status("Sdcard", checks.card);
}

bool check_space(Checks &checks) {
    const auto reply = fetch_status("Space");
    if (!reply) {
        std::printf("res !=CURLE_OK: %s,line %d\n", kModelSource, __LINE__);
        return false;
    }
    if (take_element(checks, reply, "Space", checks.space)) return true;
    std::printf("space ErrorCode: %d\n", checks.result);
    return false;
}

bool check_idle(Checks &) {
    const std::string status = device_status("Upgrade_SW_status");
    if (status == "Idle") return true;
    std::printf("Firmware Upgrade %s...\n", status.c_str());
    return false;
}

constexpr bool (*kChecks[])(Checks &) = {check_event, check_new_version, check_adaptor,
                                         check_card,  check_space,       check_idle};

int request_upgrade() {
    if (deleteDummyFile() != 0) {
        std::puts("delete file failure, OTA failure");
        return -1;
    }
    std::puts("delete file success");
    const std::string document = "<RemoteControl><Action>UPGRADE_FW</Action></RemoteControl>";
    if (const int result = post_remote_control(document)) {
        std::printf("(OTA) curl_Post failed . res = %d , %s:%d\n", result, kModelSource, __LINE__);
        (void)restore_reserve();  // its log says what comes of it
        return -1;
    }
    std::puts("curl_Post OK, starting OTA monitoring");
    start_OTA_monitoring();
    return 0;
}

// Whether the device runs other firmware than when the upgrade began.
bool upgrade_took(const std::string &current, const std::optional<std::string> &last) {
    if (!current.empty()) std::printf("fwver_curr = \"%s\"\n", current.c_str());
    if (!last) {
        std::puts("getline failed");
        return false;
    }
    if (current.empty()) std::puts("fwver_curr is NULL");
    if (last->empty()) std::puts("fwver_last is NULL");
    if (current.empty() || last->empty()) return false;
    std::printf("fwver_last = \"%s\"\n", last->c_str());
    return std::strncmp(current.c_str(), last->c_str(), current.size()) != 0;
}

void forget(const UpgradeMarker &marker) {
    const Forgotten forgotten = forget_left_marker(marker);
    const int error = errno;
    switch (forgotten) {
        case Forgotten::deleted:
            std::printf("OTA Temp file \"%s\" file is deleted successfully.\n", marker.path.c_str());
            break;
        case Forgotten::failed:
            std::printf("Unable to delete OTA Temp File file:\"%s\".\n", marker.path.c_str());
            errno = error;  // a log that cannot be written has left another
            std::perror("Error");
            break;
        case Forgotten::replaced_by_ours:
            break;
    }
}

}  // namespace

int doOTA() {
    std::printf("!!!***%s %d ***!!! OTA function \n", kModelSource, __LINE__);
    Checks checks;
    for (const auto check : kChecks) {
        if (!check(checks)) return checks.result;
    }
    const int card = to_int(checks.card.c_str());
    const int adaptor = to_int(checks.adaptor.c_str());
    std::printf("iFwEvent=%d, iSpace=%d, iAdaptor=%d\n", to_int(checks.event.c_str()),
                to_int(checks.space.c_str()), adaptor);
    if (card == 1 && adaptor == 1) return request_upgrade();
    if (card == 0) std::printf("check SD insert , SD card Space less than 100MB \n ");
    if (adaptor == 0) std::printf("check Adaptor, No Adaptor \n ");
    return -1;
}

int otaON() {
    const std::string document = "<CameraSetup><Item><FW_UPGRADE>ON</FW_UPGRADE></Item></CameraSetup>";
    int result = -1;
    for (int i = 0; i < kTries && result != 0; i++) result = post_setup(document);
    std::printf("otaON res = %d \n", result);
    if (result != 0) std::puts("otaON FAILED!");
    return result;
}

void checkOtaTmpFile() {
    std::puts("checkOtaTmpFile called");
    const auto marker = take_left_marker(upgrade_marker_path());
    if (!marker) {
        std::puts("no ota temp file");
        return;
    }
    std::printf("ota temp file(%s) existed\n", marker->path.c_str());
    if (upgrade_took(running_firmware_version(), marker->version)) {
        soap_OTA_succeeded();
    } else {
        soap_OTA_failed();
    }
    forget(*marker);
}
