// The SDK's session with the agent and the table that it gave it. Called from any thread.
#pragma once

#include "json_http.h"

namespace desk {

// {"uuid", "interface", "init_count", "at_init", "request_vedio", "slots"}
json session_state();

// Sets `request_vedio`.
void want_video(int value);
// Empties or fills a slot of the table in use; throws bad_request for a slot that is never filled.
void set_slot(int slot, bool present);
// Whether vq_ipca_init returns null from now on.
void give_null_table(bool null_table);

}  // namespace desk
