// The camera's replies: values taken out of them.
#include <cstdio>
#include <cstring>
#include <memory>

#include "agent/utils/reply_text.h"
#include "bench.h"

namespace {

using Names = std::vector<const char *>;

const Names &poll_names() {
    static const Names names = {"MotionEvent", "AudioEvent", "TemperatureEvent",
                                "Battery",     "Space",      "SDStatus"};
    return names;
}

// The reply of a poll, 172 bytes.
const std::string &poll_reply() {
    static const std::string text = [] {
        std::string all;
        for (const char *name : poll_names()) {
            all += std::string("<") + name + ">" + (all.size() > 90 ? "42" : "0") + "</" + name + ">";
        }
        all.resize(172, '\n');
        return all;
    }();
    return text;
}

// The same six values among other elements, 1.8 KB; the last one at the end.
const std::string &long_reply() {
    static const std::string text = [] {
        std::string all;
        size_t next = 0;
        for (int i = 0; all.size() < 1760; i++) {
            char element[80];
            std::snprintf(element, sizeof element, "<SomeStatus%02d>value %d</SomeStatus%02d>", i, i, i);
            all += element;
            if (i % 7 == 6 && next < 5) {
                const std::string name = poll_names()[next++];
                all += "<" + name + ">42</" + name + ">";
            }
        }
        return all + "<SDStatus>1</SDStatus>";
    }();
    return text;
}

// The opening tag and the end of its text are looked for once each.
void read_by_strstr(const std::string &reply, const Names &names) {
    for (const char *name : names) {
        char tag[32];
        std::snprintf(tag, sizeof tag, "<%s>", name);
        const char *open = std::strstr(reply.c_str(), tag);
        if (open == nullptr) continue;
        const char *start = open + std::strlen(tag);
        const std::string value(start, std::strcspn(start, "<"));
        keep(value.data());
    }
}

Row row_of(const char *id, const std::string &reply, int batch) {
    Row row{id, {{"product", [&reply] { read_values(reply, poll_names()); }}}, batch};
    add_text_peers(row, reply, poll_names());
    row.contestants.push_back({"strstr", [&reply] { read_by_strstr(reply, poll_names()); }});
    return row;
}

}  // namespace

void read_values(const std::string &reply, const std::vector<const char *> &names) {
    std::vector<XmlElement> elements;
    elements.reserve(names.size() + 1);
    for (const char *name : names) elements.push_back({name});
    elements.push_back({kErrorCode});
    find_xml_elements(reply, elements);
    const auto error = camera_error(elements.back());
    keep(&error);
    for (const XmlElement &element : elements) {
        const std::string value(element.text().value_or(""));
        keep(value.data());
    }
}

void add_text_rows(std::vector<Row> &rows) {
    rows.push_back(row_of("six values of 1.8 KB", long_reply(), 100));
    rows.push_back(row_of("six values of 172 B", poll_reply(), 200));
}
