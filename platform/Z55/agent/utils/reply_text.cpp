#include "reply_text.h"

#include <cstdio>
#include <cstring>

#include "text.h"

namespace {

constexpr size_t kTagSize = 30;  // bytes of the buffers in which the tags are built
constexpr size_t kLongestTagName = kTagSize - sizeof "</>";

}  // namespace

std::optional<std::string> find_xml_value(std::string_view text, const char *tag) {
    if (std::strlen(tag) > kLongestTagName) return std::nullopt;
    char opening[kTagSize], closing[kTagSize];
    std::snprintf(opening, sizeof opening, "<%s>", tag);
    std::snprintf(closing, sizeof closing, "</%s>", tag);
    const size_t open = text.find(opening);
    const size_t close = text.find(closing);
    if (open == std::string_view::npos || close == std::string_view::npos) return std::nullopt;
    const size_t start = open + std::strlen(opening);
    if (start > close) return std::nullopt;
    return std::string(text.substr(start, close - start));
}

std::optional<std::string> read_error_code(std::string_view text) {
    return find_xml_value(text, "ErrorCode");
}

int error_code_number(std::string_view text) {
    const auto code = read_error_code(text);
    return code ? to_int(code->c_str()) : 0;
}

std::optional<std::string> camera_error(std::string_view text) {
    auto code = read_error_code(text);
    if (code && to_int(code->c_str()) == 0) code.reset();
    return code;
}
