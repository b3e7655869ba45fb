// Real media: what the encoder makes goes through the agent into files that a player takes for valid, and the
// encoder's process comes and goes with the capture.
#include <signal.h>

#include <fstream>

#include "agent_process.h"

namespace {

std::string probe(const std::string &entries, const std::string &path) {
    return output_of("ffprobe -v error -count_frames -of csv=p=0 -show_entries " + entries + " " + path);
}

size_t count(const std::string &text, const std::string &piece) {
    size_t found = 0;
    for (size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1)) found++;
    return found;
}

// The process is gone or waits for whoever adopted it.
bool has_ended(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string number, name, state;
    return !(file >> number >> name >> state) || state == "Z";
}

bool is_gone(pid_t pid) {
    return kill(pid, 0) != 0;
}

struct Encoder : testing::Test {
    AgentProcess agent{std::map<std::string, std::string>{{"DESK_ENCODER", DESK_ENCODER}}};

    int pid() {
        return agent.get("/capture").at("encoder_pid");
    }
    // Saves until `pictures` more video frames and `key_frames` more key frames are in the files.
    json save(const std::string &h264, const std::string &aac, int pictures, int key_frames) {
        agent.ask("DELETE", "/frames");
        agent.post("/frames/save", {{"h264", h264}, {"aac", aac}});
        EXPECT_TRUE(eventually([&] {
            const json frames = agent.get("/frames");
            return frames.at("video") >= pictures && frames.at("key_frames") >= key_frames;
        }));
        return agent.post("/frames/stop", json::object());
    }
};

TEST_F(Encoder, FilesAreValidWithEveryFrameInThem) {
    if (output_of("command -v ffprobe").empty()) GTEST_SKIP() << "no ffprobe here";
    const std::string h264 = agent.folder().path("clip.h264"), aac = agent.folder().path("clip.aac");
    agent.put("/watch", {{"on", true}});
    const json saved = save(h264, aac, 33, 2);
    EXPECT_EQ(probe("stream=codec_name,width,height,nb_read_frames", h264),
              "h264,400,240," + std::to_string(saved.at("video").get<int>()) + "\n");
    const std::string pictures = probe("frame=pict_type", h264);
    EXPECT_EQ(count(pictures, "I"), saved.at("key_frames"));
    EXPECT_LE(count(pictures.substr(0, pictures.find('I', 1)), "P"), 29U) << "a key frame every two seconds";
    EXPECT_EQ(probe("stream=codec_name,profile,sample_rate,channels,nb_read_frames", aac),
              "aac,LC,48000,2," + std::to_string(saved.at("audio").get<int>()) + "\n");
    EXPECT_EQ(agent.get("/capture").at("source"), "encoder");
}

TEST_F(Encoder, StopEndsTheEncoderWithoutAZombie) {
    agent.put("/watch", {{"on", true}});
    ASSERT_TRUE(eventually([&] { return agent.get("/frames").at("video") > 0; }));
    const pid_t child = pid();
    ASSERT_GT(child, 0);
    EXPECT_FALSE(is_gone(child));
    agent.put("/watch", {{"on", false}});
    EXPECT_TRUE(eventually([&] { return is_gone(child); }));
}

TEST_F(Encoder, NewProfileMeansANewPicture) {
    if (output_of("command -v ffprobe").empty()) GTEST_SKIP() << "no ffprobe here";
    agent.put("/watch", {{"on", true}});
    ASSERT_TRUE(eventually([&] { return agent.get("/frames").at("video") > 0; }));
    const pid_t first = pid();
    agent.put("/capture", {{"profile", "RTP_H264_WVGA"}});
    ASSERT_TRUE(eventually([&] { return is_gone(first) && pid() > 0; }));
    const std::string h264 = agent.folder().path("clip.h264");
    save(h264, "", 3, 1);
    EXPECT_EQ(probe("stream=width,height", h264), "800,480\n");
    EXPECT_EQ(agent.get("/capture").at("encoder_starts"), 2);
}

TEST_F(Encoder, KilledEncoderIsStartedAgain) {
    agent.put("/watch", {{"on", true}});
    ASSERT_TRUE(eventually([&] { return agent.get("/frames").at("video") > 0; }));
    const pid_t running = pid();
    ASSERT_GT(running, 0);  // no number of one process would end others
    kill(running, SIGKILL);
    ASSERT_TRUE(eventually([&] { return agent.get("/capture").at("encoder_starts") == 2; }));
    agent.ask("DELETE", "/frames");
    EXPECT_TRUE(eventually([&] { return agent.get("/frames").at("video") > 0; }));
}

TEST_F(Encoder, EndsWithTheAgent) {
    agent.put("/watch", {{"on", true}});
    ASSERT_TRUE(eventually([&] { return agent.get("/frames").at("video") > 0; }));
    const pid_t child = pid();
    agent.ask("POST", "/call", {{"name", "rebootOperation"}});
    agent.wait_for_end();
    EXPECT_TRUE(eventually([&] { return has_ended(child); }));
}

TEST(EncoderMissing, SyntheticFramesTakeItsPlace) {
    AgentProcess agent(std::map<std::string, std::string>{{"DESK_ENCODER", "/no/such/program"}});
    agent.put("/watch", {{"on", true}});
    EXPECT_TRUE(eventually([&] { return agent.get("/capture").at("source") == "synthetic"; }));
}

}  // namespace
