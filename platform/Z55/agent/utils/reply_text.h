// Scanning of the camera's XML-like replies by plain text search. Any thread; nothing is kept between calls.
#ifndef Z55_AGENT_UTILS_REPLY_TEXT_H
#define Z55_AGENT_UTILS_REPLY_TEXT_H

#include <optional>
#include <span>
#include <string>
#include <string_view>

// An element that is looked for in a reply, and where in it its text was found.
struct XmlElement {
    std::string_view tag;         // its name
    const char *begin = nullptr;  // behind the first "<tag>", which need not be looked for behind `end`
    const char *end = nullptr;    // where the first "</tag>" begins

    // The raw text between them; nothing when either is missing or they stand the wrong way round.
    std::optional<std::string_view> text() const;
};

// Looks for all `elements` in one walk over `text`, which their texts are parts of then. A tag name of more
// than 26 characters is never found.
void find_xml_elements(std::string_view text, std::span<XmlElement> elements);

// The text of one element.
std::optional<std::string> find_xml_value(std::string_view text, const char *tag);

// The "ErrorCode" element's text; nothing when the reply has none.
std::optional<std::string> read_error_code(std::string_view text);

// The "ErrorCode" element's number, 0 when the reply has none: both mean success.
int error_code_number(std::string_view text);

// The "ErrorCode" element's text when it tells of an error: its number is not 0.
std::optional<std::string> camera_error(std::string_view text);
std::optional<std::string> camera_error(const XmlElement &error_code);

inline constexpr std::string_view kErrorCode = "ErrorCode";

#endif
