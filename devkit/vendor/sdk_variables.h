// The agent's exported variables, read and set by name.
#pragma once

#include "json_http.h"

namespace desk {

// {"name", "value"}; throws bad_request when the process exports no such name.
json read_variable(const std::string &name);
// Sets an exported int; throws bad_request for any other variable.
void set_variable(const std::string &name, int value);

}  // namespace desk
