#include "camera.h"

#include <algorithm>

namespace {

constexpr std::size_t kSessionsKept = 64;
constexpr unsigned kSessionRange = 1000000;  // the keys of one start of the camera

const char *const kInitialStatus = R"({
    "MotionEvent":"0", "AudioEvent":"0", "TemperatureEvent":"0", "Notification":"0",
    "Battery":"90", "Space":"28000", "SD":"1", "Adaptor":"1",
    "Temperature":"24", "TemperatureMax":"35", "TemperatureMin":"5",
    "NewFirmwareVersion":"1.0.4", "NewFirmwareEvent":"1", "FwUpgradeStatus":"Idle", "FwDownloadProgress":"0",
    "Recording":"0",
    "LullabyPlay":"OFF", "LullabySong":"1", "LullabyTime":"300", "LullabyPlayingTime":"0", "LullabyMode":"ALL",
    "LullabyVolume":"5", "Nightlight":"0"})";

const char *const kInitialSettings = R"({
    "MOTION_DETECTION":{"ENABLE":"OFF","SENSITIVITY":"4"},
    "AUDIO_DETECTION":{"ENABLE":"OFF","SENSITIVITY":"4"},
    "TEMPERATURE_ALERT":{"ENABLE":"OFF","MAX":"35","MIN":"5"}})";

const char *const kInitialConfig = R"({
    "device":"Camera", "stream":"Stream1", "password":"secret", "uuid":"Z55-0000-0001", "fwver":"1.0.3",
    "single_session":false, "error_zero":false, "photo_bytes":0, "photo_delay_ms":500,
    "recording_refuse":0, "recording_ignore":0,
    "upgrade":{"steps":4,"step_ms":3000,"outcome":"success"}})";

// What a restart sets back, besides the fields of the structure.
const char *const kRestartedStatus =
    R"({"Recording":"0", "LullabyPlay":"OFF", "FwUpgradeStatus":"Idle", "FwDownloadProgress":"0"})";

}  // namespace

Camera::Camera(double speed)
    : status(json::parse(kInitialStatus)),
      settings(json::parse(kInitialSettings)),
      config(json::parse(kInitialConfig)),
      timer(speed) {}

std::string add_session(Camera &cam) {
    if (cam.config["single_session"]) cam.sessions.clear();
    const unsigned range = static_cast<unsigned>(cam.restarts + 1) * kSessionRange;
    cam.sessions.push_back(std::to_string(range + cam.next_session++ % kSessionRange));
    if (cam.sessions.size() > kSessionsKept) cam.sessions.pop_front();
    ++cam.logins;
    return cam.sessions.back();
}

bool session_valid(const Camera &cam, const std::string &key) {
    return std::find(cam.sessions.begin(), cam.sessions.end(), key) != cam.sessions.end();
}

json query_status(Camera &cam, const std::string &name) {
    const auto found = cam.status.find(name);
    if (found == cam.status.end()) return nullptr;
    const json value = *found;
    const auto event = cam.events.find(name);
    if (event != cam.events.end() && --event->second == 0) {
        cam.events.erase(event);
        *found = "0";
    }
    return value;
}

void raise_event(Camera &cam, const std::string &name, const std::string &value, int polls) {
    cam.status[name] = value;
    cam.events[name] = polls;
}

void change_settings(Camera &cam, const std::string &group, const json &elements) {
    cam.settings.merge_patch({{group, elements}});
    if (group != "TEMPERATURE_ALERT" || !elements.is_object()) return;
    for (const auto &[limit, name] : {std::pair("MAX", "TemperatureMax"), std::pair("MIN", "TemperatureMin")})
        if (elements.contains(limit) && cam.status.contains(name)) cam.status[name] = elements[limit];
}

void restart_camera(Camera &cam) {
    {
        std::lock_guard guard(cam.lock);
        ++cam.restarts;
        cam.sessions.clear();
        cam.events.clear();
        cam.recording = false;
        ++cam.recording_count;
        ++cam.upgrade_count;
        cam.speaker_on = false;
        cam.fw_upgrade = nullptr;
        const json back = json::parse(kRestartedStatus);
        for (const auto &[name, value] : back.items())
            if (cam.status.contains(name)) cam.status[name] = value;
    }
    cam.drop_connections();
}
