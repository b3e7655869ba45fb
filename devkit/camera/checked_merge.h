// Merging what somebody sent into an object whose names and types are known.
#pragma once

#include "json.h"

// Sets members of `target` (an object) to those of `changes`, objects inside likewise. Throws
// std::invalid_argument, and changes nothing, for a name that `target` does not have, a value of another
// type, or a negative number where none makes sense.
void checked_merge(json &target, const json &changes);
