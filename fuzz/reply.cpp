// Scanning of the camera's replies: an element's name up to 0xFF, then the reply.
#include "agent/utils/reply_text.h"

#include <optional>

#include "support/fuzz.h"

namespace {

constexpr size_t kLongestName = 26;

// Where `part` first stands in `whole`; its size when it does not.
size_t reference_find(const std::string &whole, const std::string &part) {
    for (size_t at = 0; at + part.size() <= whole.size(); at++) {
        if (whole.compare(at, part.size(), part) == 0) return at;
    }
    return whole.size() + 1;
}

std::optional<std::string> reference_value(const std::string &reply, const std::string &name) {
    if (name.size() > kLongestName) return std::nullopt;
    const std::string opening = "<" + name + ">";
    const size_t open = reference_find(reply, opening), close = reference_find(reply, "</" + name + ">");
    if (open > reply.size() || close > reply.size() || open + opening.size() > close) return std::nullopt;
    std::string value;
    for (size_t at = open + opening.size(); at < close; at++) value += reply[at];
    return value;
}

void check_error_code(std::string_view reply, const std::string &text) {
    const auto code = reference_value(text, "ErrorCode");
    const int number = code ? reference_number(until_nul(*code)) : 0;
    check(read_error_code(reply) == code, "the error code is the text of the element ErrorCode");
    check(error_code_number(reply) == number, "the error number is the code's, 0 without one");
    check(camera_error(reply) == (number != 0 ? code : std::nullopt), "0 and no code are no error");
}

}  // namespace

void prepare() {}

void try_input(Input input) {
    const std::string name = until_nul(input.text());
    const std::string text = input.rest();
    const Block reply(text);
    const std::string_view view(reply.data.get(), reply.size);
    check(find_xml_value(view, name.c_str()) == reference_value(text, name),
          "a value is what stands between the first opening and the first closing tag");
    check_error_code(view, text);
}
