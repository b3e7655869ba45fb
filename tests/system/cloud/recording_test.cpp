// Recordings with their real periods under bent time: start, cut, stop, log, refusals.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <regex>
#include <sstream>

#include "wire.h"

namespace {

constexpr char kLog[] = "/tmp/fuse_d/recording.log";
constexpr char kFlag[] = "/tmp/working/recording";

int variable(const Desk &desk, const std::string &name) {
    return desk.sdk("GET", "/variable?name=" + name)["value"];
}

int start(const Desk &desk, int seconds) {
    return desk.call("start_recording_video", {seconds})["result"];
}

int stop(const Desk &desk) {
    return desk.call("stop_recording_video", json::array())["result"];
}

// The actions asked of the camera after `since`.
std::vector<std::string> actions(const Desk &desk, long since) {
    std::vector<std::string> names;
    const std::regex action("<Action>(.*)</Action>");
    for (const json &request : desk.requests("RemoteControl", since)) {
        std::smatch match;
        const std::string body = request["body"];
        names.push_back(std::regex_search(body, match, action) ? match[1].str() : "");
    }
    return names;
}

std::vector<std::string> lines(const std::string &path) {
    std::istringstream stream(file_text(path));
    std::vector<std::string> all;
    for (std::string line; std::getline(stream, line);) all.push_back(line);
    return all;
}

using Names = std::vector<std::string>;

}  // namespace

TEST(Recording, TwentyFiveSecondsAreCutIntoTenTenAndFive) {
    DeskOptions options;
    options.speed = 20;
    Desk desk(options);
    const long since = desk.last_request();
    const size_t from = desk.log().size();
    EXPECT_EQ(start(desk, 25), 0);
    EXPECT_EQ(variable(desk, "video_recording"), 1);
    EXPECT_TRUE(std::filesystem::exists(kFlag));
    EXPECT_EQ(file_text(kFlag), "");
    desk.wait_for_logs(
        {"start_recording_video called, len = 25\n", "Record Period = 10\n", "Start Sleeping for 10 sec\n",
         "(autocut_recording) stop_recording_video. len = 15\n",
         "(autocut_recording). start_recording_video len = 15\n", "start_recording_video called, len = 15\n",
         "Start Sleeping for 10 sec\n", "(autocut_recording) stop_recording_video. len = 5\n",
         "(autocut_recording). start_recording_video len = 5\n", "Start Sleeping for 5 sec\n",
         "(autocut_recording) stop_recording_video. len = -5\n", "remove succeeded\n"},
        from);
    EXPECT_EQ(variable(desk, "video_recording"), 0);
    EXPECT_FALSE(std::filesystem::exists(kFlag));
    EXPECT_EQ(actions(desk, since),
              (Names{"VIDEO_START", "VIDEO_STOP", "VIDEO_START", "VIDEO_STOP", "VIDEO_START", "VIDEO_STOP"}));
    const auto log = lines(kLog);
    ASSERT_EQ(log.size(), 3u);
    for (size_t i = 0; i < 3; i++)
        EXPECT_TRUE(
            std::regex_match(log[i], std::regex("\\d{14}_\\d+_AAAA000" + std::to_string(i + 1) + "\\.MP4")))
            << log[i];
    EXPECT_EQ(desk.camera_state()["recording"]["active"], false);
}

TEST(Recording, AnEndlessOneIsCutUntilSomebodyStopsIt) {
    DeskOptions options;
    options.speed = 20;
    Desk desk(options);
    const AgentSize before = agent_size(desk);
    const long since = desk.last_request();
    size_t from = desk.log().size();
    EXPECT_EQ(start(desk, 0), 0);
    from =
        desk.wait_for_logs({"(autocut_recording). start_recording_video len = 0\n",
                            "*** (start_recording_video) video_recording = 1", "Start Sleeping for 10 sec\n"},
                           from);
    EXPECT_EQ(stop(desk), 0);
    EXPECT_EQ(actions(desk, since), (Names{"VIDEO_START", "VIDEO_STOP", "VIDEO_START", "VIDEO_STOP"}));
    EXPECT_EQ(lines(kLog).size(), 2u);
    desk.wait_for_cycles(3);  // fifteen seconds: the cutting thread has woken and left
    expect_same_size(desk, before);
    EXPECT_EQ(actions(desk, since).size(), 4u) << "without a further stop";
    EXPECT_EQ(start(desk, 0), 0);
    desk.wait_for_log("Record Period = 10\n", from);
    EXPECT_EQ(stop(desk), 0);
}

// The camera is slow to take the stop: the cutting thread wakes while it is under way.
TEST(Recording, AStopNearACutEndsTheJob) {
    DeskOptions options;
    options.speed = 20;
    options.conf["RECORDING_PERIOD"] = "4";
    Desk desk(options);
    size_t pieces = 0;
    for (const int length : {0, 9}) {
        const long since = desk.last_request();
        ASSERT_EQ(start(desk, length), 0);
        desk.fault({{"endpoint", "RemoteControl"}, {"match", "VIDEO_STOP"}, {"kind", "delay"}, {"ms", 700}});
        EXPECT_EQ(stop(desk), 0);
        desk.wait_for_cycles(4);  // twenty seconds: enough for a next piece
        EXPECT_EQ(actions(desk, since), (Names{"VIDEO_START", "VIDEO_STOP"}));
        EXPECT_EQ(variable(desk, "video_recording"), 0);
        EXPECT_EQ(desk.camera_state()["recording"]["active"], false);
        EXPECT_FALSE(std::filesystem::exists(kFlag));
        EXPECT_EQ(lines(kLog).size(), ++pieces);
    }
}

TEST(Recording, AJobAfterAStopIsCutByTheThreadThatStillSleeps) {
    DeskOptions options;
    options.speed = 20;
    options.conf["RECORDING_PERIOD"] = "100000";
    Desk desk(options);
    const long since = desk.last_request();
    const size_t from = desk.log().size();
    ASSERT_EQ(start(desk, 0), 0);
    desk.wait_for_log("Start Sleeping for 100000 sec\n", from);
    EXPECT_EQ(stop(desk), 0);
    EXPECT_EQ(start(desk, 5), 0);
    desk.wait_for_logs({"Start Sleeping for 5 sec\n",
                        "(autocut_recording) stop_recording_video. len = -99995\n", "remove succeeded\n"},
                       from);
    EXPECT_EQ(desk.count_in_log("Record Period = 100000\n", from), 1);
    EXPECT_EQ(actions(desk, since), (Names{"VIDEO_START", "VIDEO_STOP", "VIDEO_START", "VIDEO_STOP"}));
    EXPECT_EQ(variable(desk, "video_recording"), 0);
    EXPECT_EQ(lines(kLog).size(), 2u);
}

// The session key is gone and the login does not come back: a stop cannot ask for the file's name.
TEST(Recording, AStopThatWaitsForASessionKeyHoldsNobody) {
    DeskOptions options;
    options.speed = 20;
    options.conf["RECORDING_PERIOD"] = "100000";
    Desk desk(options);
    ASSERT_EQ(start(desk, 1000), 0);
    const size_t from = desk.log().size();
    desk.fault({{"endpoint", "CameraLogin"}, {"kind", "hang"}});
    desk.fault({{"endpoint", "CameraStatus"}, {"kind", "error_code"}, {"value", -2}, {"count", 1}});
    desk.wait_for_log("***(login) curl_perform starts ***\n", from);
    std::future<int> first = std::async(std::launch::async, [&] { return stop(desk); });
    desk.wait_for_log("remove succeeded\n", from);
    EXPECT_EQ(variable(desk, "video_recording"), 0);
    EXPECT_FALSE(std::filesystem::exists(kFlag));
    for (int i = 0; i < 3; i++) EXPECT_EQ(stop(desk), -1);
    EXPECT_EQ(start(desk, 1000), 0);
    EXPECT_EQ(lines(kLog).size(), 0u);
    desk.clear_faults();
    EXPECT_EQ(first.get(), 0);
    EXPECT_EQ(lines(kLog).size(), 1u);
    EXPECT_EQ(stop(desk), 0);
    EXPECT_EQ(lines(kLog).size(), 2u);
    EXPECT_EQ(desk.camera_state()["recording"]["active"], false);
}

TEST(Recording, ASecondStartAndAStopWithoutOneSendNothing) {
    Desk desk;
    long since = desk.last_request();
    size_t from = desk.log().size();
    EXPECT_EQ(stop(desk), -1);
    EXPECT_EQ(commands(desk, since), Names{});
    desk.wait_for_log("stop_recording_video called\nVideo_recording is 0. Return. \n", from);
    EXPECT_EQ(desk.call("get_record_start_time", {32})["result"], -1);
    ASSERT_EQ(start(desk, 1000), 0);
    since = desk.last_request();
    from = desk.log().size();
    EXPECT_EQ(start(desk, 1), -10);
    EXPECT_EQ(commands(desk, since), Names{});
    desk.wait_for_log("start_recording_video:line=382:video_recording=1\n", from);
    EXPECT_EQ(desk.call("get_record_start_time", {14})["result"], -1);
    desk.wait_for_log("(get_record_start_time) fail: buffer size is smaller than 15 :14\n", from);
    const json started = desk.call("get_record_start_time", {15});
    EXPECT_EQ(started["result"], 0);
    EXPECT_EQ(started["value"].get<std::string>().size(), 14u);
    EXPECT_EQ(desk.call("set_device_param", {"manual_record", "0"})["result"], 0);
    EXPECT_EQ(variable(desk, "video_recording"), 0);
}

TEST(Recording, ARefusedStartIsNoRecording) {
    Desk desk;
    desk.camera("PATCH", "/config", {{"recording_refuse", -7}});
    const size_t from = desk.log().size();
    EXPECT_EQ(start(desk, 10), -7);
    desk.wait_for_log("VIDEO_START ErrorCode: -7\n", from);
    EXPECT_EQ(variable(desk, "video_recording"), 0);
    EXPECT_FALSE(std::filesystem::exists(kFlag));
    desk.camera("PATCH", "/config", {{"recording_refuse", 0}});
    desk.fault({{"endpoint", "RemoteControl"}, {"kind", "reset"}, {"count", 1}});
    EXPECT_EQ(start(desk, 10), -1);
    EXPECT_EQ(variable(desk, "video_recording"), 0);
}

TEST(Recording, AStartThatDoesNotTakeIsTriedOnceMore) {
    Desk desk;
    desk.camera("PATCH", "/config", {{"recording_ignore", 1}});
    const long since = desk.last_request();
    EXPECT_EQ(desk.call("set_device_param", {"manual_record", "1"})["result"], 0);
    EXPECT_EQ(actions(desk, since), (Names{"VIDEO_START", "VIDEO_START"}));
    desk.wait_for_log("Retry video Recording \n");
    EXPECT_EQ(variable(desk, "video_recording"), 1);
    EXPECT_EQ(desk.camera_state()["recording"]["active"], true);
    EXPECT_EQ(stop(desk), 0);
}

TEST(Recording, TheCameraRefusingInTheMiddleOfACutJobIsNeverClaimedToRecord) {
    DeskOptions options;
    options.speed = 20;
    Desk desk(options);
    const size_t from = desk.log().size();
    ASSERT_EQ(start(desk, 30), 0);
    desk.camera("PATCH", "/config", {{"recording_refuse", -7}});
    desk.wait_for_logs({"(autocut_recording). start_recording_video len = 20\n",
                        "VIDEO_START ErrorCode: -7\n", "Start Sleeping for 10 sec\n"},
                       from);
    EXPECT_EQ(variable(desk, "video_recording"), 0);
    EXPECT_FALSE(std::filesystem::exists(kFlag));
    desk.camera("PATCH", "/config", {{"recording_refuse", 0}});
    desk.wait_for_logs({"(autocut_recording). start_recording_video len = 10\n",
                        "*** (start_recording_video) video_recording = 1", "remove succeeded\n"},
                       from);
    EXPECT_EQ(lines(kLog).size(), 2u);
    EXPECT_EQ(variable(desk, "video_recording"), 0);
}

TEST(Recording, ARefusedStopLeavesTheRecordingAsItIs) {
    Desk desk;
    ASSERT_EQ(start(desk, 1000), 0);
    desk.fault({{"endpoint", "RemoteControl"},
                {"match", "VIDEO_STOP"},
                {"kind", "error_code"},
                {"value", -9},
                {"count", 1}});
    EXPECT_EQ(stop(desk), -9);
    EXPECT_EQ(variable(desk, "video_recording"), 1);
    EXPECT_TRUE(std::filesystem::exists(kFlag));
    EXPECT_EQ(stop(desk), 0);
}

TEST(Recording, StartsAndStopsFromManyThreadsKeepStateAndCameraInStep) {
    DeskOptions options;
    options.speed = 100;
    Desk desk(options);
    desk.sdk(
        "POST", "/call",
        {{"name", "start_recording_video"}, {"args", {0}}, {"threads", 8}, {"repeat", 3}, {"async", true}});
    desk.sdk("POST", "/call",
             {{"name", "stop_recording_video"}, {"args", json::array()}, {"threads", 8}, {"repeat", 3}});
    wait_until("all calls are answered", [&] { return desk.sdk("GET", "/calls")["running"] == 0; });
    if (variable(desk, "video_recording") == 1) {
        EXPECT_EQ(stop(desk), 0);
    }
    EXPECT_EQ(desk.camera_state()["recording"]["active"], false);
    EXPECT_FALSE(std::filesystem::exists(kFlag));
}

TEST(Recording, AResolutionChangeWaitsForNobodyAndChangesNoStream) {
    Desk desk;
    ASSERT_EQ(start(desk, 1000), 0);
    const long since = desk.last_request();
    const size_t from = desk.log().size();
    desk.call("set_device_param", {"high_definition", "2"});
    desk.wait_for_logs({"resolutionChange:line=", ":video_recording=1\n"}, from);
    EXPECT_EQ(desk.call("get_device_param", {"high_definition"})["value"], "2");
    EXPECT_EQ(commands(desk, since), Names{});
    EXPECT_EQ(stop(desk), 0);
}

TEST(Recording, AFlagLeftFromBeforeIsReportedAndLeft) {
    DeskOptions options;
    options.wait = DeskOptions::not_started;
    Desk desk(options);
    { std::ofstream flag(kFlag); }
    desk.start_agent();
    desk.wait_for_log(
        "checkVideoRecording\nrecording temp file(/tmp/working/recording) existed, stop recording\n");
    desk.wait_for_log("vq_ipca_init return\n");
    EXPECT_TRUE(std::filesystem::exists(kFlag));
}

TEST(Recording, StepsOfTheWallClockByYearsCutNoPieceShortOrLong) {
    DeskOptions options;
    options.speed = 20;
    Desk desk(options);
    const long since = desk.last_request();
    size_t from = desk.log().size();
    ASSERT_EQ(start(desk, 0), 0);
    for (const double step : {-4e8, 3e8, -1e8}) {
        from = desk.wait_for_log("Start Sleeping for 10 sec\n", from);
        desk.step_wall_clock(step);
    }
    desk.wait_for_log("Start Sleeping for 10 sec\n", from);
    EXPECT_EQ(stop(desk), 0);
    double started = 0;
    int pieces = 0;
    for (const json &request : desk.requests("RemoteControl", since)) {
        const double at = request["time_ms"].get<double>() / 1000 * desk.speed();
        const std::string body = request["body"];
        if (body.find("VIDEO_START") != std::string::npos) started = at;
        if (body.find("VIDEO_STOP") == std::string::npos || pieces == 3) continue;
        EXPECT_GT(at - started, 10.0);
        EXPECT_LT(at - started, 10.0 + 2 + 20) << "bent seconds; the machine may be busy";
        pieces++;
    }
    EXPECT_EQ(pieces, 3);
}
