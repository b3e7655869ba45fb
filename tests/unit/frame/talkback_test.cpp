// A clip's bytes and its thread.
#include "frame/talkback.h"

#include <cstdio>
#include <cstring>
#include <mutex>
#include <ostream>
#include <string>

#include "agent/loginout.h"
#include "agent/session_key.h"
#include "leaks.h"
#include "marked_log.h"
#include "talkback_fixture.h"

namespace {

// --- The clip's bytes

constexpr unsigned char kHeader[44] = {
    'R', 'I', 'F', 'F', 0,    0,    0,   0,  'W', 'A', 'V', 'E', 'f', 'm', 't', ' ', 16,  0,   0, 0, 1, 0,
    1,   0,   224, 46,  0x00, 0x00, 192, 93, 0,   0,   2,   0,   16,  0,   'd', 'a', 't', 'a', 0, 0, 0, 0};

TEST(TalkbackHeader, IsExported) {
    EXPECT_EQ(wav_header_len, 44);
    EXPECT_EQ(std::memcmp(wav_header, kHeader, 44), 0);
}

std::string hex(const std::string &bytes) {
    std::string text;
    for (const char byte : bytes) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%02X ", static_cast<unsigned char>(byte));
        text += digits;
    }
    return text;
}

TEST_F(Talkback, ClipToTheByte) {
    output_of([this] {
        EXPECT_EQ(deliver(1, {0x02, 0x00, 0x30, 0x75}), 0);  // 2, 30000
        EXPECT_EQ(deliver(2, {0xFD, 0xFF, 0x01, 0x80}), 0);  // -3, -32767
        play_all();
    });
    std::string expected(reinterpret_cast<const char *>(kHeader), 44);
    expected[4] = 52;                                                                  // 44 + 8
    expected[40] = 16;                                                                 // 52 - 36
    const unsigned char samples[] = {0x03, 0x00, 0xC8, 0xAF, 0xFC, 0xFF, 0x02, 0x40};  // 3, -20536, -4, 16386
    expected.append(reinterpret_cast<const char *>(samples), sizeof samples);
    ASSERT_EQ(posted().size(), 1u);
    EXPECT_EQ(hex(posted()[0]), hex(expected));
    EXPECT_EQ(std::memcmp(wav_header, kHeader, 44), 0);
}

TEST_F(Talkback, BothSizesOfALargeClip) {
    output_of([this] {
        deliver(1, Bytes(70000, 0));
        play_all();
    });
    const std::string body = posted().at(0);
    EXPECT_EQ(body.size(), 70044u);
    EXPECT_EQ(body.substr(4, 4), std::string("\x9C\x11\x01\x00", 4));   // 70044
    EXPECT_EQ(body.substr(40, 4), std::string("\x78\x11\x01\x00", 4));  // 70008
}

TEST_F(Talkback, OddByteAtTheEndIsLeftAlone) {
    output_of([this] {
        deliver(1, {0x10, 0x00, 0x33});
        play_all();
    });
    EXPECT_EQ(posted().at(0).substr(44), std::string("\x18\x00\x33", 3));
}

// --- A clip's thread

TEST_F(Talkback, ClipIsPostedAfterTheSpeakerIsOn) {
    const std::string log = output_of([this] {
        deliver(1, Bytes(24000, 1));
        play_all();
    });
    EXPECT_EQ(marked_log(log),
              "[ACTION]\n"
              "[ACTION]\n"
              "\n***(easy remote control) curl_perform ends ***\n"
              "played\n");
    const std::vector<CameraRequest> seen = camera.requests();
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].text(),
              "POST /CGI/RemoteControl Session=12345\n"
              "\r\n\r\n<RemoteControl><Action>AUDIO_ON</Action></RemoteControl>");
    EXPECT_EQ(seen[1].method, "POST");
    EXPECT_EQ(seen[1].target, "/CGI/MobileAudio");
    EXPECT_EQ(seen[1].cookie, "Session=12345");
    EXPECT_EQ(seen[1].body.size(), 24044u);
    EXPECT_EQ(fake_os::pauses(), (Texts{"3000 ms", "1000 ms"}));
}

// The request for the speaker takes the first one.
TEST_F(Talkback, ClipNeedsNoSemaphoreOfItsOwnToPlay) {
    intercept::refuse_next("sem_init", 1);
    output_of([this] {
        deliver(1, Bytes(24000, 1));
        play_all();
    });
    EXPECT_EQ(posted().size(), 1U);
}

struct PlayRow {
    size_t payload;
    const char *pause;
};

void PrintTo(const PlayRow &row, std::ostream *out) {
    *out << row.payload;
}

class PlayingTime : public Talkback, public testing::WithParamInterface<PlayRow> {};

TEST_P(PlayingTime, IsSlept) {
    output_of([this] {
        deliver(1, Bytes(GetParam().payload, 0));
        play_all();
    });
    EXPECT_EQ(fake_os::pauses().back(), GetParam().pause);
}

INSTANTIATE_TEST_SUITE_P(Payloads, PlayingTime,
                         testing::Values(PlayRow{.payload = 0, .pause = "0 ms"},
                                         PlayRow{.payload = 23, .pause = "0 ms"},
                                         PlayRow{.payload = 24, .pause = "1 ms"},
                                         PlayRow{.payload = 24000, .pause = "1000 ms"},
                                         PlayRow{.payload = 72320, .pause = "3013 ms"}),
                         [](const auto &row) { return "Of" + std::to_string(row.param.payload); });

TEST_F(Talkback, SpeakerIsSwitchedOnOnce) {
    output_of([this] {
        deliver(1, {1, 0});
        deliver(0, {2, 0});
        play_all();
        deliver(1, {3, 0});
        play_all();
    });
    EXPECT_EQ(posted().size(), 3u);
    EXPECT_EQ(commands(camera), (Texts{"AUDIO_ON", "MobileAudio", "MobileAudio", "MobileAudio"}));
}

TEST_F(Talkback, SpeakerThatStaysOffIsTriedByEveryClipAndHoldsNothingUp) {
    play_script(camera, {{"AUDIO_ON", {refused(-6), {.hang_up = true}, taken("AUDIO_ON")}},
                         {"MobileAudio", {{.body = "played"}}}});
    std::string log;
    for (int i = 0; i < 4; i++) {
        log += output_of([this] {
            deliver(0, {1, 0});
            play_all();
        });
    }
    EXPECT_EQ(commands(camera), (Texts{"AUDIO_ON", "MobileAudio", "AUDIO_ON", "MobileAudio", "AUDIO_ON",
                                       "MobileAudio", "MobileAudio"}));
    EXPECT_NE(log.find("AUDIO_ON ErrorCode: -6\n"), std::string::npos);
}

TEST_F(Talkback, CameraThatTakesNoAudioHoldsNothingUp) {
    play_script(camera, {{"AUDIO_ON", {taken("AUDIO_ON")}}, {"MobileAudio", {{.hang_up = true}}}});
    output_of([this] {
        deliver(0, Bytes(2400, 0));
        deliver(0, Bytes(2400, 0));
        play_all();
    });
    EXPECT_EQ(posted().size(), 2u);
    EXPECT_EQ(fake_os::pauses(), (Texts{kFilling, kFilling, "100 ms", "100 ms"}));
}

TEST_F(Talkback, ClipsPlayOneAtATime) {
    std::mutex lock;
    int playing = 0, most = 0;
    const auto count = [&](int change) {
        const std::lock_guard<std::mutex> guard(lock);
        playing += change;
        most = std::max(most, playing);
    };
    camera.on_request([&](const CameraRequest &request) -> CameraReply {
        if (command_of(request) == "MobileAudio") count(+1);
        return taken("AUDIO_ON");
    });
    fake_os::on_pause([&](const std::string &pause) {
        if (pause == kFilling) return gate.pass();
        count(-1);
    });
    output_of([this] {
        for (int i = 0; i < 10; i++) deliver(0, Bytes(48, 0));
        gate.let_on(9);
        play_all();
    });
    EXPECT_EQ(posted().size(), 10u);
    EXPECT_EQ(most, 1);
}

TEST_F(Talkback, ClipWaitsForASessionKey) {
    set_session_key("");
    Bytes data = {1, 0};
    talkback_frame frame{0, 1, 0, 0, 0, 2, data.data()};
    gate.let_on(1);
    output_of([&] {
        EXPECT_EQ(device_play_audio(&frame), 0);
        camera.on_request([](const CameraRequest &request) -> CameraReply {
            if (request.target.find("Login") == std::string::npos) return taken("AUDIO_ON");
            return {.headers = {"Set-Cookie: Session=777"}};
        });
        getSessionKey(session_key_buffer);
        pthread_join(load_shared(audioback_thread), nullptr);
    });
    const Texts seen = camera.seen();
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen[1].substr(0, 37), "POST /CGI/RemoteControl Session=777\n\r");
    EXPECT_EQ(seen[2].substr(0, 34), "POST /CGI/MobileAudio Session=777\n");
}

TEST_F(Talkback, ClipLeavesNothingBehind) {
    output_of([this] {
        expect_nothing_left([this] {
            deliver(0, Bytes(10, 0));
            play_all();
        });
    });
}

TEST_F(Talkback, ThreadWithoutAnythingToPlayEnds) {
    EXPECT_EQ(waitAndPlay(nullptr), nullptr);
    for (const uint32_t length : {0u, 43u, 44u, 1000u}) {
        expect_nothing_left([length] {
            TalkClip *clip = static_cast<TalkClip *>(std::calloc(1, sizeof(TalkClip)));
            if (length < 44) clip->data = static_cast<uint8_t *>(std::calloc(1, 102400));
            clip->length = length;
            EXPECT_EQ(waitAndPlay(clip), nullptr) << length;
        });
    }
    EXPECT_EQ(fake_os::pauses(), Texts{});
    EXPECT_TRUE(camera.seen().empty());
}

}  // namespace
