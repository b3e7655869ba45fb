#include "reply_text.h"

#include <cstring>

#include "text.h"

namespace {

// The tags are built in buffers of 30 bytes, of which the closing one takes "</", ">" and the terminator.
constexpr size_t kLongestTagName = 26;

}  // namespace

std::optional<std::string> find_xml_value(const std::string &text, const char *tag) {
    if (std::strlen(tag) > kLongestTagName) return std::nullopt;
    const std::string opening = std::string("<") + tag + ">";
    const std::string closing = std::string("</") + tag + ">";
    const size_t open = text.find(opening);
    const size_t close = text.find(closing);
    if (open == std::string::npos || close == std::string::npos) return std::nullopt;
    const size_t start = open + opening.size();
    if (start > close) return std::nullopt;
    return text.substr(start, close - start);
}

std::optional<std::string> read_error_code(const std::string &text) {
    return find_xml_value(text, "ErrorCode");
}

int error_code_number(const std::string &text) {
    const auto code = read_error_code(text);
    return code ? to_int(code->c_str()) : 0;
}

std::optional<std::string> camera_error(const std::string &text) {
    auto code = read_error_code(text);
    if (code && *code == "0") code.reset();
    return code;
}
