#include "commands.h"

using nlohmann::json;

namespace {

json as_json(const std::string &text) {
    json value = json::parse(text, nullptr, false);
    return value.is_discarded() ? json(text) : value;
}

// "$3" and "#3" name the third argument; 0 for any other text.
size_t argument_number(const std::string &text) {
    const bool names_one =
        text.size() == 2 && (text[0] == '$' || text[0] == '#') && text[1] >= '1' && text[1] <= '9';
    return names_one ? static_cast<size_t>(text[1] - '0') : 0;
}

// False when the argument that `value` names is missing.
bool fill(json &value, const Texts &arguments);

void fill_members(json &object, const Texts &arguments) {
    json filled = json::object();
    for (auto &[name, value] : object.items()) {
        const size_t number = argument_number(name);
        if (fill(value, arguments)) filled[number != 0 ? arguments.at(number - 1) : name] = value;
    }
    object = filled;
}

void fill_elements(json &array, const Texts &arguments) {
    json filled = json::array();
    for (json &value : array) {
        if (fill(value, arguments)) filled.push_back(value);
    }
    array = filled;
}

bool fill(json &value, const Texts &arguments) {
    if (value.is_object()) fill_members(value, arguments);
    if (value.is_array()) fill_elements(value, arguments);
    if (!value.is_string()) return true;
    const auto text = value.get<std::string>();
    if (text == "#*") {
        value = json::array();
        for (const std::string &argument : arguments) value.push_back(as_json(argument));
        return true;
    }
    const size_t number = argument_number(text);
    if (number == 0) return true;
    if (number > arguments.size()) return false;
    const std::string &argument = arguments[number - 1];
    value = text[0] == '#' ? as_json(argument) : json(argument);
    return true;
}

}  // namespace

std::string fill_path(const char *path, const Texts &arguments) {
    std::string filled = path;
    for (size_t number = 1; number <= arguments.size() && number <= 9; ++number) {
        const size_t place = filled.find(std::string{'$', static_cast<char>('0' + number)});
        if (place != std::string::npos) filled.replace(place, 2, arguments[number - 1]);
    }
    // What begins at an argument that is missing falls away with its "?" and name.
    return filled.find('$') == std::string::npos ? filled : filled.substr(0, filled.find('?'));
}

json fill_body(const char *body, const Texts &arguments) {
    if (*body == '\0') return nullptr;
    json filled = json::parse(body);
    fill(filled, arguments);
    return filled;
}
