// What an alarm record is called, and what raised it: the camera's value and the threshold that it passed.
#pragma once

#include <string>

#include "json.h"

// `camera` is the camera's state, `conf` the agent's configuration (keys and texts); either may be null.
// {"title": "Battery low", "raised": "Battery 5 under BATTERY_LOW 20"}
json alarm_cause(int status, const json &camera, const json &conf);
