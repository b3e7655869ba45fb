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

// Whether the camera takes it; else `result` is that of start_recording_video.
bool send_video_start(const std::string &key, int &result) {
    std::string reply;
    result = easyRemoteControl(key, "VIDEO_START", reply);
    if (result != 0) {
        std::printf("*** (start_recording_video) res != CURLE_OK: res = %d\n", result);
        return false;
    }
    if (contains(reply, "VIDEO_START")) return true;
    result = error_code_number(reply);
    std::printf("VIDEO_START ErrorCode: %d\n", result);
    return false;
}

// The same for a stop.
bool send_video_stop(int &result) {
    std::puts("(stop_recording_video) calling easyRemoteControl to perform cgi");
    std::string reply;
    result = easyRemoteControl(configured_key(), "VIDEO_STOP", reply);
    if (result != 0) {
        std::puts("curl video stop failed");
        return false;
    }
    if (contains(reply, "VIDEO_STOP")) return true;
    result = error_code_number(reply);
    std::printf("VIDEO_STOP ErrorCode: %d\n", result);
    return false;
}

// A start that was stopped meanwhile asks no further.
bool did_not_start(const Turn &turn) {
    return !turn.stopped() && device_status("Recording")[0] == '0' && !turn.stopped();
}

bool make_camera_start(const Turn &turn, const std::string &key, int &result) {
    if (!send_video_start(key, result)) return false;
    sleep_milliseconds(kStartCheckMilliseconds);
    if (!did_not_start(turn)) return true;
    std::puts("Retry video Recording ");
    return send_video_start(key, result);
}

}  // namespace

bool start_piece(Turn &turn, long length, const Cutter *cutter, int &result) {
    std::printf("start_recording_video called, len = %ld\n", length);
    const std::string key = configured_key();
    const time_t start = camera_time();
    std::printf("rawtime = %ld, cct = %d\n", static_cast<long>(start), clock_is_set() ? 8 : 0);
    std::puts("(start_recording_video) calling easyRemoteControl to perform cgi");
    result = kNotRecording;
    if (turn.stopped() || !make_camera_start(turn, key, result)) return false;
    if (!turn.begun(start)) {
        if (close_piece(turn, start, cutter, result)) {
            result = kNotRecording;
            return false;
        }
        turn.begun_in_spite(start);
    }
    touch_recording_flag_temp_file();
    std::printf("*** (start_recording_video) video_recording = 1, g_start_recording_time = %ld ***\n",
                static_cast<long>(start));
    return true;
}

bool close_piece(Turn &turn, time_t start, const Cutter *cutter, int &result) {
    if (!send_video_stop(result)) return false;
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
    return true;
}
