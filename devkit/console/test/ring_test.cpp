// The tap of the SDK stand-in as the console reads it: what was handed over arrives whole, and no reader
// holds a frame up.
#include <cstdlib>

#include "agent_process.h"
#include "ring_reader.h"

namespace {

constexpr const char *kKeyFrame = "AAAAAWc=", *kOtherFrame = "AAAAAUE=";  // base64 of a start code and a unit

// Made before the agent, which inherits it.
struct TapFile {
    ScratchFolder folder;
    std::string path = folder.path("frames.ring");
};

struct Ring : testing::Test {
    TapFile tap;
    AgentProcess agent{std::map<std::string, std::string>{{"DESK_SDK_TAP", tap.path}}};
    RingReader reader{tap.path};

    Ring() {
        bool fresh = false;
        while (!fresh) reader.next(fresh);
    }
    void hand_over(const char *data, int kind = 1, int count = 1) {
        agent.post("/capture/frame", {{"kind", kind}, {"data_base64", data}, {"count", count}});
    }
    std::shared_ptr<const LiveFrame> next() {
        bool fresh = false;
        std::shared_ptr<const LiveFrame> frame;
        eventually([&] { return (frame = reader.next(fresh)) != nullptr || fresh; });
        return frame;
    }
};

TEST_F(Ring, FramesArriveWholeAndInOrder) {
    hand_over(kKeyFrame);
    hand_over("AQID", 2);
    hand_over(kOtherFrame);
    const auto first = next(), second = next(), third = next();
    ASSERT_TRUE(first && second && third);
    EXPECT_TRUE(first->video && first->key);
    EXPECT_EQ(first->data, std::string("\0\0\0\1\x67", 5));
    EXPECT_FALSE(second->video);
    EXPECT_EQ(second->data.substr(7), "\1\2\3");  // behind its ADTS header
    EXPECT_TRUE(third->video && !third->key);
    EXPECT_LE(first->real_us, third->real_us);
    EXPECT_EQ(agent.get("/frames").at("ownership_errors"), 0);
}

// Ten times what the ring holds, while nobody reads: the frames pass, and the reader goes on with a key
// frame.
TEST_F(Ring, AReaderThatWasOvertakenGoesOnWithTheNewestKeyFrame) {
    agent.post("/capture/synthetic",
               {{"count", 2000}, {"video_bytes", 20000}, {"audio_fps", 0}, {"key_every", 30}});
    EXPECT_EQ(agent.get("/frames").at("video"), 2000);
    const auto frame = next();
    ASSERT_TRUE(frame);
    EXPECT_TRUE(frame->key);
    EXPECT_EQ(frame->data.size(), 20000U);
    EXPECT_EQ(frame->data.substr(0, 5), std::string("\0\0\0\1\x67", 5));
    for (int rest = 1; rest < 2000 % 30; rest++) ASSERT_TRUE(next()) << rest;
}

// However often the ring comes round, what is read is what was written.
TEST_F(Ring, ReadingAllTheWhileGivesEveryFrame) {
    agent.post("/capture/synthetic", {{"count", 600},
                                      {"video_bytes", 30001},
                                      {"video_fps", 400},
                                      {"audio_fps", 0},
                                      {"pace", "real"},
                                      {"async", true}});
    for (int frame = 0; frame < 600; frame++) {
        const auto got = next();
        ASSERT_TRUE(got) << frame;
        ASSERT_EQ(got->data.size(), 30001U);
        ASSERT_EQ(got->key, frame % 30 == 0) << frame;
        ASSERT_EQ(static_cast<unsigned char>(got->data[30000]), 0x80 | (30000 * 7 & 0x7f));
    }
}

TEST_F(Ring, AnAgentThatStartsAgainIsNoticed) {
    hand_over(kKeyFrame);
    ASSERT_TRUE(next());
    AgentProcess again(std::map<std::string, std::string>{{"DESK_SDK_TAP", tap.path}});
    bool fresh = false;
    EXPECT_TRUE(eventually([&] {
        reader.next(fresh);
        return fresh;
    }));
    again.post("/capture/frame", {{"kind", 1}, {"data_base64", kKeyFrame}});
    EXPECT_TRUE(next());
}

TEST(NoTap, WithoutItsNameThereIsNone) {
    const TapFile tap;
    AgentProcess agent;
    agent.post("/capture/frame", {{"kind", 1}, {"data_base64", kKeyFrame}});
    EXPECT_EQ(agent.get("/frames").at("video"), 1);
    EXPECT_NE(access(tap.path.c_str(), F_OK), 0);
}

}  // namespace
