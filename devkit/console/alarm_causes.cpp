#include "alarm_causes.h"

namespace {

struct Cause {
    int status;
    const char *title, *raised;  // {X}: status X of the camera; [X]: key X of the configuration
};

constexpr Cause kCauses[] = {
    {1, "Motion", "MotionEvent was 1"},
    {3, "Sound", "AudioEvent was 1"},
    {10, "Too warm", "Temperature {Temperature} over {TemperatureMax}"},
    {14, "Too cold", "Temperature {Temperature} under {TemperatureMin}"},
    {11, "Card nearly full", "free space under SDCARD_LOW [SDCARD_LOW] %"},
    {12, "Cloud storage nearly full", "free quota under NIMB_LOW [NIMB_LOW] %"},
    {13, "Battery low", "Battery {Battery} under BATTERY_LOW [BATTERY_LOW]"},
    {15, "No card", "SD was {SD}"},
    {17, "Upgrade: download failed", "FwUpgradeStatus {FwUpgradeStatus}"},
    {18, "Upgrade begins", "downloaded; NewFirmwareVersion {NewFirmwareVersion}"},
    {19, "Upgrade succeeded", "the version is the one that was announced"},
    {20, "Upgrade failed", "the version is still the old one"},
};

std::string text_at(const json &object, const std::string &key) {
    if (!object.is_object() || !object.contains(key) || !object[key].is_string()) return "?";
    return object[key].get<std::string>();
}

std::string filled(const std::string &pattern, const json &status, const json &conf) {
    std::string result;
    for (size_t at = 0; at < pattern.size(); at++) {
        const char open = pattern[at];
        const size_t end = pattern.find(open == '{' ? '}' : ']', at);
        if ((open != '{' && open != '[') || end == std::string::npos) {
            result += open;
            continue;
        }
        result += text_at(open == '{' ? status : conf, pattern.substr(at + 1, end - at - 1));
        at = end;
    }
    return result;
}

}  // namespace

json alarm_cause(int status, const json &camera, const json &conf) {
    const json values = camera.is_object() ? camera.value("status", json::object()) : json::object();
    for (const Cause &row : kCauses) {
        if (row.status == status) return {{"title", row.title}, {"raised", filled(row.raised, values, conf)}};
    }
    return {{"title", "Alarm " + std::to_string(status)}, {"raised", ""}};
}
