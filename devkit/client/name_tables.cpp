// What agent, camera and libraries call their things.
#include "names.h"

namespace {

constexpr char kSwitch[] = "0|1", kPercent[] = "0..100", kDegrees[] = "-100..100", kTruth[] = "true|false";
constexpr char kCount[] = "0..2000000000", kProfiles[] = "RTP_H264_WQVGA|RTP_H264_WVGA|RTP_H264_HD";

constexpr Name kStatuses[] = {
    {"Battery", "%"},
    {"Adapt", ""},
    {"Sdcard", ""},
    {"Sdsize", "MB"},
    {"sdcardquota", "MB"},
    {"firmware_ver", ""},
    {"firmware_newver", ""},
    {"Upgrade_SW_status", ""},
    {"Upgrade_SW_process", "%"},
    {"Temp_now_status", "°C"},
    {"LullabyPlay", ""},
    {"LullabySong", ""},
    {"LullabyTime", "s"},
    {"LullabyPlayingTime", "s"},
    {"LullabyMode", ""},
    {"LullabyVolume", ""},
    {"Nightlight", ""},
    {"Recording", ""},
    {"resolution_capability", ""},
};

constexpr Name kParameters[] = {
    {"md_armed", "motion alarm", kSwitch},
    {"md_sensitivity", "of the motion alarm", kPercent},
    {"sd_armed", "sound alarm", kSwitch},
    {"sd_sensitivity", "of the sound alarm", kPercent},
    {"td_armed", "temperature alarm", kSwitch},
    {"td_up", "too warm above, °C", kDegrees},
    {"td_down", "too cold below, °C", kDegrees},
    {"pd_armed", "battery alarm", kSwitch},
    {"pd_setting", "battery low under, %", kPercent},
    {"sdcard_armed", "card alarm", kSwitch},
    {"sdcard_setting", "card nearly full under, % free", kPercent},
    {"high_definition", "stream profile", "1|2|3"},
};

constexpr Name kWriteOnly[] = {
    {"csd_armed", "cloud storage alarm", kSwitch},
    {"csd_setting", "cloud storage nearly full under, % free", kPercent},
};

constexpr Name kActions[] = {
    {"doOTA", "starts a firmware upgrade"},  {"sdformat", "formats the card"},
    {"manual_record", "recording", kSwitch}, {"Csdnimbo", "cloud storage", kSwitch},
    {"reboot", "accepted, does nothing"},    {"save_param", "accepted, does nothing"},
    {"resolution", "not there yet"},
};

constexpr Name kOperations[] = {
    {"1", "up", kCount},
    {"2", "down", kCount},
    {"4", "left", kCount},
    {"5", "right", kCount},
    {"30", "night light", kPercent},
    {"40", "lullaby: 0 off, 1 on, 2 pause, 3 resume", "0|1|2|3"},
    {"41", "lullaby mode: 0 all, 1 one", kSwitch},
    {"42", "lullaby song, counted from 0", "0|1|2|3|4|5"},
    {"43", "lullaby mode: 0 one, 1 random, 2 all", "0|1|2"},
    {"44", "lullaby volume", kPercent},
    {"45", "stream profile", "1|2|3"},
};

constexpr Name kCameraKeys[] = {
    {"MotionEvent"},
    {"AudioEvent"},
    {"TemperatureEvent"},
    {"Notification"},
    {"Battery", "%"},
    {"Space"},
    {"SD"},
    {"Adaptor"},
    {"Temperature"},
    {"TemperatureMax"},
    {"TemperatureMin"},
    {"NewFirmwareVersion"},
    {"NewFirmwareEvent"},
    {"FwUpgradeStatus"},
    {"FwDownloadProgress"},
    {"Recording"},
    {"LullabyPlay"},
    {"LullabySong"},
    {"LullabyTime"},
    {"LullabyPlayingTime"},
    {"LullabyMode"},
    {"LullabyVolume"},
    {"Nightlight"},
};

// With the elements of each.
constexpr Name kGroups[] = {
    {"MOTION_DETECTION", "motion", "ENABLE|SENSITIVITY"},
    {"AUDIO_DETECTION", "sound", "ENABLE|SENSITIVITY"},
    {"TEMPERATURE_ALERT", "temperature", "ENABLE|MAX|MIN"},
};

constexpr Name kCameraProperties[] = {
    {"device", "of a login"},
    {"stream", "of a login"},
    {"password", "of a login"},
    {"uuid", ""},
    {"fwver", "firmware version"},
    {"single_session", "a login ends all others", kTruth},
    {"error_zero", "replies hold ErrorCode 0", kTruth},
    {"photo_bytes", "size of a photo", kCount},
    {"photo_delay_ms", "until a photo is there", kCount},
    {"recording_refuse", "error code of a recording's start", "-100..100"},
    {"recording_ignore", "so many starts are not obeyed", kCount},
    {"upgrade", R"(JSON: {"steps":4,"step_ms":3000,"outcome":"success"})"},
};

constexpr Name kCaptureProperties[] = {
    {"stalled", "started, delivers nothing", kTruth},
    {"init_result", "", "-100..100"},
    {"start_result", "", "-100..100"},
    {"profile", "", kProfiles},
    {"live", R"(JSON: {"video_fps":15,"key_every":30})"},
};

constexpr Name kEndpoints[] = {
    {"*", "all"},      {"CameraLogin"}, {"CameraStatus"}, {"CameraSetting"}, {"CameraSetup"},
    {"RemoteControl"}, {"CameraInfo"},  {"VideoList"},    {"MobileAudio"},   {"photo", "a file of the card"},
};

// `values`: the parameter that says most about it.
constexpr Name kMisbehaviours[] = {
    {"error_code", "that ErrorCode", "value"},
    {"http_status", "that status", "status"},
    {"redirect", "to there", "location"},
    {"http10", "answers as HTTP/1.0"},
    {"delay", "answers so many ms later", "ms"},
    {"close", "closes without a byte"},
    {"reset", "resets without a byte"},
    {"truncate", "cut after so many bytes", "bytes"},
    {"drip", "so many bytes at a time", "bytes"},
    {"pieces", "in so many pieces", "pieces"},
    {"oversize", "filled up to so many bytes", "bytes"},
    {"garbage", "so many random bytes", "bytes"},
    {"body", "that text", "text"},
    {"hang", "nothing until healed"},
};

constexpr Name kHandlers[] = {
    {"get_device_status"},
    {"get_device_param"},
    {"set_device_param"},
    {"device_play_audio"},
    {"ptz_direction_control"},
    {"get_camera_snapshot"},
    {"notify_Z55_connection_status"},
    {"start_recording_video"},
    {"stop_recording_video"},
    {"login"},
    {"rebootOperation"},
    {"read_conf_value"},
    {"get_session_key"},
    {"c_request_video"},
    {"c_end_video"},
    {"c_request_audio"},
    {"e_get_param_str"},
    {"error_callback"},
    {"alarm_func"},
    {"get_record_start_time"},
    {"new_getframe_callback"},
    {"resolutionChange"},
    {"autocut_recording"},
    {"OTA_monitor"},
    {"perform_curls_in_queue"},
    {"waitAndPlay"},
    {"http_status_code_checker"},
    {"result_write_callback"},
    {"photo_write_callback"},
};

constexpr Name kVariables[] = {
    {"request_vedio"},
    {"res"},
    {"video_recording"},
    {"gResolutionType"},
    {"NTP_FAIL"},
    {"ota_enable"},
    {"get_frame_callback_flag"},
    {"wav_header_len"},
    {"hostIP"},
    {"device"},
    {"stream"},
    {"password"},
    {"cookie"},
    {"post_fields"},
    {"g_dir"},
    {"response"},
    {"wav_header"},
};

}  // namespace

std::span<const Name> statuses() {
    return kStatuses;
}
std::span<const Name> parameters() {
    return kParameters;
}
std::span<const Name> write_only_parameters() {
    return kWriteOnly;
}
std::span<const Name> write_actions() {
    return kActions;
}
std::span<const Name> remote_operations() {
    return kOperations;
}
std::span<const Name> camera_keys() {
    return kCameraKeys;
}
std::span<const Name> setting_groups() {
    return kGroups;
}
std::span<const Name> camera_properties() {
    return kCameraProperties;
}
std::span<const Name> capture_properties() {
    return kCaptureProperties;
}
std::span<const Name> endpoints() {
    return kEndpoints;
}
std::span<const Name> misbehaviours() {
    return kMisbehaviours;
}
std::span<const Name> handlers() {
    return kHandlers;
}
std::span<const Name> variables() {
    return kVariables;
}
