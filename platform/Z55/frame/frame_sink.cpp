#include "frame_sink.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "../exports.h"
#include "../sdk/ef.h"
#include "../shared.h"
#include "zero_pair.h"

namespace {

constexpr int kVideo = 1;
constexpr int kAudio = 2;
// The kinds of NAL units that decide. The camera's encoder uses none above 15.
constexpr int kNalKindMask = 0x0F;
constexpr int kSequenceParameters = 7;  // stand before a key frame
constexpr int kOtherSlice = 1;          // of no key frame
constexpr int kNoDecision = -1;

// Of an ADTS header.
constexpr int kSync = 0xFFF;
constexpr int kMpeg4WithoutChecksum = 1;
constexpr int kLowComplexity = 1;  // the audio object type less 1
constexpr int k48Kilohertz = 3;    // an index
constexpr int kStereo = 2;

constexpr uint32_t kTimestampUnit = 100000;  // of the capture library's clock, per unit of the SDK's
constexpr uint32_t kVideoStep = 4;
constexpr uint32_t kAudioStep = 3;

// Grow with every frame, handed over or not, and wrap.
constinit std::atomic<uint32_t> video_counter{0};
constinit std::atomic<uint32_t> audio_counter{0};
constinit std::atomic<uint32_t> audio_sequence{0};

// The kind of the first NAL unit that decides, of those whose start code's last byte stands in [begin, end);
// kNoDecision where there is none. Three bytes before and one behind that range are the frame's.
int deciding_kind(const uint8_t *data, size_t begin, size_t end) {
    for (size_t at = begin; at < end; at++) {
        const void *one = std::memchr(data + at, 0x01, end - at);
        if (one == nullptr) break;
        at = static_cast<size_t>(static_cast<const uint8_t *>(one) - data);
        if (data[at - 1] != 0 || data[at - 2] != 0 || data[at - 3] != 0) continue;
        const int kind = data[at + 1] & kNalKindMask;
        if (kind == kSequenceParameters || kind == kOtherSlice) return kind;
    }
    return kNoDecision;
}

// A private copy of the frame behind `prefix` free bytes; null when memory is out or the frame has no data.
uint8_t *copy_frame(const captured_frame &frame, size_t prefix) {
    if (frame.data == nullptr) return nullptr;
    uint8_t *copy = static_cast<uint8_t *>(std::malloc(std::max<size_t>(prefix + frame.length, 1)));
    if (copy == nullptr) {
        std::puts("not enough memory for a frame");
        return nullptr;
    }
    std::memcpy(copy + prefix, frame.data, frame.length);
    return copy;
}

void hand_over_video(const captured_frame &frame) {
    const uint32_t counter = video_counter += kVideoStep;
    mipc_api_table *table = load_shared(mipc_api);
    if (table == nullptr || table->video_frame == nullptr) return;
    video_record record{};
    record.word0 = 2;
    record.word1 = 4;
    record.key_frame = is_key_frame(frame.data, frame.data != nullptr ? frame.length : 0);
    record.counter = counter;
    record.timestamp = frame.timestamp / kTimestampUnit;
    record.length = frame.length;
    record.data = copy_frame(frame, 0);
    if (record.data != nullptr) table->video_frame(&record);
}

void hand_over_audio(const captured_frame &frame) {
    const uint32_t counter = audio_counter += kAudioStep;
    const uint32_t sequence = ++audio_sequence;
    mipc_api_table *table = load_shared(mipc_api);
    if (table == nullptr || table->audio_frame == nullptr) return;
    uint8_t *data = copy_frame(frame, kAdtsHeaderSize);
    if (data == nullptr) return;
    uint8_t header[kAdtsHeaderSize];
    write_adts_header(header, frame.length);
    std::memcpy(data, header, sizeof header);
    audio_record record{};
    record.sequence = sequence;
    record.counter = counter;
    record.timestamp = frame.timestamp / kTimestampUnit;
    record.length = frame.length + kAdtsHeaderSize;
    record.data = data;
    table->audio_frame(&record);
}

}  // namespace

int is_key_frame(const uint8_t *data, size_t length) {
    for (size_t block = 0; block + 4 < length; block += kZeroPairBlock) {
        const bool whole = length - block >= kZeroPairBlock;
        if (whole && !has_zero_pair(data + block)) continue;
        // Its pairs are the second and third, or the first two, of a start code's three zeros.
        const size_t begin = std::max<size_t>(block + 2, 3);
        const size_t end = std::min(block + 2 + kZeroPairBlock, length - 2);
        const int kind = deciding_kind(data, begin, end);
        if (kind != kNoDecision) return kind == kSequenceParameters;
    }
    return 0;
}

void write_adts_header(uint8_t (&header)[kAdtsHeaderSize], size_t length) {
    const size_t whole = length + kAdtsHeaderSize;
    header[0] = kSync >> 4;
    header[1] = (kSync & 0xF) << 4 | kMpeg4WithoutChecksum;
    header[2] = kLowComplexity << 6 | k48Kilohertz << 2;
    header[3] = static_cast<uint8_t>(kStereo << 6 | ((whole >> 11) & 3));
    header[4] = static_cast<uint8_t>((whole >> 3) & 0xFF);
    header[5] = static_cast<uint8_t>(((whole & 7) << 5) | 0x1F);
    header[6] = static_cast<uint8_t>(0xFC | ((length >> 10) & 3));
}

void new_getframe_callback(captured_frame *frame) {
    std::atomic_ref<int>(get_frame_callback_flag)++;
    if (frame == nullptr) return;
    if (frame->kind == kVideo) hand_over_video(*frame);
    if (frame->kind == kAudio) hand_over_audio(*frame);
}
