// The version, readable from the file without running it: a note of the form that systemd and crash
// collectors know (`readelf --notes VeloAgent`, or `strings VeloAgent | grep '"version"'`).
#include <cstdint>

#define NOTE_TEXT "{\"name\":\"veloagent\",\"version\":\"" VELO_VERSION "\"}"

namespace {

struct PackageNote {
    uint32_t owner_size, text_size, kind;
    char owner[4];
    char text[(sizeof(NOTE_TEXT) + 3) / 4 * 4];
};

// Linkers keep notes when they drop sections that nothing refers to.
[[gnu::section(".note.package"), gnu::used]] alignas(4) constinit const PackageNote kNote = {
    sizeof kNote.owner, sizeof kNote.text, 0xcafe1a7e, "FDO", NOTE_TEXT};

}  // namespace
