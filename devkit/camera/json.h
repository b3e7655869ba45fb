// The JSON type of the camera: ordered, so that what is shown stands in the order in which it was set.
#pragma once

#include <nlohmann/json.hpp>

using json = nlohmann::ordered_json;
