// The per-byte work of the media path beside a memcpy of the same bytes: compare the bytes_per_second
// columns. One thread.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "exports.h"
#include "frame/amplify.h"
#include "frame/frame_sink.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr int kVideo = 1;
constexpr int kAudio = 2;
constexpr size_t kScanSize = 64 * 1024;  // bytes; a large key frame
constexpr size_t kClipSamples = 36000;   // 16-bit samples of a full talk-back clip

// Like compressed picture data: any byte, equally often.
Bytes noise(size_t size) {
    std::minstd_rand random(1);
    Bytes data(size);
    for (uint8_t &byte : data) byte = static_cast<uint8_t>(random() >> 8);
    return data;
}

void put_start_code(Bytes &data, size_t at) {
    constexpr uint8_t kKeyFrame[] = {0, 0, 0, 1, 0x67};
    std::memcpy(data.data() + at, kKeyFrame, sizeof kKeyFrame);
}

Bytes early_start_code() {
    Bytes data = noise(kScanSize);
    put_start_code(data, 0);
    return data;
}

Bytes late_start_code() {
    Bytes data = noise(kScanSize);
    put_start_code(data, kScanSize - 8);
    return data;
}

// The worst case of a search for the start code's last byte: each of them is a false hit.
Bytes late_among_ones() {
    Bytes data(kScanSize, 0x01);
    put_start_code(data, kScanSize - 8);
    return data;
}

void set_bytes(benchmark::State &state, size_t size) {
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
}

void memcpy_bytes(benchmark::State &state) {
    const size_t size = static_cast<size_t>(state.range(0));
    const Bytes from = noise(size);
    Bytes to(size);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), size);
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
    set_bytes(state, size);
}

// What the frame path cannot avoid: one allocation, one copy, one release.
void malloc_memcpy_free(benchmark::State &state) {
    const size_t size = static_cast<size_t>(state.range(0));
    const Bytes from = noise(size);
    for (auto _ : state) {
        void *copy = std::malloc(size);
        std::memcpy(copy, from.data(), size);
        benchmark::DoNotOptimize(copy);
        benchmark::ClobberMemory();
        std::free(copy);
    }
    set_bytes(state, size);
}

int release_video(video_record *record) {
    std::free(record->data);
    return 0;
}

int release_audio(audio_record *record) {
    std::free(record->data);
    return 0;
}

void frame_path(benchmark::State &state, int kind) {
    mipc_api_table table{};
    table.video_frame = release_video;
    table.audio_frame = release_audio;
    mipc_api = &table;
    const size_t size = static_cast<size_t>(state.range(0));
    Bytes data = noise(size);
    put_start_code(data, 0);
    captured_frame frame{data.data(), 0, 0, kind, 0, static_cast<uint32_t>(size)};
    for (auto _ : state) new_getframe_callback(&frame);
    mipc_api = nullptr;
    set_bytes(state, size);
}

void key_frame_scan(benchmark::State &state, Bytes (*make_data)()) {
    const Bytes data = make_data();
    for (auto _ : state) {
        int key = is_key_frame(data.data(), data.size());
        benchmark::DoNotOptimize(key);
    }
    set_bytes(state, data.size());
}

void gain_loop(benchmark::State &state) {
    std::vector<int16_t> samples(kClipSamples, 1000);
    for (auto _ : state) {
        amplify(samples.data(), samples.size());
        benchmark::ClobberMemory();
    }
    set_bytes(state, kClipSamples * sizeof(int16_t));
}

}  // namespace

BENCHMARK(memcpy_bytes)->Arg(400)->Arg(4096)->Arg(kScanSize)->Arg(kClipSamples * sizeof(int16_t));
BENCHMARK(malloc_memcpy_free)->Arg(400)->Arg(4096)->Arg(kScanSize);
BENCHMARK_CAPTURE(frame_path, video, kVideo)->Arg(4096)->Arg(kScanSize);
BENCHMARK_CAPTURE(frame_path, audio, kAudio)->Arg(400);
BENCHMARK_CAPTURE(key_frame_scan, early, early_start_code);
BENCHMARK_CAPTURE(key_frame_scan, late, late_start_code);
BENCHMARK_CAPTURE(key_frame_scan, late_among_ones, late_among_ones);
BENCHMARK(gain_loop);
