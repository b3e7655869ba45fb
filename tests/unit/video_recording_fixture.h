// A camera that records as it is told, and what recordings leave behind.
#ifndef UNIT_VIDEO_RECORDING_FIXTURE_H
#define UNIT_VIDEO_RECORDING_FIXTURE_H

#include <pthread.h>
#include <unistd.h>

#include <cstring>
#include <ctime>
#include <string>

#include "agent_test.h"
#include "camera_script.h"
#include "exports.h"
#include "marked_log.h"
#include "shared.h"
#include "video_recording.h"

inline constexpr char kFlag[] = "/tmp/recording.flag";
inline constexpr char kLog[] = "/tmp/recording.log";

// What reading the camera's "Recording" prints.
inline std::string status_log(const std::string &value) {
    return log_of_status("Recording", "Recording", value);
}

inline CameraReply recording(const char *value) {
    return {.body = std::string("<Recording>") + value + "</Recording>"};
}

class VideoRecording : public CameraTest {
  protected:
    void SetUp() override {
        CameraTest::SetUp();
        set_conf("RECORDING_FLAG_FILE", kFlag);
        set_conf("RECORDING_LOG_FILE", kLog);
        set_conf("RECORDING_PERIOD", "10");
        set_conf("TIMEZONE", "Asia/Taipei");
        unlink(kFlag);
        unlink(kLog);
        std::strcpy(hostIP, FakeCamera::kHost);
        setenv("TZ", "UTC", 1);
        tzset();
        // Joinable here, so that a test sees the cutting thread's end.
        pthread_attr_init(&recVideo_attr);
        camera_obeys();
    }

    void camera_obeys(CameraScript changed = {}) {
        CameraScript script = {
            {"VIDEO_START", {taken("VIDEO_START")}},
            {"VIDEO_STOP", {taken("VIDEO_STOP")}},
            {"CameraStatus?Recording", {recording("1")}},
            {"VideoList?start=1&end=1", {{.body = "<Name>A.MP4</Name>"}}},
        };
        for (auto &[command, replies] : changed) script[command] = std::move(replies);
        play_script(camera, std::move(script));
    }

    // The cutting thread stays in its first wait for ever.
    static void hold_cutting() {
        fake_os::on_pause([](const std::string &pause) {
            if (pause == "10 s") fake_os::park();
        });
    }
    // What a start prints until its cutting thread waits.
    static std::string log_of_start(long length, int expected_result) {
        return marked_log(output_of([&] {
            EXPECT_EQ(start_recording_video(length), expected_result);
            EXPECT_TRUE(eventually([] { return fake_os::pauses().back() == "10 s"; }));
        }));
    }
    static void start_quietly() {
        hold_cutting();
        log_of_start(0, 0);
    }
    static void expect_idle() {
        EXPECT_EQ(load_shared(video_recording), 0);
        EXPECT_FALSE(file_exists(kFlag));
        char text[15];
        output_of([&] { EXPECT_EQ(get_record_start_time(text, 15), -1); });
    }
};

#endif
