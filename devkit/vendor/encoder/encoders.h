// The two encoders: H.264 in Annex B with parameter sets before each key frame and no delay, and AAC-LC
// without ADTS headers. Used by one thread. What cannot be set up ends the program with a line on standard
// error and status 2.
#pragma once

#include <cstdint>
#include <functional>

struct AVCodecContext;
struct AVFrame;
struct AVPacket;

constexpr int kVideoFps = 15, kKeyEvery = 30;               // frames
constexpr int kAudioRate = 48000, kSamplesPerFrame = 1024;  // stereo

struct StreamProfile {
    const char *name;
    int width, height, kilobits;
};

// Null for an unknown name.
const StreamProfile *find_profile(const char *name);

// An open encoder with the one frame it is fed from; lives as long as the program.
struct MediaEncoder {
    AVCodecContext *context;
    AVFrame *frame;
    AVPacket *packet;
    uint32_t number;  // of the next frame
};

MediaEncoder open_video(const StreamProfile &profile);
MediaEncoder open_audio();

using PacketTaker = std::function<void(const uint8_t *data, uint32_t length)>;

// Draws the next picture with the time of day on it (milliseconds since the epoch) and gives its packet to
// `take`.
void encode_picture(MediaEncoder &encoder, int64_t time_ms, const PacketTaker &take);
// The same for the next 1024 samples of a two-tone sound; the packets lag by one frame.
void encode_sound(MediaEncoder &encoder, const PacketTaker &take);
