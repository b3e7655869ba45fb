// The one JSON type of this program, and how it is written: bytes that are no UTF-8 are replaced, never
// refused.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

using nlohmann::json;

inline std::string json_text(const json &value) {
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}
