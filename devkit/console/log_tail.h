// Follows the agent's log: each line with the time at which it came, into the hub's list "log".
#pragma once

#include <string>

#include "hub.h"

constexpr size_t kEptLogLines = 4000;

// Never returns. The file may be missing yet; one that becomes shorter is read anew.
[[noreturn]] void follow_log(const std::string &path, Hub &page);
