// The gain of talk-back sound.
#ifndef Z55_FRAME_AMPLIFY_H
#define Z55_FRAME_AMPLIFY_H

#include <cstddef>
#include <cstdint>

// Raises the volume of `count` 16-bit samples by half, truncating toward zero and wrapping around.
void amplify(int16_t *samples, size_t count);

#endif
