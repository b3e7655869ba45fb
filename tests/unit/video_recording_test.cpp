// Starting and stopping recordings. Period and log path are kept from their first use on: each case needs a
// process of its own, as ctest gives it.
#include <sys/stat.h>

#include <atomic>
#include <thread>
#include <vector>

#include "intercept.h"
#include "read_only_conf.h"
#include "video_recording_fixture.h"

namespace {

constexpr char kCutThread[] = "Record Period = 10\nStart Sleeping for 10 sec\n";

// --- Start

TEST_F(VideoRecording, Start) {
    hold_cutting();
    const std::string log = log_of_start(0, 0);
    EXPECT_LOG(
        log,
        "start_recording_video called, len = 0\n"
        "timezonebuf: Asia/Taipei\n"
        "rawtime = 1700028800, cct = 8\n"
        "(start_recording_video) calling easyRemoteControl to perform cgi\n"
        "[ACTION]\n" +
            status_log("1") +
            "touch_recording_flag_temp_file\n"
            "touch succeeded\n"
            "*** (start_recording_video) video_recording = 1, g_start_recording_time = 1700028800 ***\n" +
            kCutThread);
    EXPECT_EQ(camera.seen(), (Texts{"POST /CGI/RemoteControl Session=12345\n"
                                    "\r\n\r\n<RemoteControl><Action>VIDEO_START</Action></RemoteControl>",
                                    "GET /CGI/CameraStatus?Recording Session=12345"}));
    EXPECT_EQ(fake_os::pauses(), (Texts{"2000 ms", "10 s"}));
    EXPECT_EQ(load_shared(video_recording), 1);
    EXPECT_TRUE(file_exists(kFlag));
    EXPECT_EQ(read_file(kFlag), "");
    EXPECT_NE(load_shared(recVideo_t), pthread_t{});
}

TEST_F(VideoRecording, CookieComesFromTheConfiguration) {
    set_conf("SESSION_KEY", "678");
    start_quietly();
    EXPECT_EQ(camera.requests().at(0).cookie, "Session=678");
    output_of([] { stop_recording_video(); });
    EXPECT_EQ(camera.requests().at(2).cookie, "Session=678");
}

TEST_F(VideoRecording, CookieIsTheLoginsWhereTheConfigurationCannotBeWritten) {
    set_conf("SESSION_KEY", "expired");
    camera.on_request(
        [](const CameraRequest &) { return CameraReply{.headers = {"Set-Cookie: Session=7"}}; });
    {
        const ReadOnlyConf read_only;
        output_of([] { EXPECT_EQ(login(), 0); });
    }
    camera_obeys();
    camera.forget();
    start_quietly();
    EXPECT_EQ(camera.requests().at(0).cookie, "Session=7");
}

TEST_F(VideoRecording, TimezoneIsReadOnce) {
    start_quietly();
    output_of([] { stop_recording_video(); });
    set_conf("TIMEZONE", "Europe/Berlin");
    EXPECT_EQ(output_of([] { start_recording_video(0); }).find("timezonebuf"), std::string::npos);
}

TEST_F(VideoRecording, WithoutClockSynchronisationTimesArePlain) {
    store_shared(NTP_FAIL, -1);
    hold_cutting();
    const std::string start = log_of_start(0, 0);
    EXPECT_NE(start.find("rawtime = 1700000000, cct = 0\n"), std::string::npos);
    EXPECT_NE(start.find("g_start_recording_time = 1700000000 ***\n"), std::string::npos);
    const std::string stop = output_of([] { EXPECT_EQ(stop_recording_video(), 0); });
    EXPECT_NE(stop.find("endtime = 1700000012 ***\n"), std::string::npos);
    EXPECT_EQ(read_file(kLog), "20231114221320_12_A.MP4\n");
}

TEST_F(VideoRecording, SecondStartReturnsMinusTenAndSendsNothing) {
    start_quietly();
    camera.forget();
    EXPECT_EQ(output_of([] { EXPECT_EQ(start_recording_video(5), -10); }),
              "start_recording_video:line=382:video_recording=1\n");
    EXPECT_TRUE(camera.seen().empty());
}

TEST_F(VideoRecording, StartThatCannotBeSent) {
    camera.go_away();
    const std::string log = output_of([] { EXPECT_EQ(start_recording_video(0), -1); });
    EXPECT_NE(log.find("*** (start_recording_video) res != CURLE_OK: res = -1\n"), std::string::npos);
    EXPECT_EQ(log.find("VIDEO_START ErrorCode"), std::string::npos);
    EXPECT_TRUE(fake_os::pauses().empty());
    expect_idle();
}

TEST_F(VideoRecording, StartThatTheCameraRefuses) {
    camera_obeys({{"VIDEO_START", {refused(-7)}}});
    EXPECT_LOG(marked_log(output_of([] { EXPECT_EQ(start_recording_video(33), -7); })),
               "start_recording_video called, len = 33\n"
               "timezonebuf: Asia/Taipei\n"
               "rawtime = 1700028800, cct = 8\n"
               "(start_recording_video) calling easyRemoteControl to perform cgi\n"
               "[ACTION]\n"
               "VIDEO_START ErrorCode: -7\n");
    EXPECT_EQ(commands(camera), Texts{"VIDEO_START"});
    expect_idle();
}

TEST_F(VideoRecording, CameraThatDidNotStartIsAskedOnceMore) {
    camera_obeys({{"CameraStatus?Recording", {recording("0")}}});
    hold_cutting();
    EXPECT_LOG(
        log_of_start(0, 0),
        "start_recording_video called, len = 0\n"
        "timezonebuf: Asia/Taipei\n"
        "rawtime = 1700028800, cct = 8\n"
        "(start_recording_video) calling easyRemoteControl to perform cgi\n"
        "[ACTION]\n" +
            status_log("0") +
            "Retry video Recording \n"
            "[ACTION]\n"
            "touch_recording_flag_temp_file\n"
            "touch succeeded\n"
            "*** (start_recording_video) video_recording = 1, g_start_recording_time = 1700028800 ***\n" +
            kCutThread);
    EXPECT_EQ(commands(camera), (Texts{"VIDEO_START", "CameraStatus?Recording", "VIDEO_START"}));
}

TEST_F(VideoRecording, OnlyAFirstCharacterOfZeroAsksOnceMore) {
    for (const char *value : {"ON", "10", ""}) {
        camera.forget();
        camera_obeys({{"CameraStatus?Recording", {recording(value)}}});
        hold_cutting();
        output_of([] {
            EXPECT_EQ(start_recording_video(-1), 0);
            pthread_join(recVideo_t, nullptr);
        });
        EXPECT_EQ(commands(camera), (Texts{"VIDEO_START", "CameraStatus?Recording"})) << value;
        output_of([] { EXPECT_EQ(stop_recording_video(), 0); });
    }
}

TEST_F(VideoRecording, StatusThatCannotBeReadCountsAsStarted) {
    camera_obeys({{"CameraStatus?Recording", {refused(3)}}});
    errors_of([] {
        output_of([] {
            hold_cutting();
            EXPECT_EQ(start_recording_video(0), 0);
            EXPECT_TRUE(eventually([] { return fake_os::pauses().back() == "10 s"; }));
        });
    });
    EXPECT_EQ(commands(camera), (Texts{"VIDEO_START", "CameraStatus?Recording"}));
}

TEST_F(VideoRecording, SecondAskingThatTheCameraRefuses) {
    camera_obeys(
        {{"VIDEO_START", {taken("VIDEO_START"), refused(9)}}, {"CameraStatus?Recording", {recording("0")}}});
    const std::string log = output_of([] { EXPECT_EQ(start_recording_video(0), 9); });
    EXPECT_NE(log.find("Retry video Recording \n"), std::string::npos);
    EXPECT_NE(log.find("VIDEO_START ErrorCode: 9\n"), std::string::npos);
    expect_idle();
}

TEST_F(VideoRecording, SecondAskingThatGetsNoAnswer) {
    camera_obeys({{"VIDEO_START", {taken("VIDEO_START"), {.hang_up = true}}},
                  {"CameraStatus?Recording", {recording("0")}}});
    const std::string log = output_of([] { EXPECT_EQ(start_recording_video(0), -1); });
    EXPECT_NE(log.find("*** (start_recording_video) res != CURLE_OK: res = -1\n"), std::string::npos);
    expect_idle();
}

TEST_F(VideoRecording, CuttingThreadThatCannotBeCreated) {
    intercept::refuse_next("pthread_create");
    const std::string log = output_of([] { EXPECT_EQ(start_recording_video(0), EAGAIN); });
    EXPECT_EQ(log.substr(log.rfind('\n', log.size() - 2) + 1), "can't create thread qq\n");
    EXPECT_EQ(load_shared(video_recording), 1);
    // The thread is free again: the next recording gets one.
    output_of([] { EXPECT_EQ(stop_recording_video(), 0); });
    start_quietly();
}

TEST_F(VideoRecording, StartOnNoConfiguration) {
    remove_conf();
    const std::string log = output_of([] { EXPECT_EQ(start_recording_video(0), -1); });
    EXPECT_NE(log.find("timezonebuf: \n"), std::string::npos);
    EXPECT_NE(
        log.find("read hostIP in login() failed.\n*** (start_recording_video) res != CURLE_OK: res = -1\n"),
        std::string::npos);
}

// --- Stop

TEST_F(VideoRecording, Stop) {
    start_quietly();
    camera.forget();
    fake_os::set_wall(1700000025);
    const std::string log = marked_log(output_of([] { EXPECT_EQ(stop_recording_video(), 0); }));
    EXPECT_LOG(log,
               "stop_recording_video called\n"
               "(stop_recording_video) calling easyRemoteControl to perform cgi\n"
               "[ACTION]\n"
               "***(stop_recording_video) video_recording = 0, endtime = 1700028825 ***\n"
               "starttime: 1700028800, endtime: 1700028825, len: 25\n"
               "[QUERY VideoList?start=1&end=1]\n"
               "(get_latest_mp4) latest mp4 is: A.MP4\n"
               "get latest mp4 file: A.MP4 \n"
               "buffer:20231115061320_25_A.MP4\n"
               "Recording log:20231115061320_25_A.MP4\n"
               "remove_recording_flag_temp_file\n"
               "remove succeeded\n");
    EXPECT_EQ(camera.seen(), (Texts{"POST /CGI/RemoteControl Session=12345\n"
                                    "\r\n\r\n<RemoteControl><Action>VIDEO_STOP</Action></RemoteControl>",
                                    "GET /CGI/VideoList?start=1&end=1 Session=12345"}));
    EXPECT_EQ(fake_os::pauses().back(), "5000 ms");
    EXPECT_EQ(read_file(kLog), "20231115061320_25_A.MP4\n");
    expect_idle();
}

TEST_F(VideoRecording, StopWithoutARecordingReturnsMinusOneAndSendsNothing) {
    EXPECT_EQ(output_of([] { EXPECT_EQ(stop_recording_video(), -1); }),
              "stop_recording_video called\nVideo_recording is 0. Return. \n");
    EXPECT_TRUE(camera.seen().empty());
}

TEST_F(VideoRecording, StopThatCannotBeSentLeavesTheState) {
    start_quietly();
    camera.go_away();
    const std::string log = output_of([] { EXPECT_EQ(stop_recording_video(), -1); });
    EXPECT_EQ(log.substr(log.rfind('\n', log.size() - 2) + 1), "curl video stop failed\n");
    EXPECT_EQ(load_shared(video_recording), 1);
    EXPECT_TRUE(file_exists(kFlag));
    EXPECT_FALSE(file_exists(kLog));
}

TEST_F(VideoRecording, StopThatTheCameraRefusesLeavesTheState) {
    start_quietly();
    camera_obeys({{"VIDEO_STOP", {refused(-4)}}});
    EXPECT_EQ(marked_log(output_of([] { EXPECT_EQ(stop_recording_video(), -4); })),
              "stop_recording_video called\n"
              "(stop_recording_video) calling easyRemoteControl to perform cgi\n"
              "[ACTION]\n"
              "VIDEO_STOP ErrorCode: -4\n");
    EXPECT_EQ(load_shared(video_recording), 1);
    EXPECT_TRUE(file_exists(kFlag));
    EXPECT_FALSE(file_exists(kLog));
}

// A recording that the SDK has marked as running, without a start of ours.
TEST_F(VideoRecording, StopWithoutAStartTimeWritesNoLine) {
    store_shared(video_recording, 1);
    output_of([] { EXPECT_EQ(stop_recording_video(), 0); });
    EXPECT_EQ(commands(camera), Texts{"VIDEO_STOP"});
    EXPECT_FALSE(file_exists(kLog));
    expect_idle();
}

// --- The start time

TEST_F(VideoRecording, StartTimeOfTheRunningRecording) {
    start_quietly();
    char text[20];
    std::memset(text, 'x', sizeof text);
    EXPECT_EQ(output_of([&] { EXPECT_EQ(get_record_start_time(text, 18), 0); }),
              "(get_record_start_time):20231115061320\n");
    EXPECT_EQ(std::string(text, sizeof text), std::string("20231115061320\0\0\0\0xx", 20));
    output_of([&] { EXPECT_EQ(get_record_start_time(text, 15), 0); });
}

TEST_F(VideoRecording, StartTimeBeyondA4ByteTime) {
    fake_os::set_wall(4102444800);
    start_quietly();
    char text[15];
    output_of([&] { EXPECT_EQ(get_record_start_time(text, 15), 0); });
    EXPECT_STREQ(text, "21000101080000");
    output_of([] { EXPECT_EQ(stop_recording_video(), 0); });
    EXPECT_EQ(read_file(kLog), "21000101080000_12_A.MP4\n");
}

TEST_F(VideoRecording, StartTimeOfNoRecording) {
    char text[15];
    EXPECT_EQ(output_of([&] { EXPECT_EQ(get_record_start_time(text, 15), -1); }),
              "(get_record_start_time) fail: g+start_recording_video = 0\n");
}

TEST_F(VideoRecording, StartTimeInABufferOf14Bytes) {
    start_quietly();
    char text[15];
    EXPECT_EQ(output_of([&] { EXPECT_EQ(get_record_start_time(text, 14), -1); }),
              "(get_record_start_time) fail: buffer size is smaller than 15 :14\n");
    EXPECT_EQ(output_of([&] { EXPECT_EQ(get_record_start_time(nullptr, 14), -1); }),
              "(get_record_start_time) fail: buffer size is smaller than 15 :14\n");
    output_of([&] {
        EXPECT_EQ(get_record_start_time(text, -1), -1);
        EXPECT_EQ(get_record_start_time(nullptr, 15), -1);
    });
}

// --- The start-up check and the delayed stop

TEST_F(VideoRecording, StartUpWithoutAFlagFile) {
    EXPECT_EQ(output_of(checkVideoRecording),
              "checkVideoRecording\nrecording temp file(/tmp/recording.flag) not existed\n");
}

TEST_F(VideoRecording, StartUpWithAFlagFileLeavesItInPlace) {
    write_file(kFlag, "");
    EXPECT_EQ(output_of(checkVideoRecording),
              "checkVideoRecording\n"
              "recording temp file(/tmp/recording.flag) existed, stop recording\n"
              "stop_recording_video called\n"
              "Video_recording is 0. Return. \n");
    EXPECT_TRUE(file_exists(kFlag));
    EXPECT_TRUE(camera.seen().empty());
}

TEST_F(VideoRecording, StartUpIsNotLedAwayByWhatOthersPutInTheFlagFilesPlace) {
    const std::string not_there =
        "checkVideoRecording\nrecording temp file(/tmp/recording.flag) not existed\n";
    ASSERT_EQ(symlink("/etc/passwd", kFlag), 0);
    EXPECT_EQ(output_of(checkVideoRecording), not_there);
    unlink(kFlag);
    ASSERT_EQ(mkfifo(kFlag, 0600), 0);
    EXPECT_EQ(output_of(checkVideoRecording), not_there);
}

TEST_F(VideoRecording, StartUpWithoutAFlagKey) {
    set_conf("RECORDING_FLAG_FILE", "");
    EXPECT_EQ(output_of(checkVideoRecording), "checkVideoRecording\nrecording temp file() not existed\n");
}

TEST_F(VideoRecording, DelayedStop) {
    EXPECT_EQ(output_of([] { delayed_video_stop(7); }),
              "delayed_video_stop start sleeping for 7\n"
              "delayed_video_stop finish sleeping\n"
              "stop_recording_video called\n"
              "Video_recording is 0. Return. \n");
    EXPECT_EQ(fake_os::pauses(), Texts{"7000 ms"});
}

TEST_F(VideoRecording, DelayedStopOfMoreMillisecondsThanALongHolds) {
    output_of([] { delayed_video_stop(2'147'484); });
    EXPECT_EQ(fake_os::pauses(), Texts{"2147484000 ms"});
}

// --- Many threads

TEST_F(VideoRecording, StartsAndStopsFromManyThreadsAlternate) {
    constexpr int kThreads = 8, kRounds = 6;
    hold_cutting();
    std::atomic<int> started{0}, stopped{0};
    output_of([&] {
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; i++) {
            threads.emplace_back([&, i] {
                for (int n = 0; n < kRounds; n++) {
                    const int result = (i + n) % 2 ? start_recording_video(0) : stop_recording_video();
                    if (result == 0) ((i + n) % 2 ? started : stopped)++;
                    char text[15];
                    get_record_start_time(text, 15);
                }
            });
        }
        for (std::thread &thread : threads) thread.join();
    });
    EXPECT_EQ(started - stopped, load_shared(video_recording));
    std::string last = "VIDEO_STOP";
    for (const std::string &command : commands(camera)) {
        if (command != "VIDEO_START" && command != "VIDEO_STOP") continue;
        EXPECT_NE(command, last);
        last = command;
    }
}

}  // namespace
