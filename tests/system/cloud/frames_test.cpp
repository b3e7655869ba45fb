// Frames from the capture library to the cloud SDK, the watchdog over them, and real media from the encoder.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <filesystem>

#include "desk.h"

namespace {

std::string output_of(const std::string &command) {
    std::string text;
    FILE *pipe = popen(command.c_str(), "r");
    std::array<char, 256> piece;
    while (pipe != nullptr && std::fgets(piece.data(), piece.size(), pipe) != nullptr) text += piece.data();
    if (pipe != nullptr) pclose(pipe);
    return text;
}

void watch(const Desk &desk, bool on) {
    desk.sdk("PUT", "/watch", {{"on", on}});
}

// Waits until the watchdog, which looks every five seconds, has had `rounds` chances.
void wait_for_watchdog(Desk &desk, int rounds) {
    const double until = desk.sdk("GET", "/frames")["video"].get<double>() + rounds * 5 * 15.0;
    wait_until("time has passed", [&] { return desk.sdk("GET", "/frames")["video"].get<double>() >= until; });
}

}  // namespace

TEST(Frames, RecordsToTheByte) {
    Desk desk;
    desk.sdk("POST", "/capture/frame",
             {{"kind", 1}, {"timestamp", 1'234'567}, {"data_base64", "AAAAAWdCwA0="}});
    desk.sdk("POST", "/capture/frame", {{"kind", 1}, {"timestamp", 99'999}, {"data_base64", "AAAAAUGaJGw="}});
    desk.sdk("POST", "/capture/frame",
             {{"kind", 2}, {"timestamp", 4'294'967'295u}, {"data_base64", std::string(132, 'A') + "AA=="}});
    desk.sdk("POST", "/capture/frame", {{"kind", 3}, {"timestamp", 0}, {"data_base64", "AAAA"}});
    const json frames = desk.sdk("GET", "/frames");
    EXPECT_EQ(frames["video"], 2);
    EXPECT_EQ(frames["audio"], 1);
    EXPECT_EQ(frames["ownership_errors"], 0);
    const json &key = frames["records"]["video"][0], &other = frames["records"]["video"][1];
    const json &audio = frames["records"]["audio"][0];
    const json video_constants = {{"word0", 2}, {"word1", 4}, {"byte8", 0},
                                  {"word3", 0}, {"word9", 0}, {"word10", 0}};
    for (const auto &[name, value] : video_constants.items()) EXPECT_EQ(key[name], value) << name;
    EXPECT_EQ(key["key_frame"], 1);
    EXPECT_EQ(key["counter"], 4);
    EXPECT_EQ(key["timestamp"], 12);
    EXPECT_EQ(key["length"], 8);
    EXPECT_EQ(key["head"], "000000016742c00d");
    EXPECT_EQ(other["key_frame"], 0);
    EXPECT_EQ(other["counter"], 8);
    EXPECT_EQ(other["timestamp"], 0);
    const json audio_constants = {{"word0", 0}, {"word4", 0}, {"word7", 0}, {"word8", 0}};
    for (const auto &[name, value] : audio_constants.items()) EXPECT_EQ(audio[name], value) << name;
    EXPECT_EQ(audio["sequence"], 1);
    EXPECT_EQ(audio["counter"], 3);
    EXPECT_EQ(audio["timestamp"], 42949);
    EXPECT_EQ(audio["length"], 107);
    EXPECT_EQ(audio["head"].get<std::string>().substr(0, 14), "fff14c800d7ffc");
    EXPECT_EQ(desk.sdk("GET", "/variable?name=get_frame_callback_flag")["value"], 4)
        << "frames of any kind count";
}

TEST(Frames, WithoutAnEntryTheyAreDroppedAndStillCounted) {
    Desk desk;
    const AgentSize before = agent_size(desk);
    for (const int slot : {0, 7}) desk.sdk("PUT", "/table", {{"slot", slot}, {"present", false}});
    desk.sdk("POST", "/capture/synthetic", {{"count", 500}, {"pace", "fast"}});
    expect_same_size(desk, before);
    for (const int slot : {0, 7}) desk.sdk("PUT", "/table", {{"slot", slot}, {"present", true}});
    EXPECT_EQ(desk.sdk("GET", "/frames")["video"], 0);
    desk.sdk("POST", "/capture/frame", {{"kind", 1}, {"timestamp", 0}, {"data_base64", "AAAAAWdCwA0="}});
    EXPECT_EQ(desk.sdk("GET", "/frames")["records"]["video"][0]["counter"], 4 * 501);
}

TEST(Frames, AnHourAtThirtyASecondLeavesMemoryFlatAndTheCountersRight) {
    DeskOptions options;
    options.speed = 1;
    Desk desk(options);
    const auto feed = [&](int count) {
        desk.sdk("POST", "/capture/synthetic",
                 {{"video_fps", 30},
                  {"audio_fps", 47},
                  {"video_bytes", 20000},
                  {"count", count},
                  {"pace", "fast"}});
    };
    feed(2000);
    const AgentSize before = agent_size(desk);
    const int hour = sanitized_agent() ? 10'000 : 108'000;
    feed(hour);
    const json frames = desk.sdk("GET", "/frames");
    EXPECT_EQ(frames["video"], hour + 2000);
    // Each feed begins with a key frame, and each thirtieth frame after it is one.
    EXPECT_EQ(frames["key_frames"], (2000 + 29) / 30 + (hour + 29) / 30);
    EXPECT_EQ(frames["ownership_errors"], 0);
    EXPECT_EQ(frames["records"]["video"].back()["counter"], 4 * (hour + 2000));
    EXPECT_EQ(frames["records"]["audio"].back()["counter"], 3 * frames["audio"].get<int>());
    EXPECT_EQ(frames["records"]["audio"].back()["sequence"], frames["audio"]);
    expect_same_size(desk, before);
}

TEST(Watchdog, FramesThatGoOnKeepTheDeviceUp) {
    DeskOptions options;
    options.speed = 20;
    Desk desk(options);
    desk.sdk("PUT", "/capture", {{"live", {{"pace", "bent"}}}});
    watch(desk, true);
    wait_for_watchdog(desk, 5);
    EXPECT_EQ(desk.reboots(), 0);
    EXPECT_EQ(desk.count_in_log("*** c_request_video called!! *** \n"), 1);
    watch(desk, false);
    EXPECT_EQ(desk.count_in_log("*** c_end_video called!! *** \n"), 1);
    const size_t from = desk.log().size();
    desk.wait_for_cycles(4);
    EXPECT_EQ(desk.count_in_log("reboot", from), 0) << "nobody watches";
}

TEST(Watchdog, FramesThatStopWhileSomebodyWatchesRebootItOnce) {
    DeskOptions options;
    options.speed = 8;  // the first live frame has five seconds to come
    Desk desk(options);
    desk.sdk("PUT", "/capture", {{"live", {{"pace", "bent"}}}});
    watch(desk, true);
    wait_for_watchdog(desk, 2);
    const size_t from = desk.log().size();
    desk.sdk("PUT", "/capture", {{"stalled", true}});
    desk.wait_for_logs({"getframe callback was die lock , system reboot!!\n!!!***platform/Z55/ak_model ",
                        " ***** reboot operation*****\n", "vq_ipca_init return\n"},
                       from);
    EXPECT_EQ(desk.tool_calls("qmx_reboot").at(0)["args"], json{"reboot"});
    EXPECT_EQ(std::stoul(desk.tool_calls("qmx_reboot").at(0)["SigBlk"].get<std::string>(), nullptr, 16), 0u);
    desk.wait_for_cycles(3);
    EXPECT_EQ(desk.reboots(), 1);
}

TEST(Watchdog, IsSuspendedByAnUpgrade) {
    DeskOptions options;
    options.speed = 20;
    Desk desk(options);
    desk.sdk("PUT", "/variable", {{"name", "ota_enable"}, {"value", 1}});
    desk.sdk("PUT", "/capture", {{"stalled", true}});
    watch(desk, true);
    desk.wait_for_cycles(6);  // thirty seconds
    EXPECT_EQ(desk.reboots(), 0);
    EXPECT_EQ(desk.count_in_log("getframe callback was die lock"), 0);
}

TEST(Watchdog, DropsThePageCacheOfTheDeviceNotOfTheHost) {
    Desk desk;
    wait_until("the cache is dropped", [] { return file_text("/tmp/.device/drop_caches") == "1"; });
    wait_until("it was written back before", [&] { return !desk.tool_calls("sync").empty(); });
}

TEST(Capture, AnErrorRebootsTheDeviceAndNoneIsLogged) {
    Desk desk;
    desk.sdk("POST", "/capture/error", {{"code", 0}});
    desk.wait_for_log("error_callback: 0\n!!!***platform/Z55/frame/frame ");
    EXPECT_EQ(desk.reboots(), 0);
    const size_t from = desk.log().size();
    try {
        desk.sdk("POST", "/capture/error", {{"code", 3}});
    } catch (const std::exception &) {
        // The connection goes with the process.
    }
    desk.wait_for_logs({"error_callback: 3\n", "Error code != 0. Rebooting......\n", "vq_ipca_init return\n"},
                       from);
    EXPECT_EQ(desk.reboots(), 1);
}

TEST(Capture, WithoutItTheSessionEndsAndEverythingElseGoesOn) {
    DeskOptions options;
    options.wait = DeskOptions::started;
    options.environment["DESK_SDK_AT_LOAD"] = R"([["PUT","/capture",{"init_result":-1}]])";
    Desk desk(options);
    desk.wait_for_log("ExFramer_Capture_Init fail\n");
    desk.wait_for_cycles(2);
    EXPECT_EQ(desk.call("get_device_status", {"Battery"})["value"], "90");
}

#ifdef DESK_ENCODER
TEST(Media, WhatTheEncoderMakesIsValidBehindTheAgent) {
    DeskOptions options;
    options.speed = 1;
    options.environment["DESK_ENCODER"] = DESK_ENCODER;
    Desk desk(options);
    watch(desk, true);
    desk.sdk("POST", "/frames/save", {{"h264", "/tmp/clip.h264"}, {"aac", "/tmp/clip.aac"}});
    const int enough = 65;  // frames: two more key frames after the first
    const int begun = desk.sdk("GET", "/frames")["video"];
    wait_until("the clip is long enough",
               [&] { return desk.sdk("GET", "/frames")["video"] >= begun + enough + 30; });
    const json saved = desk.sdk("POST", "/frames/stop");
    watch(desk, false);
    EXPECT_EQ(saved["dropped"], 0);
    ASSERT_FALSE(output_of("command -v ffprobe").empty()) << "ffprobe is missing: ./test installs it";
    const std::string probe = "ffprobe -v error -count_frames -of csv=p=0 ";
    EXPECT_EQ(output_of(probe + "-show_entries stream=codec_name,nb_read_frames /tmp/clip.h264 2>&1"),
              "h264," + std::to_string(saved["video"].get<int>()) + "\n");
    EXPECT_EQ(
        output_of(probe +
                  "-show_entries stream=codec_name,sample_rate,channels,nb_read_frames /tmp/clip.aac 2>&1"),
        "aac,48000,2," + std::to_string(saved["audio"].get<int>()) + "\n");
    const std::string keys = output_of(
        "ffprobe -v error -show_entries frame=key_frame -of csv=p=0 /tmp/clip.h264 2>&1 | grep -c '^1'");
    EXPECT_EQ(std::stoi(keys), saved["key_frames"].get<int>());
    EXPECT_GE(saved["key_frames"].get<int>(), 2);
}
#endif
