// Frames: kind, time stamp, whether there are data, then the data; and the ADTS header of a length.
#include "frame/frame_sink.h"

#include <cstring>

#include "exports.h"
#include "support/fuzz.h"

namespace {

mipc_api_table table{};
std::string frame_data;                       // what the record's should be
uint32_t timestamp = 0;                       // and the record's
uint32_t video_frames = 0, audio_frames = 0;  // so far, handed over or not
int handed_over = 0;

int reference_key_frame(const std::string &data) {
    const auto at = [&](size_t i) { return static_cast<uint8_t>(data[i]); };
    for (size_t i = 0; i + 5 < data.size(); i++) {
        if (at(i) != 0 || at(i + 1) != 0 || at(i + 2) != 0 || at(i + 3) != 1) continue;
        const int kind = at(i + 4) % 16;
        if (kind == 7) return 1;
        if (kind == 1) return 0;
    }
    return 0;
}

std::string reference_header(size_t length) {
    const size_t whole = length + 7;
    const uint8_t header[] = {0xFF,
                              0xF1,
                              0x4C,
                              static_cast<uint8_t>(0x80 | (whole >> 11 & 3)),
                              static_cast<uint8_t>(whole >> 3 & 0xFF),
                              static_cast<uint8_t>((whole & 7) << 5 | 0x1F),
                              static_cast<uint8_t>(0xFC | (length >> 10 & 3))};
    return std::string(reinterpret_cast<const char *>(header), sizeof header);
}

// The record's data are a block of its own, which is freed here as the SDK would.
void check_data(uint8_t *data, uint32_t length, const std::string &expected) {
    handed_over++;
    check(length == expected.size() && std::memcmp(data, expected.data(), length) == 0,
          "a frame's data go over whole");
    std::free(data);
}

int take_video(video_record *record) {
    check(record->counter == 4 * video_frames, "the video counter grows by 4");
    check(record->word0 == 2 && record->word1 == 4 && record->byte8 == 0 && record->word3 == 0,
          "fixed words");
    check(record->word9 == 0 && record->word10 == 0, "unused words are 0");
    check(record->key_frame == reference_key_frame(frame_data),
          "the first deciding NAL unit makes a key frame");
    check(record->timestamp == timestamp / 100000, "time is divided by 100000");
    check_data(record->data, record->length, frame_data);
    return 0;
}

int take_audio(audio_record *record) {
    check(record->sequence == audio_frames, "the audio sequence grows by 1");
    check(record->counter == 3 * audio_frames, "the audio counter grows by 3");
    check(record->word0 == 0 && record->word4 == 0 && record->word7 == 0 && record->word8 == 0,
          "unused words are 0");
    check(record->timestamp == timestamp / 100000, "time is divided by 100000");
    check_data(record->data, record->length, reference_header(frame_data.size()) + frame_data);
    return 0;
}

void check_header(size_t length) {
    uint8_t header[kAdtsHeaderSize];
    write_adts_header(header, length);
    check(std::memcmp(header, reference_header(length).data(), sizeof header) == 0,
          "the ADTS header of a length");
}

}  // namespace

void prepare() {
    table.video_frame = take_video;
    table.audio_frame = take_audio;
}

void try_input(Input input) {
    const uint8_t choice = input.byte();
    mipc_api_table empty{};
    mipc_api_table *const tables[] = {&table, &table, &empty, nullptr};
    mipc_api = tables[choice / 4 % 4];
    timestamp = input.number();
    check_header(input.number());
    const bool no_data = input.byte() == 1;
    frame_data = input.rest();
    const Block data(frame_data);
    captured_frame frame{no_data ? nullptr : reinterpret_cast<uint8_t *>(data.data.get()),
                         0,
                         0,
                         static_cast<int32_t>(choice % 4),
                         timestamp,
                         static_cast<uint32_t>(data.size)};
    check(is_key_frame(reinterpret_cast<const uint8_t *>(data.data.get()), data.size) ==
              reference_key_frame(frame_data),
          "the key-frame scan");
    if (frame.kind == 1) video_frames++;
    if (frame.kind == 2) audio_frames++;
    handed_over = 0;
    const int frames = get_frame_callback_flag;
    new_getframe_callback(&frame);
    const bool of_a_kind = frame.kind == 1 || frame.kind == 2;
    check(handed_over == (mipc_api == &table && of_a_kind && !no_data ? 1 : 0),
          "a frame with data is handed over once");
    check(get_frame_callback_flag == static_cast<int>(static_cast<unsigned>(frames) + 1),
          "every frame counts");
}
