// Frames from the capture library through the agent's sink to the SDK's slots and files.
#include <fstream>
#include <iterator>

#include "agent_process.h"

namespace {

std::string file_text(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

struct Frames : testing::Test {
    AgentProcess agent;
};

TEST_F(Frames, VideoRecordIsKeptWordByWord) {
    agent.post("/capture/frame", {{"kind", 1}, {"timestamp", 4000000000U}, {"data_base64", "AAAAAWc="}});
    const json frames = agent.get("/frames");
    EXPECT_EQ(frames.at("video"), 1);
    EXPECT_EQ(frames.at("key_frames"), 1);
    EXPECT_EQ(frames.at("video_bytes"), 5);
    json record = frames.at("records").at("video").at(0);
    record.erase("real_ms");
    record.erase("tid");
    EXPECT_EQ(record, json({{"seq", 1},
                            {"word0", 2},
                            {"word1", 4},
                            {"byte8", 0},
                            {"padding", "000000"},
                            {"word3", 0},
                            {"key_frame", 1},
                            {"counter", 1},
                            {"timestamp", 4000000000U},
                            {"length", 5},
                            {"word9", 0},
                            {"word10", 0},
                            {"head", "0000000167"}}));
}

TEST_F(Frames, AudioRecordIsKeptWordByWord) {
    agent.post("/capture/frame",
               {{"kind", 2}, {"timestamp", 5}, {"data_base64", "AQID"}, {"count", 2}, {"timestamp_step", 3}});
    json record = agent.get("/frames").at("records").at("audio").at(1);
    record.erase("real_ms");
    record.erase("tid");
    EXPECT_EQ(record, json({{"seq", 2},
                            {"word0", 0},
                            {"sequence", 2},
                            {"counter", 6},
                            {"timestamp", 8},
                            {"word4", 0},
                            {"length", 10},
                            {"word7", 0},
                            {"word8", 0},
                            {"head", "fff14c80015ffc010203"}}));
}

TEST_F(Frames, OnlyTheNewestRecordsStay) {
    agent.post("/capture/synthetic", {{"count", 100}, {"audio_fps", 0}, {"video_bytes", 200}});
    const json frames = agent.get("/frames");
    ASSERT_EQ(frames.at("records").at("video").size(), 64U);
    EXPECT_EQ(frames.at("records").at("video").at(0).at("seq"), 37);
    EXPECT_EQ(frames.at("records").at("video").at(63).at("head").get<std::string>().size(), 128U);
    agent.ask("DELETE", "/frames");
    EXPECT_EQ(agent.get("/frames").at("video"), 0);
    EXPECT_EQ(agent.get("/frames").at("records").at("video").size(), 0U);
}

TEST_F(Frames, EmptySlotGetsNothing) {
    agent.put("/table", {{"slot", 7}, {"present", false}});
    agent.put("/table", {{"slot", 0}, {"present", false}});
    agent.post("/capture/synthetic", {{"count", 5}});
    EXPECT_EQ(agent.get("/frames").at("video"), 0);
    EXPECT_EQ(agent.get("/frames").at("audio"), 0);
    EXPECT_EQ(agent.get("/capture").at("delivered").at("video"), 5);
}

TEST_F(Frames, MissingDataIsAnOwnershipError) {
    agent.post("/capture/frame", {{"kind", 1}, {"data_base64", "AQID"}, {"field2", 77}});
    EXPECT_EQ(agent.get("/frames").at("ownership_errors"), 1);
    agent.post("/capture/frame", {{"kind", 1}, {"data_base64", "AQID"}});
    EXPECT_EQ(agent.get("/frames").at("ownership_errors"), 1);
}

TEST_F(Frames, FilesHoldAllFromTheNextKeyFrameOn) {
    const std::string h264 = agent.folder().path("clip.h264"), aac = agent.folder().path("clip.aac");
    agent.post("/frames/save", {{"h264", h264}, {"aac", aac}});
    EXPECT_EQ(agent.ask("POST", "/frames/save", {{"h264", h264}}).status, 400);
    EXPECT_EQ(agent.get("/frames").at("saving"), true);
    agent.post("/capture/frame", {{"kind", 1}, {"data_base64", "AAAAAUE="}});
    agent.post("/capture/frame", {{"kind", 2}, {"data_base64", "AQID"}});
    agent.post("/capture/frame", {{"kind", 1}, {"data_base64", "AAAAAWc="}});
    agent.post("/capture/frame", {{"kind", 2}, {"data_base64", "BAUG"}});
    agent.post("/capture/frame", {{"kind", 1}, {"data_base64", "AAAAAUE="}});
    const json saved = agent.post("/frames/stop", json::object());
    EXPECT_EQ(saved, json({{"video", 2},
                           {"key_frames", 1},
                           {"audio", 1},
                           {"video_bytes", 10},
                           {"audio_bytes", 10},
                           {"dropped", 0}}));
    EXPECT_EQ(file_text(h264), std::string("\0\0\0\1g\0\0\0\1A", 10));
    EXPECT_EQ(file_text(aac), "\xff\xf1\x4c\x80\x01\x5f\xfc\4\5\6");
    EXPECT_EQ(agent.ask("POST", "/frames/stop", json::object()).status, 400);
    EXPECT_EQ(agent.ask("POST", "/frames/save", {{"h264", "/no/such/folder/x"}}).status, 400);
}

TEST_F(Frames, RecordingOfSoundAloneNeedsNoKeyFrame) {
    const std::string aac = agent.folder().path("clip.aac");
    agent.post("/frames/save", {{"aac", aac}});
    agent.post("/capture/synthetic",
               {{"count", 30}, {"video_fps", 30}, {"audio_fps", 30}, {"audio_bytes", 93}});
    EXPECT_EQ(agent.post("/frames/stop", json::object()).at("audio_bytes"), 2900);
    EXPECT_EQ(file_text(aac).size(), 2900U);
}

}  // namespace
