// The cloud's remote operations that others start too. The handlers themselves are in exports.h.
#ifndef Z55_AK_MODEL_REMOTE_OPERATIONS_H
#define Z55_AK_MODEL_REMOTE_OPERATIONS_H

#include <string>

// Selects stream profile `requested` (1 when it is none of 1 to 3) and starts the thread that switches the
// camera to it. Returns at once. Any thread.
void start_resolution_change(int requested);

// Formats the SD card and makes the upgrade's reserve file on the fresh card. Returns 0, or -1 when the
// camera could not be asked. Blocks for the request and the writing of the file.
int formatSD();

// Posts a remote-control document. Returns curl_POST's result.
int post_remote_control(const std::string &body);

#endif
