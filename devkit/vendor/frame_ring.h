// The layout of the tap's file: a ring of the newest frames that the SDK was handed, shared by mapping. One
// writer, which never waits for anybody; any number of readers, which find out by `begun` that they were
// overtaken. Positions count bytes ever written, modulo 2^32: a byte's place in the ring is its position
// modulo ring_bytes.
//
// devkit/console has this layout of its own in ring_layout.h; whoever changes one raises ring_version and
// changes both.
#pragma once

#include <cstdint>

namespace desk {

constexpr uint32_t kRingMagic = 0x676e6952, kRingVersion = 1;
constexpr uint32_t kRingBytes = 4 * 1024 * 1024;  // some 20 s of the largest profile

struct RingHeader {
    uint32_t magic, version, bytes, pid;
    uint32_t begun;     // the writer may be writing up to here; what is ring_bytes or more behind it is lost
    uint32_t head;      // whole frames end here; where a reader waits (futex)
    uint32_t last_key;  // the newest key frame begins here
    uint32_t has_key;   // 1 once last_key means something
};

struct RingFrame {
    uint32_t length;     // of the data behind it, which is padded to a multiple of 4
    uint8_t video, key;  // 1 or 0
    uint16_t unused;
    uint32_t counter, timestamp;  // of the SDK's record
    int64_t real_us;              // the machine's monotonic clock when the frame was handed over
};

static_assert(sizeof(RingHeader) == 32 && sizeof(RingFrame) == 24);

}  // namespace desk
