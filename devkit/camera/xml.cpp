#include "xml.h"

XmlElements top_elements(std::string_view text) {
    XmlElements found;
    for (;;) {
        const auto open = text.find('<');
        const auto open_end = open == text.npos ? text.npos : text.find('>', open);
        if (open_end == text.npos) return found;
        const std::string name(text.substr(open + 1, open_end - open - 1));
        const std::string closing = "</" + name + ">";
        const auto close = text.find(closing, open_end);
        if (close == text.npos) return found;
        found.emplace_back(name, text.substr(open_end + 1, close - open_end - 1));
        text.remove_prefix(close + closing.size());
    }
}

std::optional<std::string> find_element(const XmlElements &elements, std::string_view name) {
    for (const auto &[element, content] : elements)
        if (element == name) return content;
    return std::nullopt;
}

std::string xml_element(std::string_view name, std::string_view content) {
    std::string text = "<";
    text.append(name).append(">").append(content).append("</").append(name).append(">");
    return text;
}
