// Calls of the agent's handlers on threads of the SDK.
#pragma once

#include "contract.h"
#include "json_http.h"

namespace desk {

// The callback table that vq_ipca_init was given; null before.
void set_callbacks(const device_callbacks *callbacks);
// {"get_device_status": true, ...}: which of the nine are there.
json present_callbacks();

// POST /call: calls a handler by name on new threads and waits for them (unless "async"); throws bad_request
// for a name, a callback or an argument that is not there.
json call_handler(const json &order);
// {"running", "finished"}: calls since the start.
json call_counts();

// POST /talk: feeds a whole WAV file or PCM text to device_play_audio in frames, on a thread of its own.
json talk(const json &order);

}  // namespace desk
