#include "show.h"

#include <iostream>

using nlohmann::json;

namespace {

// Texts stand bare, everything else as JSON.
void print_value(const json &value) {
    if (value.is_string()) {
        const auto text = value.get<std::string>();
        std::cout << text << (text.empty() || text.back() != '\n' ? "\n" : "");
    } else {
        std::cout << value.dump(2) << '\n';
    }
}

std::string one_line(std::string text) {
    for (char &character : text) {
        if (static_cast<unsigned char>(character) < ' ') character = ' ';
    }
    return text;
}

}  // namespace

int show_json(const json &reply, const Texts &) {
    if (!reply.empty()) std::cout << reply.dump(2) << '\n';
    return 0;
}

int show_member(const json &reply, const Texts &arguments) {
    const json *value = &reply;
    for (const std::string &name : arguments) {
        if (!value->is_object() || !value->contains(name)) throw DeskError("there is no " + name);
        value = &value->at(name);
    }
    print_value(*value);
    return 0;
}

int show_alarms(const json &reply, const Texts &) {
    for (const json &alarm : reply.at("alarms")) {
        std::cout << "{" << alarm.at("index") << ", " << alarm.at("name") << ", " << alarm.at("status")
                  << "}  seq " << alarm.at("seq") << ", result " << alarm.at("result") << ", "
                  << alarm.at("real_ms") << " ms\n";
    }
    return 0;
}

int show_requests(const json &reply, const Texts &) {
    for (const json &row : reply) {
        std::cout << row.at("seq") << "  " << row.at("time_ms") << " ms  " << row.at("status") << "  "
                  << row.at("method").get<std::string>() << " " << row.at("target").get<std::string>();
        const auto body = row.at("body").get<std::string>();
        if (!body.empty()) std::cout << "  " << one_line(body.substr(0, 200));
        std::cout << '\n';
    }
    return 0;
}

int show_frames(const json &reply, const Texts &) {
    json counts = reply;
    counts.erase("records");
    std::cout << counts.dump(2) << '\n';
    return 0;
}

int show_result(const json &reply, const Texts &) {
    const json &result = reply.at("results").at(0);
    if (result.contains("value") && !result["value"].is_null()) {
        print_value(result["value"]);
        return result["value"] == "ERROR" ? 1 : 0;
    }
    if (!result.contains("result")) return 0;
    std::cout << "result " << result["result"] << '\n';
    return result["result"] == 0 ? 0 : 1;
}

int show_calls(const json &reply, const Texts &) {
    for (const json &result : reply.at("results")) std::cout << result.dump() << '\n';
    return 0;
}
