// Talk-back: what the cloud says comes out at the camera as clips, to the byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "wire.h"

namespace {

using Bytes = std::vector<unsigned char>;

constexpr size_t kHeader = 44, kFull = 72'000;

void put32(Bytes &bytes, size_t at, size_t value) {
    for (size_t i = 0; i < 4; i++) bytes[at + i] = static_cast<unsigned char>(value >> (8 * i));
}

// The clips that `pcm` becomes when it arrives in frames of `frame` bytes without a pause.
std::vector<Bytes> expected_clips(const Bytes &pcm, size_t frame) {
    const unsigned char header[kHeader + 1] =
        "RIFF\0\0\0\0WAVEfmt \x10\0\0\0\x01\0\x01\0\xE0\x2E\0\0\xC0\x5D\0\0\x02\0\x10\0data\0\0\0";
    std::vector<Bytes> clips;
    for (size_t at = 0; at < pcm.size(); at += frame) {
        if (clips.empty() || clips.back().size() >= kFull) clips.emplace_back(header, header + kHeader);
        const size_t end = std::min(at + frame, pcm.size());
        clips.back().insert(clips.back().end(), pcm.begin() + static_cast<long>(at),
                            pcm.begin() + static_cast<long>(end));
    }
    for (Bytes &clip : clips) {
        put32(clip, 4, clip.size());
        put32(clip, 40, clip.size() - 36);
        for (size_t at = kHeader; at + 1 < clip.size(); at += 2) {
            const int sample = static_cast<short>(clip[at] | clip[at + 1] << 8);
            const int louder = sample * 3 / 2;
            clip[at] = static_cast<unsigned char>(louder);
            clip[at + 1] = static_cast<unsigned char>(louder >> 8);
        }
    }
    return clips;
}

std::vector<Bytes> played_clips(const Desk &desk, long since) {
    std::vector<Bytes> clips;
    for (const json &request : desk.requests("MobileAudio", since)) {
        Bytes clip;  // the body as text: bytes of 0x80 and above are two of UTF-8
        const std::string body = request["body"];
        for (size_t i = 0; i < body.size(); i++) {
            const unsigned char lead = static_cast<unsigned char>(body[i]);
            clip.push_back(lead < 0x80 ? lead
                                       : static_cast<unsigned char>((lead & 3) << 6 | (body[++i] & 0x3F)));
        }
        clips.push_back(clip);
    }
    return clips;
}

Bytes sweep(size_t bytes) {
    Bytes pcm(bytes);
    for (size_t i = 0; i + 1 < bytes; i += 2) {
        const int sample = static_cast<int>(32767 * std::sin(static_cast<double>(i * i) / 1e6));
        pcm[i] = static_cast<unsigned char>(sample);
        pcm[i + 1] = static_cast<unsigned char>(sample >> 8);
    }
    return pcm;
}

std::string base64(const Bytes &bytes) {
    const char *const digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (size_t i = 0; i < bytes.size(); i += 3) {
        unsigned group = 0;
        for (size_t j = 0; j < 3; j++) group = group << 8 | (i + j < bytes.size() ? bytes[i + j] : 0);
        for (size_t j = 0; j < 4; j++)
            text += i + j > bytes.size() ? '=' : digits[group >> (18 - 6 * j) & 0x3F];
    }
    return text;
}

// Feeds `pcm` in frames of 640 bytes and waits until the camera has played so many clips.
void talk(const Desk &desk, const Bytes &pcm, size_t clips, long since) {
    const json fed =
        desk.sdk("POST", "/talk", {{"pcm_base64", base64(pcm)}, {"frame_bytes", 640}, {"pace", "fast"}});
    EXPECT_EQ(fed["accepted"], fed["frames"]);
    wait_until("the clips are played", [&] { return desk.requests("MobileAudio", since).size() >= clips; });
}

}  // namespace

TEST(Talkback, SamplesOfAnyLoudnessArriveToTheByte) {
    DeskOptions options;
    options.speed = 1;  // a clip takes frames for three seconds, however busy the machine is
    Desk desk(options);
    const Bytes pcm = sweep(100'000);
    auto expected = expected_clips(pcm, 640);
    ASSERT_EQ(expected.size(), 2u);
    EXPECT_EQ(expected[0].size(), 72'364u);
    const long since = desk.last_request();
    talk(desk, pcm, 2, since);
    auto played = played_clips(desk, since);
    const size_t first = played.at(0).size();
    // Both clips were filled at once: either may come first, the other when it has played.
    std::sort(expected.begin(), expected.end());
    std::sort(played.begin(), played.end());
    EXPECT_TRUE(played == expected);
    const auto posts = desk.requests("MobileAudio", since);
    const double pause =
        (posts[1]["time_ms"].get<double>() - posts[0]["time_ms"].get<double>()) * desk.speed();
    EXPECT_GE(pause, static_cast<double>((first - kHeader) / 24));
    EXPECT_EQ(desk.camera_state()["speaker"], true);
    EXPECT_EQ(commands(desk, since)[0],
              "POST /CGI/RemoteControl \r\n\r\n<RemoteControl><Action>AUDIO_ON</Action></RemoteControl>");
    talk(desk, sweep(2000), 3, since);
    EXPECT_EQ(desk.requests("RemoteControl", since).size(), 1u) << "the speaker is switched on once";
}

TEST(Talkback, ASpokenSentenceComesOutAsItWasSaid) {
    ASSERT_EQ(std::system("espeak-ng -w /tmp/said.wav 'Who is at the door?' && "
                          "ffmpeg -v error -y -i /tmp/said.wav -ar 12000 -ac 1 -f s16le /tmp/said.pcm"),
              0)
        << "espeak-ng or ffmpeg is missing: ./test installs them";
    const std::string said = file_text("/tmp/said.pcm");
    const Bytes pcm(said.begin(), said.end());
    ASSERT_GT(pcm.size(), 12'000u);
    DeskOptions options;
    options.speed = 1;  // a clip takes frames for three seconds, however busy the machine is
    Desk desk(options);
    const auto expected = expected_clips(pcm, 640);
    const long since = desk.last_request();
    talk(desk, pcm, expected.size(), since);
    EXPECT_EQ(played_clips(desk, since), expected);
}

TEST(Talkback, ASpeakerThatNeverGoesOnLocksNothingUp) {
    DeskOptions options;
    options.speed = 10;
    Desk desk(options);
    desk.fault({{"endpoint", "RemoteControl"}, {"match", "AUDIO_ON"}, {"kind", "error_code"}, {"value", -3}});
    const AgentSize before = agent_size(desk);
    const long since = desk.last_request();
    for (size_t i = 1; i <= 3; i++) talk(desk, sweep(1280), i, since);
    EXPECT_EQ(desk.requests("RemoteControl", since).size(), 3u) << "tried with every clip";
    expect_same_size(desk, before);
}

TEST(Talkback, AHundredTalksLeaveNothingBehind) {
    DeskOptions options;
    options.speed = 50;
    Desk desk(options);
    const json frame = {{{"sequence", 0}, {"data_base64", base64(sweep(640))}}};
    size_t played = 0;
    const auto talks = [&](int count) {
        const long since = desk.last_request();
        for (int i = 0; i < count; i++) EXPECT_EQ(desk.call("device_play_audio", frame)["result"], 0);
        wait_until("they are played",
                   [&] { return desk.requests("MobileAudio", since).size() >= static_cast<size_t>(count); });
        played += static_cast<size_t>(count);
    };
    const int threads = thread_count(desk.agent_pid());
    const auto heap_after_twenty = [&] {
        talks(20);
        wait_until("the clips' threads have ended",
                   [&] { return thread_count(desk.agent_pid()) <= threads; });
        return heap_in_use(desk).value_or(0);
    };
    double heap = heap_after_twenty();
    const AgentSize before = agent_size(desk);
    std::vector<double> growth;
    for (int i = 0; i < 5; i++) {
        const double now = heap_after_twenty();
        growth.push_back(now - heap);
        heap = now;
    }
    EXPECT_EQ(played, 120u);
    // The middle one: what is allocated once, or by a poll that is under way, shows in one of them or two.
    std::sort(growth.begin(), growth.end());
    EXPECT_LT(growth[2], 20 * 16) << "bytes in twenty talks; the smallest block kept of each makes 640";
    expect_same_size(desk, before);
}

TEST(Talkback, BeyondThirtyTwoClipsFramesAreRefusedUntilOneIsPlayed) {
    DeskOptions options;
    options.speed = 10;
    Desk desk(options);
    const int hold = desk.fault({{"endpoint", "RemoteControl"}, {"match", "AUDIO_ON"}, {"kind", "hang"}});
    const json frame = {{{"sequence", 0}, {"data_base64", base64(sweep(64))}}};
    const long since = desk.last_request();
    for (int i = 0; i < 32; i++) EXPECT_EQ(desk.call("device_play_audio", frame)["result"], 0) << i;
    EXPECT_EQ(desk.call("device_play_audio", frame)["result"], -1);
    desk.camera("DELETE", "/faults/" + std::to_string(hold));
    wait_until("all are played", [&] { return desk.requests("MobileAudio", since).size() == 32; });
    wait_until("a clip is taken again", [&] { return desk.call("device_play_audio", frame)["result"] == 0; });
}
