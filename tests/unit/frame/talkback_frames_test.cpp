// Which frames share a clip, and what happens when something runs out.
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <thread>
#include <utility>

#include "frame/talkback.h"
#include "leaks.h"
#include "talkback_fixture.h"

namespace {

class TalkbackFrames : public Talkback {};

// --- Which frames share a clip

struct FramesRow {
    const char *name;
    std::vector<uint32_t> sequences;  // one frame each, of 10 bytes
    Lengths payloads;                 // of the clips, sorted
};

void PrintTo(const FramesRow &row, std::ostream *out) {
    *out << row.name;
}

class FrameSequence : public Talkback, public testing::WithParamInterface<FramesRow> {};

TEST_P(FrameSequence, MakesClips) {
    for (const uint32_t sequence : GetParam().sequences) {
        output_of([&] { EXPECT_EQ(deliver(sequence, Bytes(10, 0)), 0); });
    }
    EXPECT_EQ(payloads(), GetParam().payloads);
}

INSTANTIATE_TEST_SUITE_P(
    Values, FrameSequence,
    testing::Values(
        FramesRow{.name = "Growing", .sequences = {1, 2, 3}, .payloads = {30}},
        FramesRow{.name = "Equal", .sequences = {5, 5, 5}, .payloads = {30}},
        FramesRow{.name = "ZeroAlwaysStarts", .sequences = {0, 0, 0}, .payloads = {10, 10, 10}},
        FramesRow{.name = "ZeroStartsInTheMiddle", .sequences = {1, 2, 0, 1}, .payloads = {20, 20}},
        FramesRow{.name = "SmallerStarts", .sequences = {10, 11, 9, 10}, .payloads = {20, 20}},
        FramesRow{.name = "SmallerByOneStarts", .sequences = {2, 1}, .payloads = {10, 10}},
        FramesRow{.name = "Unsigned", .sequences = {1, 0x80000000u, 0xFFFFFFFFu}, .payloads = {30}}),
    by_name);

TEST_F(TalkbackFrames, ClipOf640ByteFramesClosesWhenItIsFull) {
    output_of([this] {
        for (uint32_t i = 1; i <= 114; i++) EXPECT_EQ(deliver(i, Bytes(640, 0)), 0);
    });
    EXPECT_EQ(payloads(), (Lengths{640, 113 * 640}));
}

TEST_F(TalkbackFrames, ClipTakesFramesBelow72000Bytes) {
    output_of([this] {
        deliver(1, Bytes(71999 - 44, 0));
        deliver(2, Bytes(1, 0));
        deliver(3, Bytes(5, 0));
    });
    EXPECT_EQ(payloads(), (Lengths{5, 72000 - 44}));
}

TEST_F(TalkbackFrames, FrameOfOneByteIsPartOfItsClip) {
    output_of([this] {
        deliver(1, {1, 0, 2});
        deliver(2, {1});
        deliver(0, {1, 0, 2, 1});
        play_all();
    });
    ASSERT_EQ(posted().size(), 2u);
    EXPECT_EQ(posted()[0], posted()[1]);
}

struct TicksRow {
    const char *name;
    long start, later;
    Lengths payloads;
};

void PrintTo(const TicksRow &row, std::ostream *out) {
    *out << row.name;
}

class ClipTicks : public Talkback, public testing::WithParamInterface<TicksRow> {};

TEST_P(ClipTicks, LimitAClip) {
    output_of([this] {
        intercept::set_processor_ticks(GetParam().start);
        deliver(1, Bytes(10, 0));
        intercept::set_processor_ticks(GetParam().later);
        deliver(2, Bytes(10, 0));
    });
    EXPECT_EQ(payloads(), GetParam().payloads);
}

INSTANTIATE_TEST_SUITE_P(
    Differences, ClipTicks,
    testing::Values(
        TicksRow{.name = "JustBelow", .start = 1000, .later = 3000999, .payloads = {20}},
        TicksRow{.name = "ThreeMillion", .start = 1000, .later = 3001000, .payloads = {10, 10}},
        TicksRow{.name = "WrappedAround", .start = LONG_MAX - 10, .later = LONG_MIN + 10, .payloads = {20}}),
    by_name);

// The three million count from the clip's start, not from its last frame.
TEST_F(TalkbackFrames, ClipTicksCountFromItsStart) {
    output_of([this] {
        deliver(1, Bytes(10, 0));
        intercept::set_processor_ticks(2000000);
        deliver(2, Bytes(10, 0));
        intercept::set_processor_ticks(3000000);
        deliver(3, Bytes(10, 0));
    });
    EXPECT_EQ(payloads(), (Lengths{10, 20}));
}

// Whether the thread sleeps in the kernel.
bool sleeps(pid_t thread) {
    const std::string state = read_file("/proc/self/task/" + std::to_string(thread) + "/stat");
    return state.find(") S ") != std::string::npos;
}

// Two threads deliver. The one that reads the clock first is held there until the other has delivered its
// frame or waits for the first: a reading older than the clip's start would part the frames.
TEST_F(TalkbackFrames, TheClockNeverRunsBackwardsBetweenTwoThreads) {
    pthread_attr_setdetachstate(&audioback_attr, PTHREAD_CREATE_DETACHED);
    std::atomic<int> readings{0};
    std::atomic<pid_t> second_thread{0};
    std::atomic<bool> second_done{false};
    intercept::set_processor_clock([&] {
        const long reading = 100L * ++readings;
        if (reading == 100) eventually([&] { return second_done || sleeps(second_thread); });
        return reading;
    });
    Bytes data(10, 0);
    talkback_frame frame{0, 1, 0, 0, 0, 10, data.data()};
    output_of([&] {
        std::thread first([&] { EXPECT_EQ(device_play_audio(&frame), 0); });
        EXPECT_TRUE(eventually([&] { return readings == 1; }));
        std::thread second([&] {
            second_thread = gettid();
            EXPECT_EQ(device_play_audio(&frame), 0);
            second_done = true;
        });
        first.join();
        second.join();
        gate.let_on(2);
        EXPECT_TRUE(eventually([&] {
            size_t total = 0;
            for (const std::string &body : posted()) total += body.size() - 44;
            return total == 20;
        }));
    });
    EXPECT_EQ(posted().size(), 1u);
}

TEST_F(TalkbackFrames, ClipThatIsBeingFinishedTakesNoMoreFrames) {
    output_of([this] {
        deliver(1, Bytes(10, 0));
        play_all();
        deliver(2, Bytes(10, 0));
    });
    EXPECT_EQ(payloads(), (Lengths{10, 10}));
}

TEST_F(TalkbackFrames, ClipThatIsPlayingTakesNoMoreFrames) {
    bool first = true;
    camera.on_request([&](const CameraRequest &request) {
        if (command_of(request) != "MobileAudio") return taken("AUDIO_ON");
        if (std::exchange(first, false)) deliver(2, Bytes(10, 0));
        return CameraReply{.body = "played"};
    });
    output_of([this] {
        deliver(1, Bytes(10, 0));
        play_all();
    });
    EXPECT_EQ(payloads(), (Lengths{10, 10}));
}

TEST_F(TalkbackFrames, EndOfAnOldClipLeavesTheNewOneOpen) {
    output_of([this] {
        deliver(5, Bytes(10, 0));
        deliver(1, Bytes(10, 0));
        play_next();
        deliver(2, Bytes(10, 0));
    });
    EXPECT_EQ(payloads(), (Lengths{10, 20}));
}

// --- What a frame may be

TEST_F(TalkbackFrames, NullFrame) {
    EXPECT_EQ(device_play_audio(nullptr), -1);
}

TEST_F(TalkbackFrames, FrameWithoutDataAddsNothing) {
    output_of([this] {
        talkback_frame frame{0, 1, 0, 0, 0, 100, nullptr};
        EXPECT_EQ(device_play_audio(&frame), 0);
        clips.push_back(load_shared(audioback_thread));
        clips_started++;
        deliver(2, Bytes(4, 0));
    });
    EXPECT_EQ(payloads(), Lengths{4});
}

TEST_F(TalkbackFrames, FrameIsCutAtTheBuffersEnd) {
    output_of([this] {
        deliver(1, Bytes(71000, 0));
        EXPECT_EQ(deliver(2, Bytes(200000, 0)), 0);
    });
    EXPECT_EQ(payloads(), Lengths{102400 - 44});
}

TEST_F(TalkbackFrames, FirstFrameMayFillTheWholeBuffer) {
    output_of([this] { EXPECT_EQ(deliver(1, Bytes(102400 - 44, 0)), 0); });
    EXPECT_EQ(payloads(), Lengths{102400 - 44});
}

// --- What runs out

struct ShortageRow {
    const char *name;
    const char *function;
    int after;
    const char *line;  // of the log
};

void PrintTo(const ShortageRow &row, std::ostream *out) {
    *out << row.name;
}

class Shortage : public Talkback, public testing::WithParamInterface<ShortageRow> {};

TEST_P(Shortage, RefusesAFrameAndForgetsTheClip) {
    const std::string log = output_of([this] {
        deliver(1, Bytes(10, 0));
        intercept::refuse_next(GetParam().function, GetParam().after);
        EXPECT_EQ(deliver(0, Bytes(10, 0)), -1);
        EXPECT_EQ(deliver(2, Bytes(10, 0)), 0);  // not into the first clip
    });
    EXPECT_NE(log.find(GetParam().line), std::string::npos) << log;
    EXPECT_EQ(payloads(), (Lengths{10, 10}));
}

TEST_P(Shortage, LeavesNothingBehind) {
    output_of([this] {
        expect_nothing_left([this] {
            intercept::refuse_next(GetParam().function, GetParam().after);
            EXPECT_EQ(deliver(0, Bytes(10, 0)), -1);
        });
    });
}

INSTANTIATE_TEST_SUITE_P(
    Of, Shortage,
    testing::Values(
        ShortageRow{
            .name = "Holder", .function = "calloc", .after = 0, .line = "not enough memory for a clip\n"},
        ShortageRow{
            .name = "Buffer", .function = "calloc", .after = 1, .line = "not enough memory for a clip\n"},
        ShortageRow{.name = "Thread",
                    .function = "pthread_create",
                    .after = 0,
                    .line = "no thread for a clip: Resource temporarily unavailable\n"}),
    by_name);

TEST_F(TalkbackFrames, At32ClipsAliveAFrameIsRefused) {
    output_of([this] {
        for (int i = 0; i < 32; i++) EXPECT_EQ(deliver(0, Bytes(10, 0)), 0);
        EXPECT_EQ(deliver(0, Bytes(10, 0)), -1);
        EXPECT_EQ(deliver(1, Bytes(10, 0)), -1);
        play_all();
        EXPECT_EQ(deliver(0, Bytes(10, 0)), 0);
    });
    EXPECT_EQ(payloads(), Lengths(33, 10));
}

TEST_F(TalkbackFrames, ClipOfTheSdksOwnIsNotCountedAmongThe32) {
    TalkClip *own = static_cast<TalkClip *>(std::calloc(1, sizeof(TalkClip)));
    own->data = static_cast<uint8_t *>(std::calloc(1, sizeof wav_header));
    own->length = sizeof wav_header;
    gate.let_on(1);
    output_of([=, this] {
        waitAndPlay(own);
        clips_started = gate.arrived();
        for (int i = 0; i < 32; i++) EXPECT_EQ(deliver(0, Bytes(10, 0)), 0);
        EXPECT_EQ(deliver(0, Bytes(10, 0)), -1);
    });
    EXPECT_EQ(payloads().size(), 33u);
}

int thread_count() {
    int count = 0;
    for ([[maybe_unused]] const auto &thread : std::filesystem::directory_iterator("/proc/self/task")) {
        count++;
    }
    return count;
}

TEST_F(TalkbackFrames, HundredTalksLeaveNoThread) {
    pthread_attr_setdetachstate(&audioback_attr, PTHREAD_CREATE_DETACHED);
    fake_os::on_pause({});
    const int before = thread_count();
    output_of([this] {
        for (size_t talk = 1; talk <= 100; talk++) {
            Bytes data(640, 0);
            talkback_frame frame{0, 0, 0, 0, 0, 640, data.data()};
            EXPECT_EQ(device_play_audio(&frame), 0);
            EXPECT_TRUE(eventually([&] { return posted().size() == talk; }));
        }
    });
    EXPECT_TRUE(eventually([before] { return thread_count() <= before; }));
}

TEST_F(TalkbackFrames, FramesFromManyThreads) {
    constexpr int kThreads = 8, kFrames = 100;
    pthread_attr_setdetachstate(&audioback_attr, PTHREAD_CREATE_DETACHED);
    fake_os::on_pause({});
    size_t total = 0;
    output_of([&] {
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; i++) {
            threads.emplace_back([] {
                Bytes data(100, 1);
                for (int n = 0; n < kFrames; n++) {
                    talkback_frame frame{0, 1, 0, 0, 0, 100, data.data()};
                    while (device_play_audio(&frame) != 0) std::this_thread::yield();
                }
            });
        }
        for (std::thread &thread : threads) thread.join();
        EXPECT_TRUE(eventually([&] {
            total = 0;
            for (const std::string &body : posted()) total += body.size() - 44;
            return total == 100u * kThreads * kFrames;
        }));
    });
    EXPECT_EQ(total, 100u * kThreads * kFrames);
}

}  // namespace
