// The capture itself: one thread that delivers frames, from the encoder or made up, while capture is started.
// All functions may be called from any thread.
#pragma once

#include "contract.h"
#include "json_http.h"
#include "synthetic_frames.h"

namespace desk {

using FrameSink = void (*)(captured_frame *frame);

// The library's entries; results as ordered (0 at first).
int initialise_capture(FrameSink sink);
int start_capture();
int stop_capture();

// Hands one frame to the sink, never two at a time; false when there is no sink yet.
bool deliver_frame(captured_frame &frame);

// What PUT /capture may change; throws bad_request for values that make no sense.
void change_capture(const json &order);
json capture_state();
// What synthetic frames look like unless an order says otherwise.
FramePlan live_plan();

}  // namespace desk
