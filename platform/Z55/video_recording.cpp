#include "video_recording.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>

#include "agent/loginout.h"
#include "agent/utils/conf_file.h"
#include "agent/utils/os.h"
#include "agent/utils/reply_text.h"
#include "ak_model/clock.h"
#include "ak_model/status_read.h"
#include "exports.h"
#include "recording_log.h"
#include "shared.h"
#include "z55cgi.h"

constinit int video_recording = 0;  // atomic; written under recording_lock

constinit pthread_t recVideo_t{};  // atomic; the autocut thread started last
constinit pthread_attr_t recVideo_attr{};

namespace {

constexpr long kStartCheckMilliseconds = 2000;
constexpr long kCameraCloseMilliseconds = 5000;
constexpr int kAlreadyRecording = -10;
constexpr size_t kStartTimeSize = 15;

// Serialises starts and stops with their requests and pauses. Nobody who only reads the state waits for it.
constinit std::mutex recording_lock;

constinit std::int64_t g_start_recording_time =
    0;  // atomic; the running recording's start as the camera has it, or 0

// The one cutting thread: it is claimed by a start and given up by the thread, each in one step with the look
// at video_recording, so that a recording is never left without the thread that it counts on.
constinit std::mutex autocut_lock;
constinit bool autocut_running = false;

// Read from the configuration when first needed; 0 and "" when not yet.
constinit std::mutex cache_lock;
constinit int cached_period = 0;
std::string cached_timezone;

int recording_period() {
    const std::lock_guard<std::mutex> lock(cache_lock);
    if (cached_period == 0) cached_period = conf_number("RECORDING_PERIOD").value_or(0);
    return cached_period;
}

void read_timezone() {
    const std::lock_guard<std::mutex> lock(cache_lock);
    if (!cached_timezone.empty()) return;
    cached_timezone = conf_value("TIMEZONE").value_or("");
    std::printf("timezonebuf: %s\n", cached_timezone.c_str());
}

bool clock_is_set() {
    return load_shared(NTP_FAIL) == 0;
}

// Now, as the camera's clock has it: that was set with the offset if it was set at all.
time_t camera_time() {
    read_timezone();
    return wall_seconds() + (clock_is_set() ? kHomeOffsetSeconds : 0);
}

std::string configured_cookie() {
    char key[kSessionKeySize];
    conf_value_into(key, "SESSION_KEY");
    return session_cookie(key);
}

bool contains(const std::string &text, const char *word) {
    return text.find(word) != std::string::npos;
}

// What asking the camera to start came to: nothing on success, else the result of start_recording_video.
std::optional<int> send_video_start(const std::string &cookie_text) {
    std::string reply;
    if (const int result = easyRemoteControl(cookie_text, "VIDEO_START", reply)) {
        std::printf("*** (start_recording_video) res != CURLE_OK: res = %d\n", result);
        return result;
    }
    if (contains(reply, "VIDEO_START")) return std::nullopt;
    const int code = error_code_number(reply);
    std::printf("VIDEO_START ErrorCode: %d\n", code);
    return code;
}

// Claims the autocut thread for a recording; false when one runs, which then goes on with this recording.
bool claim_autocut() {
    const std::lock_guard<std::mutex> lock(autocut_lock);
    if (autocut_running) return false;
    autocut_running = true;
    return true;
}

void give_up_autocut() {
    const std::lock_guard<std::mutex> lock(autocut_lock);
    autocut_running = false;
}

// Gives the thread up if its recording was stopped meanwhile.
bool leave_if_stopped() {
    const std::lock_guard<std::mutex> lock(autocut_lock);
    if (load_shared(video_recording) != 0) return false;
    autocut_running = false;
    return true;
}

int start_autocut(long len) {
    if (!claim_autocut()) return 0;
    pthread_t thread{};
    void *argument = reinterpret_cast<void *>(static_cast<std::intptr_t>(len));
    if (const int error = pthread_create(&thread, &recVideo_attr, autocut_recording, argument)) {
        give_up_autocut();
        std::puts("can't create thread qq");
        return error;
    }
    store_shared(recVideo_t, thread);
    return 0;
}

bool refused_as_running(int line) {
    const int recording = load_shared(video_recording);
    if (recording == 0) return false;
    std::printf("%s:line=%d:video_recording=%d\n", "start_recording_video", line, recording);
    return true;
}

bool refused_as_stopped() {
    if (load_shared(video_recording) != 0) return false;
    std::puts("Video_recording is 0. Return. ");
    return true;
}

void enter_recording(time_t start) {
    store_shared(video_recording, 1);
    store_shared(g_start_recording_time, static_cast<std::int64_t>(start));
    touch_recording_flag_temp_file();
    std::printf("*** (start_recording_video) video_recording = 1, g_start_recording_time = %ld ***\n",
                static_cast<long>(start));
}

void leave_recording() {
    store_shared(g_start_recording_time, std::int64_t{0});
    store_shared(video_recording, 0);
    remove_recording_flag_temp_file();
}

void log_sleep(int seconds) {
    std::printf("Start Sleeping for %d sec\n", seconds);
}

void log_cut_stop(int len) {
    std::printf("(autocut_recording) stop_recording_video. len = %d\n", len);
}

void log_cut_start(int len) {
    std::printf("(autocut_recording). start_recording_video len = %d\n", len);
}

// Pieces of one period until somebody else stops the recording.
void cut_until_stopped(int period) {
    if (period <= 0) {
        give_up_autocut();
        return;
    }
    for (;;) {
        log_sleep(period);
        pause_seconds(period);
        if (leave_if_stopped()) return;
        log_cut_stop(0);
        stop_recording_video();
        log_cut_start(0);
        start_recording_video(0);
    }
}

// Pieces of one period until `remaining` seconds are used up; one piece where there is no period.
void cut_until_used_up(int remaining, int period) {
    for (;;) {
        const int wait = period > 0 ? std::min(remaining, period) : remaining;
        remaining -= period > 0 ? period : remaining;
        log_sleep(wait);
        pause_seconds(wait);
        log_cut_stop(remaining);
        // Given up before the last stop: a start that follows it must find the thread free.
        if (remaining < 1) give_up_autocut();
        stop_recording_video();
        if (remaining < 1) return;
        log_cut_start(remaining);
        start_recording_video(remaining);
    }
}

}  // namespace

int start_recording_video(long len) {
    if (refused_as_running(382)) return kAlreadyRecording;
    const std::lock_guard<std::mutex> lock(recording_lock);
    if (refused_as_running(382)) return kAlreadyRecording;
    std::printf("start_recording_video called, len = %ld\n", len);
    const std::string cookie_text = configured_cookie();
    const time_t start = camera_time();
    std::printf("rawtime = %ld, cct = %d\n", static_cast<long>(start), clock_is_set() ? 8 : 0);
    std::puts("(start_recording_video) calling easyRemoteControl to perform cgi");
    if (const auto failure = send_video_start(cookie_text)) return *failure;
    sleep_milliseconds(kStartCheckMilliseconds);
    if (device_status("Recording")[0] == '0') {
        std::puts("Retry video Recording ");
        if (const auto failure = send_video_start(cookie_text)) return *failure;
    }
    enter_recording(start);
    return start_autocut(len);
}

int stop_recording_video(void) {
    std::puts("stop_recording_video called");
    if (refused_as_stopped()) return -1;
    const std::lock_guard<std::mutex> lock(recording_lock);
    if (refused_as_stopped()) return -1;
    std::puts("(stop_recording_video) calling easyRemoteControl to perform cgi");
    std::string reply;
    if (const int result = easyRemoteControl(configured_cookie(), "VIDEO_STOP", reply)) {
        std::puts("curl video stop failed");
        return result;
    }
    if (!contains(reply, "VIDEO_STOP")) {
        const int code = error_code_number(reply);
        std::printf("VIDEO_STOP ErrorCode: %d\n", code);
        return code;
    }
    const time_t end = camera_time();
    std::printf("***(stop_recording_video) video_recording = 0, endtime = %ld ***\n", static_cast<long>(end));
    sleep_milliseconds(kCameraCloseMilliseconds);
    if (const time_t start = static_cast<time_t>(load_shared(g_start_recording_time)))
        write_recording_log(start, end);
    leave_recording();
    return 0;
}

void *autocut_recording(void *length) {
    const int len = static_cast<int>(reinterpret_cast<std::intptr_t>(length));
    claim_autocut();  // does nothing where the start has claimed it already
    const int period = recording_period();
    std::printf("Record Period = %d\n", period);
    if (len == 0) {
        cut_until_stopped(period);
    } else if (len > 0) {
        cut_until_used_up(len, period);
    } else {
        give_up_autocut();
    }
    return nullptr;
}

int get_record_start_time(char *buffer, int size) {
    const time_t start = static_cast<time_t>(load_shared(g_start_recording_time));
    if (start == 0) {
        std::puts("(get_record_start_time) fail: g+start_recording_video = 0");
        return -1;
    }
    if (buffer == nullptr || size < static_cast<int>(kStartTimeSize)) {
        std::printf("(get_record_start_time) fail: buffer size is smaller than 15 :%d\n", size);
        return -1;
    }
    std::memset(buffer, 0, static_cast<size_t>(size));
    copy_text(buffer, static_cast<size_t>(size), recording_time_text(start));
    std::printf("(get_record_start_time):%s\n", buffer);
    return 0;
}

void checkVideoRecording() {
    std::puts("checkVideoRecording");
    const std::string path = recording_flag_path();
    FILE *file = std::fopen(path.c_str(), "re");
    if (file == nullptr) {
        std::printf("recording temp file(%s) not existed\n", path.c_str());
        return;
    }
    std::fclose(file);
    std::printf("recording temp file(%s) existed, stop recording\n", path.c_str());
    stop_recording_video();
}

void delayed_video_stop(long seconds) {
    std::printf("delayed_video_stop start sleeping for %ld\n", seconds);
    sleep_milliseconds(seconds * 1000);
    std::puts("delayed_video_stop finish sleeping");
    stop_recording_video();
}
