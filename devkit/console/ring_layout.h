// The layout of the SDK stand-in's tap file, as this program reads it: a ring of the newest frames. It is
// that of devkit/vendor/frame_ring.h, which says what the fields mean; the two agree by ring_version alone.
#pragma once

#include <cstdint>

constexpr uint32_t ring_magic = 0x676e6952, ring_version = 1;

struct ring_header {
    uint32_t magic, version, bytes, pid;
    uint32_t begun, head, last_key, has_key;
};

struct ring_frame {
    uint32_t length;
    uint8_t video, key;
    uint16_t unused;
    uint32_t counter, timestamp;
    int64_t real_us;
};

static_assert(sizeof(ring_header) == 32 && sizeof(ring_frame) == 24);
