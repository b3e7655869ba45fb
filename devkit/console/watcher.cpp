#include "watcher.h"

#include <time.h>

#include <cmath>

#include "alarm_causes.h"
#include "clocks.h"
#include "device.h"

namespace {

constexpr long kLookMs = 250;
constexpr int kSdkEvery = 2, kDeviceEvery = 4, kSampleEvery = 4;  // looks
constexpr size_t kEptAlarms = 1000, kEptRequests = 400, kEptSamples = 1800, kEptMarks = 200;
constexpr size_t kBodyShown = 2000;

// What the page needs of a request, with wall-clock times.
json shown_request(const json &record) {
    const auto number = [&](const char *name) {
        return record[name].is_number() ? record[name].get<double>() : 0.0;
    };
    std::string body = record.value("body", "");
    body.resize(std::min(body.size(), kBodyShown));
    return {{"seq", record["seq"]},
            {"method", record["method"]},
            {"target", record["target"]},
            {"endpoint", record["endpoint"]},
            {"body", body},
            {"t", wall_of(number("time_ms"))},
            {"ms", record["end_ms"].is_null() ? json() : json(number("end_ms") - number("time_ms"))},
            {"status", record["status"]},
            {"fault", record["fault"]}};
}

}  // namespace

void Watcher::mark(const char *kind, const std::string &text) {
    page_.add("marks", json::array({{{"t", wall_ms()}, {"kind", kind}, {"text", text}}}), kEptMarks);
}

void Watcher::look_at_camera() {
    camera_ = behind_.ask(Side::camera, "GET", "/state").value_or(json());
    page_.set("camera", camera_);
    page_.set("faults", behind_.ask(Side::camera, "GET", "/faults").value_or(json()));
    if (!camera_.is_object()) return;
    const double restarts = camera_.value("restarts", 0.0);
    if (restarts_ >= 0 && restarts > restarts_) mark("camera", "the camera restarted");
    restarts_ = restarts;
}

// Requests are told when they begin and again when they end.
void Watcher::look_at_requests() {
    const auto since = std::to_string(static_cast<long long>(requests_from_));
    const auto got = behind_.ask(Side::camera, "GET", "/requests?limit=200&since=" + since);
    if (!got) return;
    json fresh = json::array();
    for (const json &record : got->is_array() ? *got : got->value("requests", json::array())) {
        const double seq = record["seq"];
        const bool ended = !record["end_ms"].is_null();
        const auto told = requests_told_.find(seq);
        if (told == requests_told_.end() || told->second != ended) fresh.push_back(shown_request(record));
        requests_told_[seq] = ended;
    }
    while (!requests_told_.empty() && requests_told_.begin()->second) {
        requests_from_ = requests_told_.begin()->first;
        requests_told_.erase(requests_told_.begin());
    }
    page_.add("requests", fresh, kEptRequests);
}

void Watcher::look_at_sdk() {
    const auto state = behind_.ask(Side::sdk, "GET", "/state");
    sdk_ = state.value_or(json());
    page_.set("sdk", sdk_);
    if (!state) return;
    const int pid = sdk_.value("pid", 0);
    if (pid != pid_) {
        if (pid_ != 0) mark("agent", "the agent started again");
        pid_ = pid;
    }
    look_at_alarms();
}

// The desk keeps the alarms of agents that have ended (DESK_SDK_ALARMS_KEPT): what one said last is told by
// the next.
void Watcher::look_at_alarms() {
    if (sdk_.value("alarm_count", 0.0) == alarms_seen_) return;
    const auto got = behind_.ask(Side::sdk, "GET",
                                 "/alarms?since=" + std::to_string(static_cast<long long>(alarms_seen_)));
    if (!got) return;
    json fresh = json::array();
    for (json alarm : got->value("alarms", json::array())) {
        alarms_seen_ = alarm["seq"];
        alarm.update(alarm_cause(alarm.value("status", 0), camera_, device_.value("conf", json())));
        alarm["n"] = ++alarm_number_;
        alarm["t"] = wall_of(alarm.value("real_ms", 0.0));
        fresh.push_back(alarm);
    }
    page_.add("alarms", fresh, kEptAlarms);
}

void Watcher::look_at_device() {
    device_ = device_state();
    page_.set("device", device_);
    const int reboots = device_["reboots"];
    if (reboots_ >= 0 && reboots > reboots_) mark("reboot", "reboot " + std::to_string(reboots));
    reboots_ = reboots;
}

void Watcher::take_sample() {
    json sample = process_state(behind_.agent_pid());
    if (!sample.is_object()) sample = json::object();
    sample["t"] = std::round(wall_ms());
    const json status = camera_.is_object() ? camera_["status"] : json::object();
    sample["battery"] = std::atof(status.value("Battery", "0").c_str());
    sample["temperature"] = std::atof(status.value("Temperature", "0").c_str());
    sample["requests"] = camera_.is_object() ? camera_["requests_total"] : json();
    sample["card_free_mb"] = device_["card"].is_object() ? device_["card"]["free_mb"] : json();
    if (sdk_.is_object()) {
        for (const char *name : {"video", "audio", "key_frames", "video_bytes", "audio_bytes"})
            sample[name] = sdk_["frames"][name];
        sample["watched"] = sdk_.value("request_vedio", 0) != 0;
    }
    page_.add("samples", json::array({sample}), kEptSamples);
}

void Watcher::watch() {
    for (unsigned look = 0;; look++) {
        look_at_camera();
        look_at_requests();
        if (look % kDeviceEvery == 0) look_at_device();
        if (look % kSdkEvery == 0) look_at_sdk();
        if (look % kSampleEvery == 0) take_sample();
        const timespec pause{0, kLookMs * 1'000'000};
        nanosleep(&pause, nullptr);
    }
}
