// Bytes and C texts as JSON values, both ways.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace desk {

using nlohmann::json;

std::string to_hex(const void *bytes, size_t length);
std::string to_base64(const void *bytes, size_t length);
// Throws bad_request when the text is no base64.
std::string from_base64(const std::string &text);

// Null for a null pointer; text that is no UTF-8 becomes one code point U+0000..U+00FF for each byte.
json text_value(const char *text);
json text_value(const std::string &text);

// A text argument: null, a string, {"base64":"..."} or {"repeat":"x","times":N}; throws bad_request for
// anything else.
std::optional<std::string> text_argument(const json &value);

// The whole of a file; throws bad_request when it cannot be read.
std::string read_file(const std::string &path);

}  // namespace desk
