#include "reply_text.h"

#include <cstdint>
#include <cstring>

#include "text.h"

namespace {

constexpr size_t kLongestTagName = 26;

// A set of texts as far as a mixture of their first two characters tells them apart: what is surely none of
// them need not be compared with each.
class Beginnings {
  public:
    void add(std::string_view text) {
        bits_ |= text.size() < 2 ? ~std::uint32_t{0} : bit(text);
    }
    bool may_have(std::string_view text) const {
        return text.size() < 2 || (bits_ & bit(text)) != 0;
    }

  private:
    static std::uint32_t bit(std::string_view text) {
        return std::uint32_t{1} << ((text[0] + 3 * text[1]) & 31);
    }
    std::uint32_t bits_ = 0;
};

// Whether `text`, which stands behind a "<" or "</", begins with the rest of the tag.
bool is_tag(std::string_view text, std::string_view name) {
    size_t left = name.size();
    if (left >= text.size() || text[left] != '>' || left > kLongestTagName) return false;
    while (left > 0 && text[left - 1] == name[left - 1]) left--;
    return left == 0;
}

void take_opening(std::span<XmlElement> elements, std::string_view text) {
    for (XmlElement &element : elements) {
        if (!is_tag(text, element.tag)) continue;
        if (element.begin == nullptr) element.begin = text.data() + element.tag.size() + 1;
    }
}

// Returns how many elements that decides.
size_t take_closing(std::span<XmlElement> elements, std::string_view text) {
    size_t decided = 0;
    for (XmlElement &element : elements) {
        if (!is_tag(text, element.tag) || element.end != nullptr) continue;
        element.end = text.data() - 2;
        decided++;
    }
    return decided;
}

}  // namespace

std::optional<std::string_view> XmlElement::text() const {
    if (begin == nullptr || end == nullptr || begin > end) return std::nullopt;
    return std::string_view(begin, static_cast<size_t>(end - begin));
}

void find_xml_elements(std::string_view text, std::span<XmlElement> elements) {
    Beginnings tags;
    for (const XmlElement &element : elements) tags.add(element.tag);
    size_t undecided = elements.size();
    for (size_t at = text.find('<'); undecided > 0 && at != std::string_view::npos; at = text.find('<')) {
        text.remove_prefix(at + 1);
        if (tags.may_have(text)) take_opening(elements, text);
        if (text.starts_with('/') && tags.may_have(text.substr(1)))
            undecided -= take_closing(elements, text.substr(1));
    }
}

std::optional<std::string> find_xml_value(std::string_view text, const char *tag) {
    XmlElement element{tag};
    find_xml_elements(text, {&element, 1});
    const auto value = element.text();
    return value ? std::optional<std::string>(*value) : std::nullopt;
}

std::optional<std::string> read_error_code(std::string_view text) {
    return find_xml_value(text, kErrorCode.data());
}

int error_code_number(std::string_view text) {
    const auto code = read_error_code(text);
    return code ? to_int(code->c_str()) : 0;
}

std::optional<std::string> camera_error(const XmlElement &error_code) {
    const auto code = error_code.text();
    if (!code) return std::nullopt;
    std::string text(*code);
    if (to_int(text.c_str()) == 0) return std::nullopt;
    return text;
}

std::optional<std::string> camera_error(std::string_view text) {
    XmlElement error_code{kErrorCode};
    find_xml_elements(text, {&error_code, 1});
    return camera_error(error_code);
}
