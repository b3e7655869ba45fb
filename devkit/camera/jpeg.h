// Small baseline JPEG pictures without a library.
#pragma once

#include <cstddef>
#include <string>

// A valid baseline JPEG of a coloured mosaic that depends on `seed`. Width and height are in pixels
// (multiples of 8, up to 4096). Comment segments bring it to exactly `bytes` bytes; where the picture alone
// is larger, or less than 4 bytes smaller, it stays the next possible size.
std::string make_jpeg(unsigned width, unsigned height, unsigned seed, std::size_t bytes);
