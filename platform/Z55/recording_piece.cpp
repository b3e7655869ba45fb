#include "recording_piece.h"

#include <cstdio>
#include <mutex>
#include <optional>
#include <string>

#include "agent/session_key.h"
#include "agent/utils/conf_file.h"
#include "agent/utils/os.h"
#include "agent/utils/reply_text.h"
#include "ak_model/clock.h"
#include "ak_model/status_read.h"
#include "exports.h"
#include "recording_log.h"
#include "shared.h"
#include "z55cgi.h"

namespace {

constexpr int kStartCheckMilliseconds = 2000;
constexpr int kCameraCloseMilliseconds = 5000;

constinit std::mutex timezone_lock;
constinit bool timezone_known = false;

// The time zone is only logged, until there is one.
void read_timezone() {
    const std::lock_guard<std::mutex> lock(timezone_lock);
    if (timezone_known) return;
    const std::string timezone = conf_value("TIMEZONE").value_or("");
    std::printf("timezonebuf: %s\n", timezone.c_str());
    timezone_known = !timezone.empty();
}

bool clock_is_set() {
    return load_shared(NTP_FAIL) == 0;
}

// Now, as the camera's clock has it: that was set with the offset if it was set at all.
time_t camera_time() {
    read_timezone();
    return wall_seconds() + (clock_is_set() ? kHomeOffsetSeconds : 0);
}

std::string configured_key() {
    return configured_session_key().value_or("");
}

bool contains(const std::string &text, const char *word) {
    return text.find(word) != std::string::npos;
}

// Nothing when the camera takes it, else the result of start_recording_video.
std::optional<int> send_video_start(const std::string &key) {
    std::string reply;
    if (const int result = easyRemoteControl(key, "VIDEO_START", reply)) {
        std::printf("*** (start_recording_video) res != CURLE_OK: res = %d\n", result);
        return result;
    }
    if (contains(reply, "VIDEO_START")) return std::nullopt;
    const int code = error_code_number(reply);
    std::printf("VIDEO_START ErrorCode: %d\n", code);
    return code;
}

// The same for a stop.
std::optional<int> send_video_stop() {
    std::puts("(stop_recording_video) calling easyRemoteControl to perform cgi");
    std::string reply;
    if (const int result = easyRemoteControl(configured_key(), "VIDEO_STOP", reply)) {
        std::puts("curl video stop failed");
        return result;
    }
    if (contains(reply, "VIDEO_STOP")) return std::nullopt;
    const int code = error_code_number(reply);
    std::printf("VIDEO_STOP ErrorCode: %d\n", code);
    return code;
}

// A start that was stopped meanwhile asks no further.
bool did_not_start(const Turn &turn) {
    return !turn.stopped() && device_status("Recording")[0] == '0' && !turn.stopped();
}

std::optional<int> make_camera_start(const Turn &turn, const std::string &key) {
    if (const auto failure = send_video_start(key)) return failure;
    sleep_milliseconds(kStartCheckMilliseconds);
    if (!did_not_start(turn)) return std::nullopt;
    std::puts("Retry video Recording ");
    return send_video_start(key);
}

}  // namespace

std::optional<int> start_piece(Turn &turn, long length, const Cutter *cutter) {
    std::printf("start_recording_video called, len = %ld\n", length);
    const std::string key = configured_key();
    const time_t start = camera_time();
    std::printf("rawtime = %ld, cct = %d\n", static_cast<long>(start), clock_is_set() ? 8 : 0);
    std::puts("(start_recording_video) calling easyRemoteControl to perform cgi");
    if (turn.stopped()) return kNotRecording;
    if (const auto failure = make_camera_start(turn, key)) return failure;
    if (!turn.begun(start)) {
        if (!close_piece(turn, start, cutter)) return kNotRecording;
        turn.begun_in_spite(start);
    }
    touch_recording_flag_temp_file();
    std::printf("*** (start_recording_video) video_recording = 1, g_start_recording_time = %ld ***\n",
                static_cast<long>(start));
    return std::nullopt;
}

std::optional<int> close_piece(Turn &turn, time_t start, const Cutter *cutter) {
    if (const auto failure = send_video_stop()) return failure;
    const time_t end = camera_time();
    std::printf("***(stop_recording_video) video_recording = 0, endtime = %ld ***\n", static_cast<long>(end));
    sleep_milliseconds(kCameraCloseMilliseconds);
    const auto key = start != 0 ? session_key() : std::nullopt;
    if (key) write_recording_log(start, end, key);
    if (leave_recording()) remove_recording_flag_temp_file();
    // The log line may have to wait for a key; nobody else does.
    if (cutter != nullptr) {
        turn.ended_by_cut(*cutter);
    } else {
        turn.ended_by_stop();
    }
    if (start != 0 && !key) write_recording_log(start, end, key);
    return std::nullopt;
}
