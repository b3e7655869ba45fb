// The capture library: injected, synthetic and live frames, and its misbehaviours.
#include <atomic>

#include "agent_process.h"

namespace {

struct Capture : testing::Test {
    AgentProcess agent;
    int delivered(const char *kind) {
        return agent.get("/capture").at("delivered").at(kind);
    }
};

TEST_F(Capture, InjectedFramesArriveBeforeTheReply) {
    agent.post("/capture/frame", {{"kind", 1}, {"data_base64", "AAAAAWc="}, {"count", 10}});
    EXPECT_EQ(agent.get("/frames").at("video"), 10);
    agent.post("/capture/frame", {{"kind", 9}, {"data_base64", ""}});
    EXPECT_EQ(delivered("other"), 1);
}

TEST_F(Capture, SyntheticFramesHaveTheOrderedShape) {
    const json order = {{"count", 61},     {"video_fps", 30},   {"audio_fps", 60},     {"video_bytes", 300},
                        {"key_every", 20}, {"audio_bytes", 50}, {"start_code_at", 32}, {"timestamp", 1000}};
    EXPECT_EQ(agent.post("/capture/synthetic", order), json({{"video", 61}, {"audio", 120}}));
    const json frames = agent.get("/frames");
    EXPECT_EQ(frames.at("video"), 61);
    EXPECT_EQ(frames.at("audio"), 120);
    EXPECT_EQ(frames.at("video_bytes"), 61 * 300);
    EXPECT_EQ(frames.at("audio_bytes"), 120 * 57);
    const json videos = frames.at("records").at("video");
    EXPECT_EQ(videos.at(60).at("head").get<std::string>().substr(64, 10), "0000000167");
    EXPECT_EQ(videos.at(59).at("head").get<std::string>().substr(64, 10), "0000000141");
    EXPECT_EQ(videos.at(60).at("timestamp"), 2001000) << "60 frames at 30 a second after the first";
    EXPECT_EQ(agent.ask("POST", "/capture/synthetic", {{"video_bytes", 4}}).status, 400);
    EXPECT_EQ(agent.ask("POST", "/capture/synthetic", {{"key_every", 0}}).status, 400);
}

TEST_F(Capture, LiveFramesFlowBetweenStartAndStop) {
    agent.put("/capture", {{"live", {{"video_fps", 200}, {"audio_fps", 300}, {"video_bytes", 100}}}});
    EXPECT_EQ(delivered("video"), 0);
    agent.put("/watch", {{"on", true}});
    EXPECT_TRUE(eventually([&] { return delivered("video") > 5 && delivered("audio") > 5; }));
    EXPECT_EQ(agent.get("/capture").at("source"), "synthetic");
    agent.put("/watch", {{"on", false}});
    ASSERT_TRUE(eventually([&] { return agent.get("/capture").at("source") == "none"; }));
    const int after = delivered("video");
    agent.put("/watch", {{"on", true}});
    EXPECT_TRUE(eventually([&] { return delivered("video") > after; }));
    EXPECT_EQ(agent.get("/capture").at("start_count"), 2);
    EXPECT_EQ(agent.get("/capture").at("stop_count"), 1);
}

TEST_F(Capture, StalledLibraryIsStartedButDeliversNothing) {
    agent.put("/capture", {{"stalled", true}, {"live", {{"video_fps", 200}}}});
    agent.put("/watch", {{"on", true}});
    ASSERT_TRUE(eventually([&] { return agent.get("/capture").at("source") == "synthetic"; }));
    EXPECT_EQ(delivered("video"), 0);
    agent.post("/capture/frame", {{"kind", 1}, {"data_base64", "AAAAAWc="}});
    EXPECT_EQ(delivered("video"), 1);
    agent.put("/capture", {{"stalled", false}});
    EXPECT_TRUE(eventually([&] { return delivered("video") > 3; }));
}

TEST_F(Capture, RefusedStartStaysStopped) {
    agent.put("/capture", {{"start_result", -1}});
    agent.put("/watch", {{"on", true}});
    EXPECT_EQ(agent.get("/capture").at("started"), false);
    EXPECT_EQ(agent.get("/capture").at("start_count"), 1);
}

TEST_F(Capture, ErrorReachesTheCallback) {
    EXPECT_EQ(agent.post("/capture/error", {{"code", 41}}), json({{"result", 42}}));
    EXPECT_EQ(agent.ask("POST", "/capture/error", json::object()).status, 400);
}

TEST_F(Capture, UnknownProfileIsRefused) {
    EXPECT_EQ(agent.ask("PUT", "/capture", {{"profile", "RTP_H264_4K"}}).status, 400);
    agent.put("/capture", {{"profile", "RTP_H264_HD"}});
    EXPECT_EQ(agent.get("/capture").at("profile"), "RTP_H264_HD");
}

std::atomic<int> camera_stream{0};

JsonReply camera_state(const desk::JsonRequest &request) {
    EXPECT_EQ(request.path, "/state");
    return {200, {{"stream", camera_stream == 0 ? "RTP_H264_WVGA" : "RTP_H264_HD"}}};
}

TEST(CaptureProfile, FollowsTheCamera) {
    const int port = desk::start_json_server(0, camera_state);
    AgentProcess agent(std::map<std::string, std::string>{
        {"DESK_CAMERA_CONTROL", "http://127.0.0.1:" + std::to_string(port)}});
    EXPECT_EQ(agent.get("/capture").at("profile"), "RTP_H264_WQVGA");
    agent.put("/watch", {{"on", true}});
    EXPECT_TRUE(eventually([&] { return agent.get("/capture").at("profile") == "RTP_H264_WVGA"; }));
    camera_stream = 1;
    EXPECT_TRUE(eventually([&] { return agent.get("/capture").at("profile") == "RTP_H264_HD"; }));
}

}  // namespace
