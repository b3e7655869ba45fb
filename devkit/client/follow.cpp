#include "follow.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <fstream>
#include <iterator>

#include "output.h"
#include "results.h"

using nlohmann::json;

namespace {

constexpr int kPauseMilliseconds = 250;

void put_alarm(const json &alarm) {
    const int status = alarm.at("status"), result = alarm.value("result", 0);
    const std::string clock = clock_text(alarm.value("time", std::int64_t{0}));
    const std::string name = alarm_text(status);
    std::string text = coloured(Colour::dim, clock) + "  " + coloured(Colour::warm, name) + "  {" +
                       alarm.at("index").dump() + ", " + alarm.at("name").dump() + ", " +
                       std::to_string(status) + "}  seq " + alarm.at("seq").dump();
    if (result != 0) text += coloured(Colour::bad, "  the SDK did not take it: " + std::to_string(result));
    json object = alarm;
    object.update({{"clock", clock}, {"meaning", name}});
    put(text, object);
}

// The alarms after `since`.
struct AlarmReader {
    std::uint64_t since = 0;

    json ask() const {
        return request_json(Side::sdk, "GET",
                            since == 0 ? "/alarms" : "/alarms?since=" + std::to_string(since));
    }
    void put_new() {
        json reply = ask();
        if (follows && reply.value("total", since) < since) {  // a desk that was started anew counts from 1
            since = 0;
            reply = ask();
        }
        follows = true;
        for (const json &alarm : reply.at("alarms")) {
            put_alarm(alarm);
            since = std::max(since, alarm.at("seq").get<std::uint64_t>());
        }
    }
    bool follows = false;  // it has asked before
};

// What is watched for changes: members of the two sides' states. A member that is an object counts member by
// member.
struct Fact {
    Side side;
    const char *pointer;
    const char *name;
};

constexpr Fact kFacts[] = {
    {Side::camera, "/network", "network"},
    {Side::camera, "/restarts", "restarts"},
    {Side::camera, "/logins", "logins"},
    {Side::camera, "/stream", "stream"},
    {Side::camera, "/recording/active", "recording"},
    {Side::camera, "/photos", "photos"},
    {Side::camera, "/audio_clips", "talk-back clips"},
    {Side::camera, "/formats", "card formatted"},
    {Side::camera, "/status", "status"},
    {Side::camera, "/settings", "setting"},
    {Side::sdk, "/pid", "started as process"},
    {Side::sdk, "/request_vedio", "viewer"},
    {Side::sdk, "/capture/started", "capture"},
    {Side::sdk, "/capture/stalled", "capture stalled"},
    {Side::sdk, "/capture/profile", "stream profile"},
    {Side::sdk, "/cloud_status", "cloud-status codes"},
};

using Facts = std::map<std::string, json>;

const char *side_name(Side side) {
    return side == Side::camera ? "camera" : "agent";
}

void take_fact(Facts &facts, const std::string &name, const json &value) {
    if (!value.is_object()) {
        facts[name] = value;
        return;
    }
    for (const auto &[member, inner] : value.items()) take_fact(facts, name + " " + member, inner);
}

// A side that does not answer has but the fact that it does not.
Facts facts_of(Side side) {
    Facts facts;
    try {
        const json state = request_json(side, "GET", "/state");
        for (const Fact &row : kFacts) {
            const json::json_pointer pointer(row.pointer);
            if (row.side == side && state.contains(pointer)) take_fact(facts, row.name, state.at(pointer));
        }
        facts["answers"] = true;
    } catch (const DeskError &) {
        facts["answers"] = false;
    }
    return facts;
}

void put_fact(Side side, const std::string &name, const json *before, const json &now) {
    const std::string clock = clock_text(std::time(nullptr));
    json object = {{"clock", clock}, {"source", side_name(side)}, {"name", name}, {"value", now}};
    if (before != nullptr) object["before"] = *before;
    const std::string from = before == nullptr ? "" : inline_text(*before) + " -> ";
    const Colour colour = side == Side::camera ? Colour::cold : Colour::good;
    put(coloured(Colour::dim, clock) + "  " + coloured(colour, side_name(side)) + "  " + name + "  " + from +
            inline_text(now),
        object);
}

struct Watched {
    Side side;
    Facts facts;

    // What is unknown while a side does not answer has not changed.
    void put_changes() {
        for (const auto &[name, now] : facts_of(side)) {
            const auto known = facts.find(name);
            if (known != facts.end() && known->second == now) continue;
            put_fact(side, name, known == facts.end() ? nullptr : &known->second, now);
            facts[name] = now;
        }
    }
};

}  // namespace

bool pause_while_read() {
    pollfd reader{STDOUT_FILENO, 0, 0};
    return poll(&reader, 1, kPauseMilliseconds) == 0;
}

int show_alarms(const Given &given) {
    AlarmReader reader;
    const std::uint64_t asked = given.arguments.empty() ? 0 : std::stoull(given.arguments[0]);
    reader.since = asked;
    reader.put_new();
    if (!given.has("--follow")) {
        if (reader.since == asked && !json_chosen()) put("none so far", {});
        return 0;
    }
    while (pause_while_read()) {
        try {
            reader.put_new();
        } catch (const DeskError &) {
            // The agent is away; it comes back.
        }
    }
    return 0;
}

int show_events(const Given &given) {
    request(Side::camera, "GET", "/state", "");  // nothing runs: say so
    Watched sides[] = {{Side::camera, {}}, {Side::sdk, {}}};
    if (!given.has("--follow")) {
        for (Watched &side : sides) side.put_changes();
        return 0;
    }
    for (Watched &side : sides) side.facts = facts_of(side.side);
    AlarmReader alarms;
    try {
        alarms.since = request_json(Side::sdk, "GET", "/alarms").at("total");
    } catch (const DeskError &) {
        // Not logged in yet: all its alarms are to come.
    }
    while (pause_while_read()) {
        for (Watched &side : sides) side.put_changes();
        try {
            alarms.put_new();
        } catch (const DeskError &) {
            // That it does not answer was told.
        }
    }
    return 0;
}
