// The layout of the SDK stand-in's tap file, as this program reads it: a ring of the newest frames. It is
// that of devkit/vendor/frame_ring.h, which says what the fields mean; the two agree by ring_version alone.
#pragma once

#include <cstdint>

constexpr uint32_t kRingMagic = 0x676e6952, kRingVersion = 1;

struct RingHeader {
    uint32_t magic, version, bytes, pid;
    uint32_t begun, head, last_key, has_key;
};

struct RingFrame {
    uint32_t length;
    uint8_t video, key;
    uint16_t unused;
    uint32_t counter, timestamp;
    int64_t real_us;
};

static_assert(sizeof(RingHeader) == 32 && sizeof(RingFrame) == 24);
