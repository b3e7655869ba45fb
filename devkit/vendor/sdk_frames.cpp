#include "sdk_frames.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>

#include "frame_files.h"
#include "frame_tap.h"
#include "real_time.h"
#include "record_ring.h"
#include "text_values.h"

namespace desk {
namespace {

constexpr uint64_t kKeptRecords = 64;

template <typename Record>
struct KeptFrame {
    Record record;
    uint8_t head[64];
    uint32_t head_length;
    int64_t real_ms;
    int tid;
};

struct FrameTotals {
    uint64_t video, audio, key_frames, video_bytes, audio_bytes, ownership_errors;
};

std::mutex lock;  // guards all below
RecordRing<KeptFrame<video_record>, kKeptRecords> videos;
RecordRing<KeptFrame<audio_record>, kKeptRecords> audios;
FrameTotals totals{};
FrameFiles *files = nullptr;  // owned; not destroyed at the end, because threads outlive main

// The data must be one malloc block that holds all that its record speaks of.
bool is_whole(const uint8_t *data, uint32_t length) {
    return data != nullptr && malloc_usable_size(const_cast<uint8_t *>(data)) >= length;
}

template <typename Record>
void fill(KeptFrame<Record> &kept, const Record &record, bool whole) {
    memcpy(&kept.record, &record, sizeof record);  // the padding bytes too
    kept.head_length = whole ? std::min<uint32_t>(record.length, sizeof kept.head) : 0;
    if (kept.head_length != 0) memcpy(kept.head, record.data, kept.head_length);
    kept.real_ms = real_now_ms();
    kept.tid = thread_id();
}

// Called with `lock` held: the data goes to the recording, or is freed.
void take_data(bool video, bool key_frame, uint8_t *data, uint32_t length, bool whole) {
    if (!whole) totals.ownership_errors++;
    if (whole && files != nullptr) {
        files->take({video, key_frame, data, length});
    } else {
        free(data);
    }
}

json video_json(uint64_t seq, const KeptFrame<video_record> &kept) {
    const video_record &r = kept.record;
    return {{"seq", seq},
            {"word0", r.word0},
            {"word1", r.word1},
            {"byte8", r.byte8},
            {"padding", to_hex(reinterpret_cast<const uint8_t *>(&r) + offsetof(video_record, byte8) + 1, 3)},
            {"word3", r.word3},
            {"key_frame", r.key_frame},
            {"counter", r.counter},
            {"timestamp", r.timestamp},
            {"length", r.length},
            {"word9", r.word9},
            {"word10", r.word10},
            {"head", to_hex(kept.head, kept.head_length)},
            {"real_ms", kept.real_ms},
            {"tid", kept.tid}};
}

json audio_json(uint64_t seq, const KeptFrame<audio_record> &kept) {
    const audio_record &r = kept.record;
    return {{"seq", seq},
            {"word0", r.word0},
            {"sequence", r.sequence},
            {"counter", r.counter},
            {"timestamp", r.timestamp},
            {"word4", r.word4},
            {"length", r.length},
            {"word7", r.word7},
            {"word8", r.word8},
            {"head", to_hex(kept.head, kept.head_length)},
            {"real_ms", kept.real_ms},
            {"tid", kept.tid}};
}

// Kilobits a second over the kept records; the first one only marks the start.
template <typename Ring>
double kilobits(const Ring &ring) {
    int64_t first_ms = -1, last_ms = 0;
    double bits = 0;
    ring.each_since(0, [&](uint64_t, const auto &kept) {
        bits += first_ms < 0 ? 0 : kept.record.length * 8.0;
        if (first_ms < 0) first_ms = kept.real_ms;
        last_ms = kept.real_ms;
    });
    return last_ms > first_ms && first_ms >= 0 ? bits / static_cast<double>(last_ms - first_ms) : 0;
}

}  // namespace

void keep_video(const video_record &record) {
    const std::lock_guard guard(lock);
    const bool whole = is_whole(record.data, record.length);
    fill(videos.next(), record, whole);
    totals.video++;
    totals.video_bytes += record.length;
    totals.key_frames += record.key_frame != 0;
    if (whole) tap_video(record);
    take_data(true, record.key_frame != 0, record.data, record.length, whole);
}

void keep_audio(const audio_record &record) {
    const std::lock_guard guard(lock);
    const bool whole = is_whole(record.data, record.length);
    fill(audios.next(), record, whole);
    totals.audio++;
    totals.audio_bytes += record.length;
    if (whole) tap_audio(record);
    take_data(false, false, record.data, record.length, whole);
}

json frame_counts() {
    const std::lock_guard guard(lock);
    return {{"video", totals.video},
            {"audio", totals.audio},
            {"key_frames", totals.key_frames},
            {"video_bytes", totals.video_bytes},
            {"audio_bytes", totals.audio_bytes},
            {"ownership_errors", totals.ownership_errors},
            {"kilobits", kilobits(videos) + kilobits(audios)},
            {"saving", files != nullptr}};
}

json frame_records() {
    const std::lock_guard guard(lock);
    json video = json::array(), audio = json::array();
    videos.each_since(0, [&](uint64_t seq, const auto &kept) { video.push_back(video_json(seq, kept)); });
    audios.each_since(0, [&](uint64_t seq, const auto &kept) { audio.push_back(audio_json(seq, kept)); });
    return {{"video", video}, {"audio", audio}};
}

void forget_frames() {
    const std::lock_guard guard(lock);
    videos.clear();
    audios.clear();
    totals = {};
}

void start_saving(const std::string &h264_path, const std::string &aac_path) {
    const std::lock_guard guard(lock);
    if (files) throw BadRequest{"a recording is on already"};
    files = new FrameFiles(h264_path, aac_path);
}

json stop_saving() {
    std::unique_ptr<FrameFiles> ended;
    {
        const std::lock_guard guard(lock);
        ended.reset(files);
        files = nullptr;
    }
    if (!ended) throw BadRequest{"no recording is on"};
    return ended->finish();
}

}  // namespace desk
