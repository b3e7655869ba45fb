// The JSON interface inside the agent's process: every request and what answers it.
#pragma once

#include "json_http.h"

namespace desk {

// Serves the interface on the port that the environment asks for and writes the ports file; returns the port.
// Once a process.
int start_interface();

// Applies the requests that an environment variable holds, [[method, target, body], ...]; returns the
// replies, null when it is not set.
json apply_orders(const char *variable);

}  // namespace desk
