#include "output.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iostream>

using nlohmann::json;

namespace {

bool as_json = false;

std::string dumped(const json &value) {
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

bool colours_on(int file) {
    const char *refused = std::getenv("NO_COLOR"), *terminal = std::getenv("TERM");
    if ((refused != nullptr && *refused != '\0') || as_json) return false;
    return isatty(file) == 1 && terminal != nullptr && std::string(terminal) != "dumb";
}

const char *colour_code(Colour colour) {
    switch (colour) {
        case Colour::dim:
            return "\033[2m";
        case Colour::good:
            return "\033[32m";
        case Colour::bad:
            return "\033[31m";
        case Colour::warm:
            return "\033[33m";
        case Colour::cold:
            return "\033[36m";
    }
    return "";
}

bool has_objects(const json &array) {
    for (const json &value : array) {
        if (value.is_object()) return true;
    }
    return false;
}

// A line for each leaf: "recording.active  false"; an array's objects have a line each.
void put_leaves(const json &value, const std::string &path) {
    if (value.is_object() && !value.empty()) {
        for (const auto &[name, member] : value.items())
            put_leaves(member, path.empty() ? name : path + "." + name);
    } else if (value.is_array() && has_objects(value)) {
        for (const json &element : value)
            std::cout << path << (path.empty() ? "" : "  ") << inline_text(element) << '\n';
    } else {
        std::cout << path << (path.empty() ? "" : "  ") << inline_text(value) << '\n';
    }
}

}  // namespace

void choose_json() {
    as_json = true;
}

bool json_chosen() {
    return as_json;
}

void put(const std::string &text, const json &object) {
    std::cout << (as_json ? dumped(object) : text) << std::endl;
}

void put_value(const json &value, const std::string &name) {
    if (as_json && value.is_array() && has_objects(value)) {
        for (const json &element : value) put_value(element);
    } else if (as_json) {
        put("", value.is_object() ? value : json{{name, value}});
    } else if (value.is_string()) {
        const auto text = value.get<std::string>();
        std::cout << text << (text.ends_with('\n') ? "" : "\n");
    } else {
        put_leaves(value, "");
    }
    std::cout.flush();
}

void put_error(const std::string &sentence) {
    std::cout.flush();
    if (as_json) {
        std::cerr << dumped({{"error", sentence}}) << '\n';
    } else if (colours_on(STDERR_FILENO)) {
        std::cerr << colour_code(Colour::bad) << "desk:\033[0m " << sentence << '\n';
    } else {
        std::cerr << "desk: " << sentence << '\n';
    }
}

std::string coloured(Colour colour, const std::string &text) {
    return colours_on(STDOUT_FILENO) ? colour_code(colour) + text + "\033[0m" : text;
}

std::string inline_text(const json &value) {
    if (value.is_string()) return one_line(value.get<std::string>());
    if (!value.is_structured()) return dumped(value);
    std::string text;
    for (const auto &[name, member] : value.items()) {
        text += text.empty() ? "" : ", ";
        text += value.is_object() ? name + " " + inline_text(member) : inline_text(member);
    }
    return text.empty() ? "none" : text;
}

std::string one_line(std::string text) {
    for (char &character : text) {
        if (static_cast<unsigned char>(character) < ' ' || character == '\x7f') character = ' ';
    }
    return text;
}

std::string bytes_text(double bytes) {
    const char *const units[] = {"bytes", "kB", "MB", "GB"};
    size_t unit = 0;
    for (; bytes >= 1000 && unit < 3; ++unit) bytes /= 1000;
    char text[32];
    std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", bytes, units[unit]);
    return text;
}

std::string clock_text(std::int64_t seconds) {
    const auto moment = static_cast<std::time_t>(seconds);
    std::tm parts{};
    if (localtime_r(&moment, &parts) == nullptr) return "--:--:--";
    char text[16];
    std::strftime(text, sizeof text, "%H:%M:%S", &parts);
    return text;
}
