#include "cloud_session.h"

#include <pthread.h>
#include <signal.h>

#include <cstdio>
#include <initializer_list>
#include <optional>
#include <string>

#include "../agent/loginout.h"
#include "../agent/network.h"
#include "../agent/utils/os.h"
#include "../agent/utils/tick.h"
#include "../ak_model/firmware_upgrade.h"
#include "../ak_model/reboot.h"
#include "../ak_model/reserve_file.h"
#include "../device.h"
#include "../exports.h"
#include "../log_sources.h"
#include "../sdk/ef.h"
#include "../sdk/usock.h"
#include "../shared.h"
#include "../video_recording.h"

namespace {

constexpr long kWatchMilliseconds = 5000;
constexpr char kInterface[] = "wlan0";

constexpr device_callbacks kCallbacks = {
    get_device_status,
    get_device_param,
    set_device_param,
    device_play_audio,
    ptz_direction_control,
    get_camera_snapshot,
    notify_Z55_connection_status,
    start_recording_video,
    stop_recording_video,
};

void prepare_thread_attributes() {
    for (pthread_attr_t *attributes : {&audioback_attr, &resolutionChange_attr, &recVideo_attr}) {
        pthread_attr_init(attributes);
        pthread_attr_setdetachstate(attributes, PTHREAD_CREATE_DETACHED);
    }
}

void join_cloud() {
    const auto uuid = get_uuid();
    const char *text = uuid ? uuid->c_str() : nullptr;
    std::printf("GETTING UUID fuction(): uuid =  %s\n", uuid ? text : "(null)");
    load_login_settings();
    store_shared(mipc_api, vq_ipca_init(text, kInterface, &kCallbacks));
}

void run_start_checks() {
    // Their log lines tell what comes of them; the cloud session starts in any case.
    (void)login();
    (void)otaON();
    checkOtaTmpFile();
    (void)dummyFileCreator();
    checkVideoRecording();
    checkOtaTmpFile();
    std::puts("vq_ipca_init return");
}

void start_alarm_tick() {
    struct sigaction action {};
    action.sa_handler = alarm_func;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(SIGALRM, &action, nullptr);
    arm_tick();
}

bool video_wanted() {
    return load_shared(request_vedio) != 0;
}

bool upgrade_runs() {
    return load_shared(ota_enable) != 0;
}

// Reboots the device when a viewer watches and no frame arrives for one period; an upgrade suspends the
// watch.
void watch_frames() {
    while (video_wanted() && !upgrade_runs()) {
        store_shared(get_frame_callback_flag, 0);
        sleep_milliseconds(kWatchMilliseconds);
        if (video_wanted() && load_shared(get_frame_callback_flag) == 0 && !upgrade_runs()) {
            std::puts("getframe callback was die lock , system reboot!!");
            (void)reboot_device();  // tried again after the next period
        }
    }
}

}  // namespace

void *run_cloud_session(void *key_function) {
    store_shared(get_session_key, reinterpret_cast<char *(*)(void)>(key_function));
    prepare_thread_attributes();
    join_cloud();
    run_start_checks();
    start_alarm_tick();
    SetErrorCallback(error_callback);
    if (ExFramer_Capture_Init(new_getframe_callback) != 0) {
        std::puts("ExFramer_Capture_Init fail");
        return nullptr;
    }
    sleep_milliseconds(kWatchMilliseconds);
    set_video_bitrate(kStreamKilobits);
    for (;;) {
        sleep_milliseconds(kWatchMilliseconds);
        watch_frames();
        drop_page_cache();
    }
}

void alarm_func(int) {
    arm_tick();
}

int c_request_video(int, int) {
    std::printf("*** c_request_video called!! *** \n");
    ExFramer_Capture_Start();
    return 1;
}

int c_end_video(int, int) {
    std::printf("*** c_end_video called!! *** \n");
    ExFramer_Capture_Stop();
    return 1;
}

int c_request_audio(int, int) {
    return 1;
}

int e_get_param_str(int) {
    return 0;
}

int error_callback(int error_code) {
    std::printf("error_callback: %d\n", error_code);
    std::printf("!!!***%s %d ***!!! error_stat=%d\n", kFrameSource, __LINE__, error_code);
    if (error_code == 0) return 0;
    std::puts("Error code != 0. Rebooting......");
    (void)exec_reboot_tool();  // returns only when it failed
    std::puts("reboot failed");
    return 0;
}
