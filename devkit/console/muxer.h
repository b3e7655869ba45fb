// One viewer's fragmented MP4: H.264 and AAC as the agent handed them over, a fragment to each frame, written
// by libavformat. Used by one thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "ring_reader.h"

struct AVFormatContext;
struct AVPacket;

// Codecs of a stream, as browsers name them: "avc1.64000d, mp4a.40.2". From a key frame and, where there is
// sound, an AAC frame; "" where the key frame holds no parameter set.
std::string codec_names(const LiveFrame &key_frame, const LiveFrame *sound);

class Muxer {
  public:
    // Begins with this key frame, which is to be fed too; null where it does not open.
    static std::unique_ptr<Muxer> begin(const LiveFrame &key_frame, const LiveFrame *sound);
    ~Muxer();
    Muxer(const Muxer &) = delete;
    Muxer &operator=(const Muxer &) = delete;

    // Adds a frame; false where the stream cannot go on (another picture size).
    bool feed(const LiveFrame &frame);
    // What was made since the last call.
    std::string take();

  private:
    Muxer() = default;
    bool open(const LiveFrame &key_frame, const LiveFrame *sound);
    int64_t video_time(const LiveFrame &frame);
    int64_t sound_time(const LiveFrame &frame);
    bool write(const std::string &data, size_t skip, int stream, int64_t time, int64_t duration, bool key);

    AVFormatContext *context_ = nullptr;
    AVPacket *packet_ = nullptr;
    std::string made_, parameters_;
    int64_t start_us_ = 0, last_video_ = -1, next_sound_ = -1;
    bool has_sound_ = false;
    friend int keep_made(void *, uint8_t *, int);
};
