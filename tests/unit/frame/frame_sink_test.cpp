#include "frame/frame_sink.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <ostream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "exports.h"
#include "intercept.h"
#include "row_names.h"
#include "shared.h"

namespace {

using Bytes = std::vector<uint8_t>;

struct FreeBlock {
    void operator()(void *block) const {
        std::free(block);
    }
};

// What the SDK was handed: a copy of the record, and the data block, which is the SDK's to free.
template <typename Record>
struct Handed {
    Record record;
    std::unique_ptr<uint8_t, FreeBlock> data;
};

std::mutex handed_lock;
std::vector<Handed<video_record>> videos;
std::vector<Handed<audio_record>> audios;

template <typename Record>
void keep(std::vector<Handed<Record>> &list, const Record *record) {
    const std::lock_guard<std::mutex> lock(handed_lock);
    Handed<Record> handed;
    std::memcpy(&handed.record, record, sizeof *record);
    handed.data.reset(record->data);
    list.push_back(std::move(handed));
}

int keep_video(video_record *record) {
    keep(videos, record);
    return 0;
}

int keep_audio(audio_record *record) {
    keep(audios, record);
    return 0;
}

captured_frame make_frame(int kind, Bytes &data, uint32_t timestamp = 0) {
    return captured_frame{data.data(), -1, -1, kind, timestamp, static_cast<uint32_t>(data.size())};
}

void deliver(int kind, Bytes data, uint32_t timestamp = 0) {
    captured_frame frame = make_frame(kind, data, timestamp);
    new_getframe_callback(&frame);
}

template <typename Record>
Bytes data_of(const Handed<Record> &handed) {
    return Bytes(handed.data.get(), handed.data.get() + handed.record.length);
}

class FrameSink : public testing::Test {
  protected:
    void SetUp() override {
        videos.clear();
        audios.clear();
        table.video_frame = keep_video;
        table.audio_frame = keep_audio;
        store_shared(mipc_api, &table);
    }
    void TearDown() override {
        store_shared(mipc_api, static_cast<mipc_api_table *>(nullptr));
        videos.clear();
        audios.clear();
    }
    mipc_api_table table{};
};

constexpr int kVideo = 1;
constexpr int kAudio = 2;

// --- Counters. The first of these needs a fresh process, as every ctest case is.

TEST_F(FrameSink, CountersStartAtTheirFirstStep) {
    deliver(kVideo, {1});
    deliver(kAudio, {1});
    ASSERT_EQ(videos.size(), 1u);
    ASSERT_EQ(audios.size(), 1u);
    EXPECT_EQ(videos[0].record.counter, 4u);
    EXPECT_EQ(audios[0].record.counter, 3u);
    EXPECT_EQ(audios[0].record.sequence, 1u);
}

TEST_F(FrameSink, CountersGrowByFourThreeAndOne) {
    for (int i = 0; i < 3; i++) deliver(kVideo, {1});
    for (int i = 0; i < 3; i++) deliver(kAudio, {1});
    ASSERT_EQ(videos.size(), 3u);
    ASSERT_EQ(audios.size(), 3u);
    for (size_t i = 1; i < 3; i++) {
        EXPECT_EQ(videos[i].record.counter - videos[i - 1].record.counter, 4u);
        EXPECT_EQ(audios[i].record.counter - audios[i - 1].record.counter, 3u);
        EXPECT_EQ(audios[i].record.sequence - audios[i - 1].record.sequence, 1u);
    }
}

TEST_F(FrameSink, CountersGrowForFramesThatNobodyTakes) {
    deliver(kVideo, {1});
    deliver(kAudio, {1});
    store_shared(mipc_api, static_cast<mipc_api_table *>(nullptr));
    deliver(kVideo, {1});
    deliver(kAudio, {1});
    store_shared(mipc_api, &table);
    deliver(kVideo, {1});
    deliver(kAudio, {1});
    EXPECT_EQ(videos.at(1).record.counter - videos.at(0).record.counter, 8u);
    EXPECT_EQ(audios.at(1).record.counter - audios.at(0).record.counter, 6u);
    EXPECT_EQ(audios.at(1).record.sequence - audios.at(0).record.sequence, 2u);
}

// --- Records

// The record as the SDK expects it, padding included.
TEST_F(FrameSink, VideoRecordToTheByte) {
    const Bytes data = {0, 0, 0, 1, 0x67, 0x42, 9, 8, 7};
    deliver(kVideo, data, 1234567899);
    ASSERT_EQ(videos.size(), 1u);
    video_record expected;
    std::memset(&expected, 0, sizeof expected);
    expected.word0 = 2;
    expected.word1 = 4;
    expected.key_frame = 1;
    expected.counter = videos[0].record.counter;
    expected.timestamp = 12345;
    expected.length = 9;
    expected.data = videos[0].record.data;
    EXPECT_EQ(std::memcmp(&videos[0].record, &expected, sizeof expected), 0);
    EXPECT_EQ(data_of(videos[0]), data);
}

TEST_F(FrameSink, AudioRecordToTheByte) {
    deliver(kAudio, Bytes(100, 0xAB), 4294967295u);
    ASSERT_EQ(audios.size(), 1u);
    audio_record expected;
    std::memset(&expected, 0, sizeof expected);
    expected.sequence = audios[0].record.sequence;
    expected.counter = audios[0].record.counter;
    expected.timestamp = 42949;
    expected.length = 107;
    expected.data = audios[0].record.data;
    EXPECT_EQ(std::memcmp(&audios[0].record, &expected, sizeof expected), 0);
}

// The words by their place, as a 32-bit SDK reads them: on a 64-bit host the pointer only widens.
TEST_F(FrameSink, RecordsLieInTheOrderOfTheTargetsWords) {
    video_record video{};
    audio_record audio{};
    const auto place = [](const void *record, const void *field) {
        return static_cast<const char *>(field) - static_cast<const char *>(record);
    };
    EXPECT_EQ(place(&video, &video.byte8), 8);
    EXPECT_EQ(place(&video, &video.word3), 12);
    EXPECT_EQ(place(&video, &video.key_frame), 16);
    EXPECT_EQ(place(&video, &video.counter), 20);
    EXPECT_EQ(place(&video, &video.timestamp), 24);
    EXPECT_EQ(place(&video, &video.length), 28);
    EXPECT_EQ(place(&video, &video.data), 32);
    EXPECT_EQ(place(&audio, &audio.sequence), 4);
    EXPECT_EQ(place(&audio, &audio.counter), 8);
    EXPECT_EQ(place(&audio, &audio.timestamp), 12);
    EXPECT_EQ(place(&audio, &audio.length), 20);
    EXPECT_EQ(place(&audio, &audio.data), 24);
    if (sizeof(void *) == 4) {
        EXPECT_EQ(sizeof video, 44u);
        EXPECT_EQ(sizeof audio, 36u);
    }
}

TEST_F(FrameSink, AudioFrameOf100BytesGetsItsHeader) {
    Bytes data(100);
    for (size_t i = 0; i < data.size(); i++) data[i] = static_cast<uint8_t>(i);
    deliver(kAudio, data);
    Bytes expected = {0xFF, 0xF1, 0x4C, 0x80, 0x0D, 0x7F, 0xFC};
    expected.insert(expected.end(), data.begin(), data.end());
    ASSERT_EQ(audios.size(), 1u);
    EXPECT_EQ(data_of(audios[0]), expected);
}

TEST_F(FrameSink, RecordDataIsAPrivateCopy) {
    Bytes data = {1, 2, 3};
    captured_frame frame = make_frame(kVideo, data);
    new_getframe_callback(&frame);
    data.assign({9, 9, 9});
    ASSERT_EQ(videos.size(), 1u);
    EXPECT_NE(videos[0].record.data, data.data());
    EXPECT_EQ(data_of(videos[0]), (Bytes{1, 2, 3}));
}

TEST_F(FrameSink, TimestampIsDividedWithoutRounding) {
    deliver(kVideo, {1}, 99999);
    deliver(kVideo, {1}, 100000);
    deliver(kAudio, {1}, 199999);
    EXPECT_EQ(videos.at(0).record.timestamp, 0u);
    EXPECT_EQ(videos.at(1).record.timestamp, 1u);
    EXPECT_EQ(audios.at(0).record.timestamp, 1u);
}

TEST_F(FrameSink, NotAKeyFrame) {
    deliver(kVideo, {0, 0, 0, 1, 0x41, 9, 9, 9});
    EXPECT_EQ(videos.at(0).record.key_frame, 0);
}

// --- What makes no record

TEST_F(FrameSink, EveryKindCountsForTheWatchdog) {
    store_shared(get_frame_callback_flag, 0);
    for (int kind : {0, 1, 2, 3, -1}) deliver(kind, {1, 2});
    EXPECT_EQ(load_shared(get_frame_callback_flag), 5);
    EXPECT_EQ(videos.size(), 1u);
    EXPECT_EQ(audios.size(), 1u);
}

TEST_F(FrameSink, EmptyFramesAreHandedOver) {
    uint8_t nothing = 0;
    for (int kind : {kVideo, kAudio}) {
        captured_frame frame{&nothing, 0, 0, kind, 0, 0};
        new_getframe_callback(&frame);
    }
    EXPECT_EQ(videos.at(0).record.length, 0u);
    EXPECT_EQ(audios.at(0).record.length, 7u);
    EXPECT_EQ(data_of(audios[0]), (Bytes{0xFF, 0xF1, 0x4C, 0x80, 0x00, 0xFF, 0xFC}));
}

TEST_F(FrameSink, NullsAreDropped) {
    store_shared(get_frame_callback_flag, 0);
    new_getframe_callback(nullptr);
    for (int kind : {kVideo, kAudio}) {
        captured_frame frame{nullptr, 0, 0, kind, 0, 100};
        new_getframe_callback(&frame);
    }
    EXPECT_EQ(load_shared(get_frame_callback_flag), 3);
    EXPECT_TRUE(videos.empty());
    EXPECT_TRUE(audios.empty());
}

// Under the address sanitizer, which counts no bytes here, its own leak check speaks.
TEST_F(FrameSink, NothingLeaksWithoutATableOrASlot) {
    mipc_api_table empty{};
    const Bytes data(10000, 1);
    const size_t before = mallinfo2().uordblks;
    for (mipc_api_table *no_taker : {static_cast<mipc_api_table *>(nullptr), &empty}) {
        store_shared(mipc_api, no_taker);
        for (int i = 0; i < 100; i++) {
            deliver(kVideo, data);
            deliver(kAudio, data);
        }
    }
    EXPECT_LT(mallinfo2().uordblks, before + data.size());
}

TEST_F(FrameSink, FrameIsDroppedWhenMemoryIsOut) {
    for (const int kind : {kVideo, kAudio}) {
        intercept::refuse_next("malloc");
        testing::internal::CaptureStdout();
        deliver(kind, {1, 2, 3});
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "not enough memory for a frame\n");
        deliver(kind, {4});
    }
    ASSERT_EQ(videos.size(), 1u);
    ASSERT_EQ(audios.size(), 1u);
    EXPECT_EQ(data_of(videos[0]), Bytes{4});
}

// One allocation for the data, nothing else on the heap.
TEST_F(FrameSink, OneAllocationPerFrame) {
    for (const int kind : {kVideo, kAudio}) {
        intercept::refuse_next("malloc", 1);
        deliver(kind, {1, 2, 3});
        Bytes data = {4};
        captured_frame frame = make_frame(kind, data);
        new_getframe_callback(&frame);
    }
    EXPECT_EQ(videos.size(), 1u);
    EXPECT_EQ(audios.size(), 1u);
}

TEST_F(FrameSink, IsSilent) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    for (int kind : {0, 1, 2}) deliver(kind, {0, 0, 0, 1, 0x67, 1});
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(FrameSink, FramesFromManyThreadsAreAllCounted) {
    constexpr int kThreads = 16, kFrames = 50;
    store_shared(get_frame_callback_flag, 0);
    deliver(kVideo, {1});
    const uint32_t first = videos.at(0).record.counter;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; i++) {
        threads.emplace_back([] {
            for (int n = 0; n < kFrames; n++) deliver(kVideo, {0, 0, 0, 1, 0x67, 1});
        });
    }
    for (std::thread &thread : threads) thread.join();
    EXPECT_EQ(load_shared(get_frame_callback_flag), kThreads * kFrames + 1);
    std::vector<uint32_t> counters;
    for (const auto &video : videos) counters.push_back(video.record.counter);
    std::sort(counters.begin(), counters.end());
    ASSERT_EQ(counters.size(), 1u + kThreads * kFrames);
    for (size_t i = 0; i < counters.size(); i++) EXPECT_EQ(counters[i], first + 4 * i);
}

// --- The ADTS header

struct HeaderRow {
    size_t length;
    Bytes header;
};

void PrintTo(const HeaderRow &row, std::ostream *out) {
    *out << row.length;
}

class AdtsHeader : public testing::TestWithParam<HeaderRow> {};

TEST_P(AdtsHeader, IsWritten) {
    uint8_t header[kAdtsHeaderSize];
    write_adts_header(header, GetParam().length);
    EXPECT_EQ(Bytes(header, header + sizeof header), GetParam().header);
}

INSTANTIATE_TEST_SUITE_P(
    Lengths, AdtsHeader,
    testing::Values(HeaderRow{.length = 0, .header = {0xFF, 0xF1, 0x4C, 0x80, 0x00, 0xFF, 0xFC}},
                    HeaderRow{.length = 1, .header = {0xFF, 0xF1, 0x4C, 0x80, 0x01, 0x1F, 0xFC}},
                    HeaderRow{.length = 100, .header = {0xFF, 0xF1, 0x4C, 0x80, 0x0D, 0x7F, 0xFC}},
                    HeaderRow{.length = 1016, .header = {0xFF, 0xF1, 0x4C, 0x80, 0x7F, 0xFF, 0xFC}},
                    HeaderRow{.length = 1017, .header = {0xFF, 0xF1, 0x4C, 0x80, 0x80, 0x1F, 0xFC}},
                    HeaderRow{.length = 1023, .header = {0xFF, 0xF1, 0x4C, 0x80, 0x80, 0xDF, 0xFC}},
                    HeaderRow{.length = 1024, .header = {0xFF, 0xF1, 0x4C, 0x80, 0x80, 0xFF, 0xFD}},
                    HeaderRow{.length = 2041, .header = {0xFF, 0xF1, 0x4C, 0x81, 0x00, 0x1F, 0xFD}},
                    HeaderRow{.length = 3072, .header = {0xFF, 0xF1, 0x4C, 0x81, 0x80, 0xFF, 0xFF}},
                    HeaderRow{.length = 6137, .header = {0xFF, 0xF1, 0x4C, 0x83, 0x00, 0x1F, 0xFD}},
                    HeaderRow{.length = 8184, .header = {0xFF, 0xF1, 0x4C, 0x83, 0xFF, 0xFF, 0xFF}},
                    HeaderRow{.length = 70000, .header = {0xFF, 0xF1, 0x4C, 0x82, 0x2E, 0xFF, 0xFC}}),
    [](const auto &row) { return "Of" + std::to_string(row.param.length); });

// --- The key-frame scan

struct ScanRow {
    const char *name;
    Bytes data;
    int key;
};

void PrintTo(const ScanRow &row, std::ostream *out) {
    *out << row.name;
}

class KeyFrameScan : public testing::TestWithParam<ScanRow> {};

TEST_P(KeyFrameScan, Decides) {
    EXPECT_EQ(is_key_frame(GetParam().data.data(), GetParam().data.size()), GetParam().key);
}

INSTANTIATE_TEST_SUITE_P(
    Frames, KeyFrameScan,
    testing::Values(
        ScanRow{.name = "ParameterSet", .data = {0, 0, 0, 1, 0x67, 0}, .key = 1},
        ScanRow{.name = "Slice", .data = {0, 0, 0, 1, 0x41, 0}, .key = 0},
        ScanRow{.name = "FourBitsCount", .data = {0, 0, 0, 1, 0xF7, 0}, .key = 1},
        ScanRow{.name = "TheFifthBitDoesNot", .data = {0, 0, 0, 1, 0x17, 0}, .key = 1},
        ScanRow{.name = "SliceByFourBits", .data = {0, 0, 0, 1, 0x11, 0, 0, 0, 1, 0x67, 0}, .key = 0},
        ScanRow{.name = "OthersGoOn", .data = {0, 0, 0, 1, 0x09, 0xF0, 0, 0, 0, 1, 0x67, 0}, .key = 1},
        ScanRow{.name = "OtherThenSlice",
                .data = {0, 0, 0, 1, 0x06, 0, 0, 0, 1, 0x41, 0, 0, 0, 1, 0x67, 0},
                .key = 0},
        ScanRow{.name = "OtherOnly", .data = {0, 0, 0, 1, 0x65, 1, 2, 3}, .key = 0},
        ScanRow{.name = "ThreeByteStartCodesDoNotCount", .data = {0xFF, 0, 0, 1, 0x67, 0, 0}, .key = 0},
        ScanRow{.name = "MoreZerosDo", .data = {0, 0, 0, 0, 0, 1, 0x67, 0}, .key = 1},
        ScanRow{.name = "NoStartCode", .data = Bytes(100, 0), .key = 0},
        ScanRow{.name = "OfFiveBytes", .data = {0, 0, 0, 1, 0x67}, .key = 0},
        ScanRow{.name = "OfFourBytes", .data = {0, 0, 0, 1}, .key = 0},
        ScanRow{.name = "OfOneByte", .data = {1}, .key = 0}, ScanRow{.name = "Empty", .data = {}, .key = 0},
        ScanRow{.name = "TheLastPlaceThatCounts", .data = {9, 9, 0, 0, 0, 1, 0x67, 9}, .key = 1},
        ScanRow{.name = "OneFurtherDoesNot", .data = {9, 9, 9, 0, 0, 0, 1, 0x67}, .key = 0},
        ScanRow{.name = "RightAfterAStartCode", .data = {0, 0, 0, 1, 0, 0, 0, 1, 0x67, 9}, .key = 1},
        ScanRow{.name = "AfterFalseOnes", .data = {1, 1, 1, 1, 1, 0, 0, 0, 1, 0x67, 9}, .key = 1}),
    by_name);

// The scan as it is meant, one place at a time.
int slow_scan(const uint8_t *data, size_t length) {
    for (size_t i = 0; i + 5 < length; i++) {
        if (data[i] != 0 || data[i + 1] != 0 || data[i + 2] != 0 || data[i + 3] != 1) continue;
        if ((data[i + 4] & 15) == 7) return 1;
        if ((data[i + 4] & 15) == 1) return 0;
    }
    return 0;
}

// The data ends where readable memory ends, so that a look past the end would be fatal.
TEST(KeyFrameScanOfAnything, FindsAStartCodeWhereverItStands) {
    for (size_t length = 6; length < 1100; length++) {
        Bytes data(length, 0xFF);
        for (size_t at : {length - 5, length - 6, length / 2, size_t{0}}) {
            if (at + 5 > length) continue;
            Bytes frame = data;
            std::memcpy(frame.data() + at, "\0\0\0\1\x67", 5);
            EXPECT_EQ(is_key_frame(frame.data(), length), at + 5 < length) << at << " of " << length;
        }
    }
}

TEST(KeyFrameScanOfAnything, GoesOnBehindABlockThatDecidesNothing) {
    Bytes frame(600, 7);
    frame[10] = frame[11] = 0;
    std::memcpy(frame.data() + 300, "\0\0\0\1\x67", 5);
    EXPECT_EQ(is_key_frame(frame.data(), frame.size()), 1);
}

TEST(KeyFrameScanOfAnything, FindsAStartCodeWhoseZerosFillABlock) {
    Bytes frame(600, 7);
    std::fill(frame.begin(), frame.begin() + 256, uint8_t{0});
    frame[256] = 1;
    frame[257] = 0x67;
    EXPECT_EQ(is_key_frame(frame.data(), frame.size()), 1);
}

TEST(KeyFrameScanOfAnything, LooksAtWholeBlocksAlone) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void *pages = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    uint8_t *end = static_cast<uint8_t *>(pages) + page;
    ASSERT_EQ(mprotect(end, page, PROT_NONE), 0);
    std::memset(pages, 7, page);
    EXPECT_EQ(is_key_frame(end - 512, 512), 0);
    munmap(pages, 2 * page);
}

TEST(KeyFrameScanOfAnything, IsTheSlowOne) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void *pages = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    uint8_t *end = static_cast<uint8_t *>(pages) + page;
    ASSERT_EQ(mprotect(end, page, PROT_NONE), 0);
    constexpr uint8_t kAlphabet[] = {0, 0, 0, 0, 0, 0, 1, 1, 7, 0x41, 0x67, 9};
    std::minstd_rand random(7);
    int keys = 0;
    for (int round = 0; round < 20000; round++) {
        const size_t length = random() % 40;
        uint8_t *data = end - length;
        for (size_t i = 0; i < length; i++) data[i] = kAlphabet[random() % sizeof kAlphabet];
        const int expected = slow_scan(data, length);
        keys += expected;
        ASSERT_EQ(is_key_frame(data, length), expected) << testing::PrintToString(Bytes(data, end));
    }
    EXPECT_GT(keys, 100);
    munmap(pages, 2 * page);
}

}  // namespace
