// Reads the frames that the SDK was handed from the stand-in's tap file. Only reads: the writer knows nothing
// of it. Used by one thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "ring_layout.h"

struct LiveFrame {
    bool video, key;
    int64_t real_us;   // the machine's monotonic clock
    std::string data;  // Annex B, or AAC with its ADTS header
};

class RingReader {
  public:
    explicit RingReader(std::string path) : path_(std::move(path)) {}
    ~RingReader();
    RingReader(const RingReader &) = delete;
    RingReader &operator=(const RingReader &) = delete;

    // The next frame; null where none came within a quarter of a second, or the agent is another: `fresh`
    // tells whether it has just begun with a new ring. One that was overtaken goes on with the newest key
    // frame.
    std::shared_ptr<const LiveFrame> next(bool &fresh);

  private:
    bool open_if_new();
    void close_ring();
    bool overtaken() const;
    void get(uint32_t position, void *to, uint32_t length) const;

    std::string path_;
    const RingHeader *ring_ = nullptr;
    uint64_t file_ = 0;  // inode of the ring that is open
    size_t size_ = 0;
    uint32_t position_ = 0;
};
