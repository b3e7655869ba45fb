// The frame sink: turns captured frames into the cloud SDK's records. The exported sink is in exports.h:
// new_getframe_callback, on the capture library's thread; one allocation and one copy per frame, no lock, no
// log line.
#ifndef Z55_FRAME_FRAME_SINK_H
#define Z55_FRAME_FRAME_SINK_H

#include <cstddef>
#include <cstdint>

inline constexpr size_t kAdtsHeaderSize = 7;

// 1 when the first slice or parameter set that decides makes this H.264 frame (Annex B) a key frame, else 0.
int is_key_frame(const uint8_t *data, size_t length);

// Writes the ADTS header (AAC-LC, 48 kHz) of a frame with `length` bytes of AAC data.
void write_adts_header(uint8_t (&header)[kAdtsHeaderSize], size_t length);

#endif
