#include "show.h"

#include <cstdio>

#include "names.h"
#include "output.h"
#include "results.h"

using nlohmann::json;

namespace {

constexpr size_t kBodyShown = 200;  // characters

std::string rounded(double number, int decimals) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, number);
    return text;
}

void put_request(const json &row) {
    const double begin = row.at("time_ms");
    const json end = row.value("end_ms", json());
    const std::string took = end.is_number() ? rounded(end.get<double>() - begin, 0) + " ms" : "no end";
    const std::string status = row.at("status").is_null() ? "no reply" : row.at("status").dump();
    const auto body = row.at("body").get<std::string>();
    std::string text = row.at("seq").dump() + "  " + rounded(begin / 1000, 3) + " s" + "  " + took + "  " +
                       coloured(status == "200" ? Colour::good : Colour::bad, status) + "  " +
                       row.at("method").get<std::string>() + " " + row.at("target").get<std::string>();
    if (!body.empty()) text += "  " + one_line(body.substr(0, kBodyShown));
    put(text, row);
}

// What was called, as the row's template names it.
std::string handler_of(const Given &given) {
    return json::parse(given.command->body).at("name");
}

std::string spelled(const Given &given) {
    std::string text = given.command->words;
    for (const std::string &argument : given.arguments) text += " " + argument;
    return text;
}

}  // namespace

int show_all(const json &reply, const Given &) {
    if (!reply.empty()) {
        put_value(reply);
    } else if (json_chosen()) {
        if (reply.is_object()) put("", {{"done", true}});
    } else if (reply.is_array()) {
        put("none", {});
    }
    return 0;
}

int show_member(const json &reply, const Given &given) {
    const json *value = &reply;
    std::string name = "value";
    for (const std::string &member : given.arguments) {
        Texts known;
        if (value->is_object()) {
            for (const auto &[key, inner] : value->items()) known.push_back(key);
        }
        if (!value->is_object() || !value->contains(member))
            throw DeskError(unknown_text("member", member, known));
        value = &value->at(member);
        name = member;
    }
    put_value(*value, name);
    return 0;
}

int show_requests(const json &reply, const Given &) {
    for (const json &row : reply) put_request(row);
    return 0;
}

int show_frames(const json &reply, const Given &) {
    json counts = reply;
    counts.erase("records");
    if (json_chosen()) {
        put("", counts);
        return 0;
    }
    const auto number = [&](const char *name) { return counts.value(name, 0.0); };
    const auto count = [&](const char *name) { return rounded(number(name), 0); };
    put("video   " + count("video") + " frames, " + count("key_frames") + " of them key frames, " +
            bytes_text(number("video_bytes")),
        {});
    put("audio   " + count("audio") + " frames, " + bytes_text(number("audio_bytes")), {});
    put("lately  " + count("kilobits") + " kbit/s", {});
    if (number("ownership_errors") != 0)
        put(coloured(Colour::bad, count("ownership_errors") + " frames lack the data that they promise"), {});
    return 0;
}

void check_made(const json &reply) {
    for (const json &result : reply.at("results")) {
        if (result.contains("error"))
            throw DeskError("the SDK refuses the call: " + result["error"].get<std::string>());
    }
}

const json &only_result(const json &reply) {
    check_made(reply);
    return reply.at("results").at(0);
}

int show_value(const json &reply, const Given &given) {
    const json &result = only_result(reply);
    const json value = result.value("value", json());
    if (!value.is_string()) throw DeskError(spelled(given) + ": the agent gave no value");
    if (value == "ERROR")
        throw DeskError(spelled(given) + ": ERROR: the camera did not answer, or does not have it");
    const Name *status =
        std::string(given.command->words) == "status" ? find_status(given.arguments[0]) : nullptr;
    const std::string unit = status == nullptr ? "" : status->note;
    json object = {{"name", given.arguments[0]}, {"value", value}};
    if (!unit.empty()) object["unit"] = unit;
    put(one_line(value.get<std::string>()) + (unit.empty() ? "" : " " + unit), object);
    return 0;
}

int tell_result(const std::string &handler, const json &result) {
    if (!result.contains("result")) {
        put("done", {{"done", true}});
        return 0;
    }
    const int number = result.at("result");
    const std::string words = result_text(handler, number);
    if (number != 0 && !json_chosen()) throw DeskError(words);
    put(words, {{"result", number}, {"meaning", words.substr(words.find(": ") + 2)}});
    return number == 0 ? 0 : 1;
}

int show_result(const json &reply, const Given &given) {
    return tell_result(handler_of(given), only_result(reply));
}

int show_viewer(const json &reply, const Given &given) {
    check_made(reply);
    const bool on = std::string(given.command->words) == "watch on";
    put(on ? "a viewer watches" : "nobody watches", {{"watching", on}});
    return 0;
}

int show_variable(const json &reply, const Given &) {
    put(inline_text(reply.value("value", json())), reply);
    return 0;
}

int show_calls(const json &reply, const Given &) {
    check_made(reply);
    for (const json &result : reply.at("results")) {
        std::string text;
        for (const auto &[name, value] : result.items())
            text += (text.empty() ? "" : ", ") + name + " " + inline_text(value);
        put(text.empty() ? "done" : text, result);
    }
    return 0;
}
