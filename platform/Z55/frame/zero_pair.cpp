// Compiled for speed: the compiler makes vector code of this loop, with NEON on the target.
#include "zero_pair.h"

namespace {

// Of a block that lies anywhere.
using Pair = uint16_t __attribute__((aligned(1), may_alias));

}  // namespace

bool has_zero_pair(const uint8_t *block) {
    const Pair *const pairs = reinterpret_cast<const Pair *>(block);
    uint16_t found = 0;
    for (size_t i = 0; i < kZeroPairBlock / sizeof(Pair); i++)
        found = static_cast<uint16_t>(found | (pairs[i] == 0 ? 0xFFFF : 0));
    return found != 0;
}
