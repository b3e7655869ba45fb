// Frames, talk-back: what is done with every byte, beside a copy of the same bytes.
#include <pthread.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <random>

#include "bench.h"
#include "exports.h"
#include "frame/amplify.h"
#include "frame/talkback.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr int kVideo = 1;
constexpr int kAudio = 2;
constexpr size_t kClipBytes = 72000;   // samples of a full talk-back clip
constexpr size_t kClipBlock = 102400;  // bytes; of the block that a clip is collected in
constexpr size_t kTalkFrame = 1600;    // bytes
constexpr int kTalkFrames = 40;        // into one clip

// Like compressed picture data: any byte, equally often.
Bytes noise(size_t size) {
    std::minstd_rand random(1);
    Bytes data(size);
    for (uint8_t &byte : data) byte = static_cast<uint8_t>(random() >> 8);
    return data;
}

// Noise with a start code and a NAL unit of that kind at that place.
Bytes frame_with(size_t size, size_t at, uint8_t nal_kind) {
    Bytes data = noise(size);
    const uint8_t start_code[] = {0, 0, 0, 1, nal_kind};
    std::memcpy(data.data() + at, start_code, sizeof start_code);
    return data;
}

// A key frame of 640x360 as an encoder writes it: parameter sets, then the one slice.
Bytes key_frame(size_t size) {
    constexpr uint8_t kBeginning[] = {
        0,    0,    0,    1,    0x67, 0x42, 0xc0, 0x1e, 0xd9, 0x00, 0xa0, 0x2f, 0xf9, 0x70, 0x11, 0x00, 0x00,
        0x03, 0x00, 0x01, 0x00, 0x00, 0x03, 0x00, 0x32, 0x0f, 0x16, 0x2e, 0x48, 0,    0,    0,    1,    0x68,
        0xcb, 0x83, 0xcb, 0x20, 0,    0,    0,    1,    0x65, 0x88, 0x84, 0x0a, 0xf2, 0x62, 0x80};
    Bytes data = noise(size);
    std::memcpy(data.data(), kBeginning, sizeof kBeginning);
    return data;
}

int release_video(video_record *record) {
    keep(record->data);
    std::free(record->data);
    return 0;
}

int release_audio(audio_record *record) {
    keep(record->data);
    std::free(record->data);
    return 0;
}

void connect_sdk() {
    static mipc_api_table table{};
    table.video_frame = release_video;
    table.audio_frame = release_audio;
    mipc_api = &table;
}

std::function<void()> sink_of(std::shared_ptr<Bytes> data, int kind) {
    return [data, kind] {
        captured_frame frame{data->data(), 0, 0, kind, 0, static_cast<uint32_t>(data->size())};
        new_getframe_callback(&frame);
    };
}

// One allocation, one copy, one release: what the SDK's ownership of the frame demands.
std::function<void()> private_copy(std::shared_ptr<Bytes> data) {
    return [data] {
        void *copy = std::malloc(data->size());
        std::memcpy(copy, data->data(), data->size());
        keep(copy);
        std::free(copy);
    };
}

Row video_row(const char *id, Bytes bytes, int batch) {
    const auto data = std::make_shared<Bytes>(std::move(bytes));
    return {id, {{"product", sink_of(data, kVideo)}, {"malloc, memcpy, free", private_copy(data)}}, batch};
}

// --- Talk-back. The clips' threads are not started: their clips are given back before the next is begun.

using Routine = void *(*)(void *);
Routine clip_routine = nullptr;
TalkClip *last_clip = nullptr;

void give_clip_back() {
    if (last_clip == nullptr) return;
    last_clip->length = 0;  // nothing to play: it is released at once
    clip_routine(last_clip);
    last_clip = nullptr;
}

int play_frame(const Bytes &samples, uint32_t sequence) {
    talkback_frame frame{};
    frame.sequence = sequence;
    frame.length = static_cast<uint32_t>(samples.size());
    frame.data = const_cast<uint8_t *>(samples.data());
    return device_play_audio(&frame);
}

Row clip_row() {
    static const Bytes samples = noise(kTalkFrame);
    static uint8_t *block = nullptr;
    static size_t used = 0;
    Contestant product{"product", [] { play_frame(samples, 1); },
                       [] {
                           give_clip_back();
                           play_frame(samples, 0);
                       }};
    Contestant reference{"memcpy",
                         [] {
                             std::memcpy(block + used, samples.data(), samples.size());
                             keep(block);
                             used += samples.size();
                         },
                         [] {
                             std::free(block);
                             block = static_cast<uint8_t *>(std::calloc(1, kClipBlock));
                             used = kTalkFrame;
                         }};
    return {"clip append", {product, reference}, kTalkFrames};
}

// A clip was collected over three seconds and is in no cache when it is played: each turn takes another one.
int16_t *next_clip() {
    constexpr size_t kClips = 256;
    static std::vector<int16_t> clips(kClips * kClipBytes / 2, 1000);
    static size_t turn = 0;
    return clips.data() + turn++ % kClips * (kClipBytes / 2);
}

Row gain_row() {
    static std::vector<int16_t> copy(kClipBytes / 2);
    return {"talk-back gain",
            {{"product",
              [] {
                  int16_t *samples = next_clip();
                  amplify(samples, kClipBytes / 2);
                  keep(samples);
              }},
             {"memcpy",
              [] {
                  std::memcpy(copy.data(), next_clip(), kClipBytes);
                  keep(copy.data());
              }}},
            20};
}

Row audio_row() {
    const auto data = std::make_shared<Bytes>(noise(400));
    Row row{"AAC 400 B with ADTS", {{"product", sink_of(data, kAudio)}}, 500};
    add_audio_reference(row, *data);
    row.contestants.push_back({"floor: malloc, memcpy, free", private_copy(data)});
    return row;
}

}  // namespace

// The clip's own clock is no work of the append's, and costs as much as the copy.
extern "C" clock_t __wrap_clock() {
    return 0;
}

extern "C" int __real_pthread_create(pthread_t *, const pthread_attr_t *, Routine, void *);
extern "C" int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, Routine routine,
                                     void *argument) {
    if (attributes != &audioback_attr) return __real_pthread_create(thread, attributes, routine, argument);
    clip_routine = routine;
    last_clip = static_cast<TalkClip *>(argument);
    return 0;
}

int play_first_frame() {
    static const Bytes samples = noise(kTalkFrame);
    give_clip_back();
    return play_frame(samples, 0);
}

void add_media_rows(std::vector<Row> &rows) {
    connect_sdk();
    for (const size_t kilobytes : {40, 200}) {
        const Bytes frame = key_frame(kilobytes * 1000);
        Row row =
            video_row(kilobytes == 40 ? "video 40 KB" : "video 200 KB", frame, kilobytes == 40 ? 40 : 10);
        add_video_peers(row, frame);
        rows.push_back(row);
    }
    rows.push_back(video_row("late start code", frame_with(40000, 40000 - 64, 0x67), 40));
    rows.push_back(video_row("IDR slice without SPS", frame_with(40000, 0, 0x65), 40));
    rows.push_back(audio_row());
    rows.push_back(gain_row());
    rows.push_back(clip_row());
}
