// Changes of the parameters that the camera or the configuration holds, for the SDK's handler and for those
// who change one on their own. Any thread; blocks for two requests and for another thread's change of the
// same group, or for the disk.
#ifndef Z55_AK_MODEL_PARAMETER_STORE_H
#define Z55_AK_MODEL_PARAMETER_STORE_H

#include <string>

#include "parameters.h"

// What each change begins with in the log.
void log_parameter_write(const char *name, const char *value, int value_length);

// Sets the parameter, of any kind but the resolution. Returns 0, -1 when a request failed, or 5 when the
// camera's group lacks an element. A configuration that cannot be written has said so in the log.
[[nodiscard]] int write_parameter(const Parameter &parameter, const char *value);

// Posts a setting document; an empty one is how all unexpected values of the switches end. Returns 0 or -1.
[[nodiscard]] int post_setting(const std::string &document);

#endif
