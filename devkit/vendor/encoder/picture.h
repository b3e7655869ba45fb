// The moving test picture: a sliding gradient, a square that bounces, the time of day in large digits and
// as a row of squares that a program can read.
#pragma once

#include <cstdint>

// Planes of a 4:2:0 picture; strides in bytes.
struct PicturePlanes {
    int width, height;
    uint8_t *plane[3];
    int stride[3];
};

// Draws picture `number`; `time_ms` is the wall-clock time to show, milliseconds since the epoch (UTC).
void draw_picture(const PicturePlanes &picture, uint32_t number, int64_t time_ms);
