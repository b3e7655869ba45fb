#include "names.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <memory>
#include <numeric>

#include "scenario.h"

namespace {

using List = std::span<const Name> (*)();

constexpr long long kMostNumber = 2000000000;

// A kind of argument: its names are those of up to three lists, or a range of numbers.
struct Kind {
    const char *name, *what;
    bool open = false;
    List lists[3] = {};
    long long least = 0, most = 0;
};

constexpr Kind kKinds[] = {
    {"STATUS", "status", false, {statuses}},
    {"PARAMETER", "parameter that can be read", false, {parameters}},
    {"PARAMETER|ACTION", "parameter or action", false, {parameters, write_only_parameters, write_actions}},
    {"OPERATION", "remote operation", false, {remote_operations}},
    {"KEY", "status of the camera", false, {camera_keys}},
    {"GROUP", "group of settings", false, {setting_groups}},
    {"ENDPOINT", "endpoint", false, {endpoints}},
    {"MISBEHAVIOUR", "misbehaviour", false, {misbehaviours}},
    {"HANDLER", "handler", false, {handlers}},
    {"VARIABLE", "exported variable", true, {variables}},
    {"POLLS", "number of polls", false, {}, 1, kMostNumber},
    {"N", "number of requests", false, {}, 0, kMostNumber},
    {"CLIP", "number of a clip", false, {}, 1, kMostNumber},
    {"SINCE", "sequence number", false, {}, 0, kMostNumber},
    {"SECONDS", "number of seconds", false, {}, 0, kMostNumber},
    {"LENGTH", "number of seconds", false, {}, 1, 3600},
    {"NUMBER", "number", false, {}, -kMostNumber, kMostNumber},
    {"MODE", "mode", false, {}, 0, 1},
};

// Kinds that depend on the command, or on the argument in front: its row in `of` lists the values.
struct Dependent {
    const char *command, *kind, *what;
    List of[3];
};

constexpr Dependent kDependents[] = {
    {"write", "VALUE", "value", {parameters, write_only_parameters, write_actions}},
    {"ptz", "PARAM", "value", {remote_operations}},
    {"camera setting", "ELEMENT", "element", {setting_groups}},
    {"camera config", "VALUE", "value", {camera_properties}},
    {"capture", "VALUE", "value", {capture_properties}},
};

constexpr Kind kProperties[] = {
    {"camera config", "property", false, {camera_properties}},
    {"capture", "property", false, {capture_properties}},
};

constexpr Name kMethods[] = {{"GET"}, {"PUT"}, {"POST"}, {"PATCH"}, {"DELETE"}};
constexpr Name kOnOff[] = {{"ON"}, {"OFF"}};

void add(Choice &choice, std::span<const Name> names) {
    choice.names.insert(choice.names.end(), names.begin(), names.end());
}

// Lives as long as the program.
const char *keep(const std::string &text) {
    static std::vector<std::unique_ptr<std::string>> kept;
    return kept.emplace_back(std::make_unique<std::string>(text))->c_str();
}

// "0|1" as names, "0..100" as a range.
void take_values(Choice &choice, const std::string &values) {
    if (const size_t dots = values.find(".."); dots != std::string::npos) {
        choice.is_number = true;
        choice.least = std::stoll(values.substr(0, dots));
        choice.most = std::stoll(values.substr(dots + 2));
        return;
    }
    for (size_t at = 0; at < values.size();) {
        const size_t end = std::min(values.find('|', at), values.size());
        choice.names.push_back({keep(values.substr(at, end - at))});
        at = end + 1;
    }
}

bool lists_values(const std::string &kind) {
    return kind.find('|') != std::string::npos &&
           std::none_of(kind.begin(), kind.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
}

const Name *find_name(std::span<const List> lists, const std::string &text) {
    for (const List list : lists) {
        if (list == nullptr) continue;
        for (const Name &name : list()) {
            if (text == name.text) return &name;
        }
    }
    return nullptr;
}

Choice choice_of_kind(const Kind &kind) {
    Choice choice{kind.what, {}, kind.open, kind.least != kind.most, kind.least, kind.most};
    for (const List list : kind.lists) {
        if (list != nullptr) add(choice, list());
    }
    return choice;
}

size_t distance(std::string a, std::string b) {
    for (std::string *text : {&a, &b})
        std::transform(text->begin(), text->end(), text->begin(),
                       [](unsigned char c) { return std::tolower(c); });
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t changed = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({changed, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row.back();
}

void check_number(const Choice &choice, const std::string &kind, const std::string &text) {
    long long number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc() && end == text.data() + text.size() && number >= choice.least &&
        number <= choice.most)
        return;
    throw DeskError(kind + " is a whole number from " + std::to_string(choice.least) + " to " +
                    std::to_string(choice.most) + ", not " + (text.empty() ? "\"\"" : text));
}

}  // namespace

const Name *find_status(const std::string &name) {
    const List lists[] = {statuses};
    return find_name(lists, name);
}

Choice choice_of(const Command &command, size_t place, const Texts &before) {
    const std::vector<Argument> list = arguments_of(command);
    if (list.empty()) return {};
    const std::string kind = list[std::min(place, list.size() - 1)].kind, words = command.words;
    if (lists_values(kind)) {
        Choice choice{.what = "value"};
        take_values(choice, kind);
        return choice;
    }
    if (kind == "SCENARIO") {
        Choice choice{.what = "scenario"};
        for (const auto &[name, title] : scenario_names()) choice.names.push_back({keep(name), keep(title)});
        return choice;
    }
    if (kind == "METHOD") return {"method", {std::begin(kMethods), std::end(kMethods)}};
    if (words == "camera setting" && before.size() == 2 && before[1] == "ENABLE")
        return {"value", {std::begin(kOnOff), std::end(kOnOff)}};
    for (const Kind &row : kProperties) {
        if (kind == "PROPERTY" && words == row.name) return choice_of_kind(row);
    }
    for (const Dependent &row : kDependents) {
        if (kind != row.kind || words != row.command || before.empty()) continue;
        Choice choice{.what = std::string(row.what) + " of " + before.back()};
        if (const Name *name = find_name(row.of, before.back())) take_values(choice, name->values);
        return choice;
    }
    for (const Kind &row : kKinds) {
        if (kind == row.name) return choice_of_kind(row);
    }
    return {};
}

void check_arguments(const Command &command, const Texts &arguments) {
    const std::vector<Argument> list = arguments_of(command);
    for (size_t i = 0; i < arguments.size(); ++i) {
        const Choice choice =
            choice_of(command, i, {arguments.begin(), arguments.begin() + static_cast<std::ptrdiff_t>(i)});
        if (choice.is_number) check_number(choice, list[std::min(i, list.size() - 1)].kind, arguments[i]);
        if (choice.open || choice.names.empty()) continue;
        Texts known;
        for (const Name &name : choice.names) known.emplace_back(name.text);
        if (std::find(known.begin(), known.end(), arguments[i]) == known.end())
            throw DeskError(unknown_text(choice.what, arguments[i], known));
    }
}

std::string nearest(const std::string &word, const Texts &known) {
    std::string best;
    size_t least = std::max<size_t>(2, word.size() / 3) + 1;
    for (const std::string &name : known) {
        const size_t far = word.size() > 2 && name.starts_with(word) ? 1 : distance(word, name);
        if (far >= least || far >= name.size()) continue;
        least = far;
        best = name;
    }
    return best;
}

std::string unknown_text(const std::string &what, const std::string &word, const Texts &known) {
    const std::string near = nearest(word, known);
    std::string text = (word.empty() ? "\"\"" : word) + " is no " + what;
    text += near.empty() ? "." : "; did you mean " + near + "?";
    text += " There are:";
    for (const std::string &name : known) text += " " + name;
    return text;
}
