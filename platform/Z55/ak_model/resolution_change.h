// The change of the live stream's profile: detections off, stream changed, detections back on, on a detached
// thread of its own per request, whose routine is in exports.h: resolutionChange. Threads may overlap; each
// posts the profile selected last.
#ifndef Z55_AK_MODEL_RESOLUTION_CHANGE_H
#define Z55_AK_MODEL_RESOLUTION_CHANGE_H

// Selects stream profile `requested` (1 when it is none of 1 to 3) and starts the thread that switches the
// camera to it. Returns at once. Any thread.
void start_resolution_change(int requested);

#endif
