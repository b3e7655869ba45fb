#include "resolution_change.h"

#include <pthread.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "../agent/session_key.h"
#include "../agent/status_query.h"
#include "../agent/utils/os.h"
#include "../agent/utils/text.h"
#include "../device.h"
#include "../exports.h"
#include "../log_sources.h"
#include "../sdk/usock.h"
#include "../shared.h"
#include "../video_recording.h"
#include "../z55cgi.h"
#include "parameter_store.h"
#include "parameters.h"

namespace {

constexpr long kSwitchDelayMilliseconds = 1000;
constexpr long kBitrateDelayMilliseconds = 5000;

constexpr char kArmed[] = "<ENABLE>ON</ENABLE>";  // what an armed group's value begins with

// The two detections in the order of their switching.
constexpr const char *kGroups[] = {"MOTION_DETECTION", "AUDIO_DETECTION"};
constexpr const char *kSwitches[] = {"md_armed", "sd_armed"};

const char *profile_name(int type) {
    constexpr const char *kProfiles[] = {"RTP_H264_WQVGA", "RTP_H264_WVGA", "RTP_H264_HD"};
    return type >= 1 && type <= 3 ? kProfiles[type - 1] : "";
}

struct Detections {
    bool armed[2];
};

std::optional<Detections> read_detections(const std::string &key) {
    const auto values = getCameraSettings(key, camera_host(), {kGroups[0], kGroups[1]});
    if (!values) {
        std::puts("getMultipleCameraStatuses failed: return value is null.");
        return std::nullopt;
    }
    if (query_error(*values) != nullptr) return std::nullopt;
    Detections detections{};
    for (size_t i = 0; i < 2; i++) {
        if (!(*values)[i]) {
            std::printf("values[%d] = NULL, aborting %s : %d\n", static_cast<int>(i), kModelSource, __LINE__);
            return std::nullopt;
        }
        detections.armed[i] = (*values)[i]->rfind(kArmed, 0) == 0;
    }
    return detections;
}

// Switches the detections that were armed; false as soon as one cannot be switched.
bool switch_detections(const Detections &detections, const char *value) {
    for (int i = 0; i < 2; i++) {
        if (!detections.armed[i]) continue;
        sleep_milliseconds(kSwitchDelayMilliseconds);
        log_parameter_write(kSwitches[i], value, 1);
        if (write_parameter(*find_parameter(kSwitches[i]), value) != 0) return false;
    }
    return true;
}

bool change_stream() {
    const char *profile = profile_name(load_shared(gResolutionType));
    const std::string document = format_text(
        sizeof post_fields,
        "<RemoteControl><Action>STREAM_CHANGE</Action><STREAM>%s</STREAM></RemoteControl>", profile);
    std::printf("!!!***%s %d ***!!!\n ****  resolution change ******\n", kModelSource, __LINE__);
    std::printf("charPara = %s\n", profile);
    return post_remote_control(document) == 0;
}

int change_resolution() {
    if (const int recording = load_shared(video_recording)) {
        std::printf("%s:line=%d:video_recording=%d\n", "resolutionChange", __LINE__, recording);
        return kAlreadyRecording;
    }
    const auto detections = read_detections(wait_for_session_key());
    if (!detections) return -1;
    if (!switch_detections(*detections, "0")) return -1;
    if (!change_stream()) return -1;
    if (!switch_detections(*detections, "1")) return -1;
    sleep_milliseconds(kBitrateDelayMilliseconds);
    set_video_bitrate(kStreamKilobits);
    return 0;
}

}  // namespace

void start_resolution_change(int requested) {
    const int selected = requested >= 1 && requested <= 3 ? requested : 1;
    store_shared(gResolutionType, selected);
    std::printf("ptz_direction_control: change resolution= %d\n", selected);
    pthread_t thread{};
    // The thread gets the address only to log it; it is gone by the time the thread runs.
    void *address = reinterpret_cast<void *>(reinterpret_cast<std::intptr_t>(&selected));
    if (const int error = pthread_create(&thread, &resolutionChange_attr, resolutionChange, address)) {
        std::printf("no thread for a resolution change: %s\n", std::strerror(error));
        return;
    }
    store_shared(resolutionChange_t, thread);
}

void *resolutionChange(void *address_of_param) {
    std::printf("--%s,line %d--\n", kModelSource, __LINE__);
    std::printf("arg = %d", static_cast<int>(reinterpret_cast<std::intptr_t>(address_of_param)));
    return reinterpret_cast<void *>(static_cast<std::intptr_t>(change_resolution()));
}
