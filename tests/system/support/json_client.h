// One JSON request to a control interface on 127.0.0.1. Any thread.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

using json = nlohmann::json;

// Sends `body` (nothing when null) and returns the answer's JSON (null for an empty one). Blocks for up to
// two minutes. Throws std::runtime_error when there is no answer or its status is not 200.
json json_request(int port, const std::string &method, const std::string &path, const json &body = nullptr);
