// Scanning of the camera's XML-like replies by plain text search. Any thread; nothing is kept between calls.
#ifndef Z55_AGENT_UTILS_REPLY_TEXT_H
#define Z55_AGENT_UTILS_REPLY_TEXT_H

#include <optional>
#include <string>
#include <string_view>

// The text between the first "<tag>" and the first "</tag>" of `text`, raw; nothing when either is missing or
// they stand the wrong way round. A tag name of more than 26 characters is never found.
std::optional<std::string> find_xml_value(std::string_view text, const char *tag);

// The "ErrorCode" element's text; nothing when the reply has none.
std::optional<std::string> read_error_code(std::string_view text);

// The "ErrorCode" element's number, 0 when the reply has none: both mean success.
int error_code_number(std::string_view text);

// The "ErrorCode" element's text when it tells of an error: its number is not 0.
std::optional<std::string> camera_error(std::string_view text);

#endif
