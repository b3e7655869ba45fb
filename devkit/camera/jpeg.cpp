#include "jpeg.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>

namespace {

// Every 8x8 block has one colour, so only DC coefficients are coded; the AC table holds nothing but "end of
// block". A quantiser of 8 makes one DC step one grey level.
constexpr unsigned kQuantiser = 8;
constexpr unsigned kDcCodeBits = 4;  // twelve categories, each with a code of four bits: the category itself

class BitWriter {
  public:
    explicit BitWriter(std::string &out) : out_(out) {}
    void put(unsigned value, unsigned bits) {
        while (bits-- > 0) {
            pending_ = pending_ << 1 | (value >> bits & 1);
            if (++filled_ == 8) flush_byte();
        }
    }
    // The last byte is filled up with ones.
    void finish() {
        while (filled_ != 0) put(1, 1);
    }

  private:
    void flush_byte() {
        out_ += static_cast<char>(pending_);
        if (pending_ == 0xFF) out_ += '\0';  // or it would be read as a marker
        pending_ = 0;
        filled_ = 0;
    }
    std::string &out_;
    unsigned pending_ = 0, filled_ = 0;
};

void append_segment(std::string &out, unsigned marker, const std::string &content) {
    const std::size_t length = content.size() + 2;
    out += '\xFF';
    out += static_cast<char>(marker);
    out += static_cast<char>(length >> 8);
    out += static_cast<char>(length & 0xFF);
    out += content;
}

std::string huffman_table(unsigned id, unsigned code_bits, unsigned symbols) {
    std::string table(1, static_cast<char>(id));
    for (unsigned bits = 1; bits <= 16; ++bits) table += static_cast<char>(bits == code_bits ? symbols : 0);
    for (unsigned symbol = 0; symbol < symbols; ++symbol) table += static_cast<char>(symbol);
    return table;
}

std::string frame_header(unsigned width, unsigned height) {
    std::string header(1, '\x08');
    for (const unsigned side : {height, width}) {
        header += static_cast<char>(side >> 8);
        header += static_cast<char>(side & 0xFF);
    }
    header += '\x03';
    for (char component = 1; component <= 3; ++component) header.append({component, '\x11', '\0'});
    return header;
}

void put_block(BitWriter &bits, int difference) {
    const unsigned magnitude = static_cast<unsigned>(std::abs(difference));
    unsigned category = 0;
    while (magnitude >> category) ++category;
    bits.put(category, kDcCodeBits);
    const int coded = difference < 0 ? difference + (1 << category) - 1 : difference;
    bits.put(static_cast<unsigned>(coded), category);
    bits.put(0, 1);
}

std::string picture_data(unsigned width, unsigned height, unsigned seed) {
    std::string data;
    BitWriter bits(data);
    std::array<int, 3> last{};
    for (unsigned y = 0; y < height / 8; ++y)
        for (unsigned x = 0; x < width / 8; ++x) {
            const std::array<unsigned, 3> level{x * 3 + y * 5 + seed * 16, x * 4 + seed * 40,
                                                y * 4 + seed * 24};
            for (unsigned i = 0; i < level.size(); ++i) {
                const int wave =
                    std::abs(static_cast<int>(level[i] % 240) - 120);  // a triangle: neighbours differ little
                put_block(bits, wave - 60 - last[i]);
                last[i] = wave - 60;
            }
        }
    bits.finish();
    return data;
}

// Comment segments that take exactly `bytes` bytes (0, or 4 and more), filled so that no part looks like
// another.
std::string padding(std::size_t bytes, unsigned seed) {
    constexpr std::size_t kLargest = 65535 + 2, kSmallest = 4;
    std::string out;
    std::uint32_t noise = seed * 2654435761u + 1;
    while (bytes > 0) {
        std::size_t segment = std::min(bytes, kLargest);
        if (bytes != segment && bytes - segment < kSmallest) segment -= kSmallest;
        std::string comment(segment - kSmallest, '\0');
        for (char &byte : comment) {
            noise = noise * 1664525u + 1013904223u;
            byte = static_cast<char>(noise >> 24);
        }
        append_segment(out, 0xFE, comment);
        bytes -= segment;
    }
    return out;
}

}  // namespace

std::string make_jpeg(unsigned width, unsigned height, unsigned seed, std::size_t bytes) {
    std::string tail;
    append_segment(tail, 0xDB, std::string(1, '\0') + std::string(64, static_cast<char>(kQuantiser)));
    append_segment(tail, 0xC0, frame_header(width, height));
    append_segment(tail, 0xC4, huffman_table(0x00, kDcCodeBits, 12));
    append_segment(tail, 0xC4, huffman_table(0x10, 1, 1));
    append_segment(tail, 0xDA, {'\x03', '\x01', '\0', '\x02', '\0', '\x03', '\0', '\0', '\x3F', '\0'});
    tail += picture_data(width, height, seed);
    tail += "\xFF\xD9";

    std::string head = "\xFF\xD8";
    append_segment(head, 0xE0, {'J', 'F', 'I', 'F', '\0', 1, 1, 0, 0, 1, 0, 1, 0, 0});
    const std::size_t plain = head.size() + tail.size();
    const std::size_t missing = bytes > plain ? std::max<std::size_t>(bytes - plain, 4) : 0;
    return head + padding(missing, seed) + tail;
}
