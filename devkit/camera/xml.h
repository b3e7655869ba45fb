// The little of XML that the camera speaks: elements without attributes, no entities, no element inside one
// of its own name.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using XmlElements = std::vector<std::pair<std::string, std::string>>;

// The elements at the top level of `text`, in order, as (name, raw content). Text between them is skipped;
// reading ends at an element that is not closed.
XmlElements top_elements(std::string_view text);

// The raw content of the first top-level element of that name.
std::optional<std::string> find_element(const XmlElements &elements, std::string_view name);

// "<name>content</name>".
std::string xml_element(std::string_view name, std::string_view content);
