// What desk_encoder writes to its standard output: one header, then `length` bytes, for each frame; host byte
// order.
#pragma once

#include <cstdint>

struct EncoderFrameHeader {
    uint32_t kind;       // 1: one H.264 access unit, Annex B; 2: one raw AAC-LC frame, 48 kHz stereo
    uint32_t timestamp;  // microseconds
    uint32_t length;     // bytes
};
