#include "picture.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr int kGlyphColumns = 5, kGlyphRows = 7, kTimeCodeBits = 16;

// One row of pixels a byte, the leftmost in bit 4: 0 to 9, ':' and '.'.
constexpr uint8_t kGlyphs[12][kGlyphRows] = {
    {14, 17, 19, 21, 25, 17, 14}, {4, 12, 4, 4, 4, 4, 14},  {14, 17, 1, 2, 4, 8, 31},
    {31, 2, 4, 2, 1, 17, 14},     {2, 6, 10, 18, 31, 2, 2}, {31, 16, 30, 1, 1, 17, 14},
    {6, 8, 16, 30, 17, 17, 14},   {31, 1, 2, 4, 8, 8, 8},   {14, 17, 17, 14, 17, 17, 14},
    {14, 17, 17, 15, 1, 2, 12},   {0, 4, 4, 0, 4, 4, 0},    {0, 0, 0, 0, 0, 4, 4},
};

void fill_rectangle(const PicturePlanes &picture, int left, int top, int width, int height, uint8_t luma) {
    for (int y = std::max(top, 0); y < std::min(top + height, picture.height); y++) {
        uint8_t *row = picture.plane[0] + y * picture.stride[0];
        for (int x = std::max(left, 0); x < std::min(left + width, picture.width); x++) row[x] = luma;
    }
}

void draw_background(const PicturePlanes &picture, uint32_t number) {
    const int shift = static_cast<int>(number % 4096);
    for (int y = 0; y < picture.height; y++) {
        uint8_t *row = picture.plane[0] + y * picture.stride[0];
        for (int x = 0; x < picture.width; x++)
            row[x] = static_cast<uint8_t>(64 + ((x + y + 2 * shift) / 4 & 63));
    }
    for (int plane = 1; plane < 3; plane++) {
        for (int y = 0; y < picture.height / 2; y++) {
            uint8_t *row = picture.plane[plane] + y * picture.stride[plane];
            const int tint = plane == 1 ? y * 80 / picture.height : shift / 2 % 64;
            std::fill_n(row, picture.width / 2, static_cast<uint8_t>(104 + tint));
        }
    }
}

// Where something is that runs to and fro between 0 and `room`.
int bounce(int way, int room) {
    const int at = way % (2 * room);
    return at < room ? at : 2 * room - at;
}

void draw_text(const PicturePlanes &picture, const char *text, int left, int top, int scale) {
    for (; *text != '\0'; text++, left += (kGlyphColumns + 1) * scale) {
        const uint8_t *glyph = kGlyphs[*text == ':' ? 10 : *text == '.' ? 11 : *text - '0'];
        for (int i = 0; i < kGlyphRows * kGlyphColumns; i++) {
            const int row = i / kGlyphColumns, column = i % kGlyphColumns;
            if ((glyph[row] >> (kGlyphColumns - 1 - column) & 1) == 0) continue;
            fill_rectangle(picture, left + column * scale, top + row * scale, scale, scale, 235);
        }
    }
}

// The lower 16 bits of the time in milliseconds as a row of squares along the lower edge, the highest first,
// white for 1: what a program reads back from a picture that it is shown.
void draw_time_code(const PicturePlanes &picture, int64_t time_ms) {
    const int size = picture.height / 20, top = picture.height - size;
    for (int bit = 0; bit < kTimeCodeBits; bit++) {
        const bool set = (time_ms >> (kTimeCodeBits - 1 - bit) & 1) != 0;
        fill_rectangle(picture, bit * size, top, size, size, set ? 235 : 16);
    }
}

}  // namespace

void draw_picture(const PicturePlanes &picture, uint32_t number, int64_t time_ms) {
    const int seconds = static_cast<int>(time_ms / 1000 % 86400),
              tenths = static_cast<int>(time_ms / 100 % 10);
    char clock[16];
    snprintf(clock, sizeof clock, "%02d:%02d:%02d.%d", seconds / 3600 % 24, seconds / 60 % 60, seconds % 60,
             tenths % 10);
    draw_background(picture, number);
    const int size = picture.height / 6, way = static_cast<int>(number % 1000000) * 7;
    fill_rectangle(picture, bounce(way, picture.width - size), bounce(way / 2, picture.height - size), size,
                   size, 200);
    const int scale = std::max(picture.width / 80, 1);
    fill_rectangle(picture, 2 * scale, 2 * scale, (10 * (kGlyphColumns + 1) + 3) * scale,
                   (kGlyphRows + 4) * scale, 16);
    draw_text(picture, clock, 4 * scale, 4 * scale, scale);
    draw_time_code(picture, time_ms);
}
