// The two encoders: H.264 in Annex B with parameter sets before each key frame and no delay, and AAC-LC
// without ADTS headers. Used by one thread. What cannot be set up ends the program with a line on standard
// error and status 2.
#pragma once

#include <cstdint>
#include <functional>

struct AVCodecContext;
struct AVFrame;
struct AVPacket;

constexpr int video_fps = 15, key_every = 30;                // frames
constexpr int audio_rate = 48000, samples_per_frame = 1024;  // stereo

struct stream_profile {
    const char *name;
    int width, height, kilobits;
};

// Null for an unknown name.
const stream_profile *find_profile(const char *name);

// An open encoder with the one frame it is fed from; lives as long as the program.
struct media_encoder {
    AVCodecContext *context;
    AVFrame *frame;
    AVPacket *packet;
    uint32_t number;  // of the next frame
};

media_encoder open_video(const stream_profile &profile);
media_encoder open_audio();

using packet_taker = std::function<void(const uint8_t *data, uint32_t length)>;

// Draws the next picture with the time of day on it (milliseconds since the epoch) and gives its packet to
// `take`.
void encode_picture(media_encoder &encoder, int64_t time_ms, const packet_taker &take);
// The same for the next 1024 samples of a two-tone sound; the packets lag by one frame.
void encode_sound(media_encoder &encoder, const packet_taker &take);
