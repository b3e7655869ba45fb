// The cloud's remote operations that others start too. The handlers themselves are in exports.h.
#ifndef Z55_AK_MODEL_REMOTE_OPERATIONS_H
#define Z55_AK_MODEL_REMOTE_OPERATIONS_H

// Formats the SD card and makes the upgrade's reserve file on the fresh card. Returns 0, or -1 when the
// camera could not be asked. Blocks for the request and the writing of the file.
[[nodiscard]] int formatSD();

#endif
