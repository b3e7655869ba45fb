// The loop of the key-frame scan, in a file of its own: it is compiled to vector code. Any thread.
#ifndef Z55_FRAME_ZERO_PAIR_H
#define Z55_FRAME_ZERO_PAIR_H

#include <cstddef>
#include <cstdint>

inline constexpr size_t kZeroPairBlock = 256;  // bytes

// Whether two bytes side by side in `block`, of kZeroPairBlock bytes, are 0 of which the first is at an even
// place. Among three zeros in a row there are always two such.
bool has_zero_pair(const uint8_t *block);

#endif
