#include "scenario.h"

#include <time.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <thread>

#include "clocks.h"

namespace fs = std::filesystem;

namespace {

double last_of(const Hub &page, const char *list) {
    const json items = page.section(list);
    return items.is_array() && !items.empty() ? items.back()["n"].get<double>() : 0;
}

// What a question counts from: numbers of the state at the beginning.
json counters(const Hub &page) {
    const json camera = page.section("camera"), device = page.section("device");
    const auto number = [](const json &object, const char *name) {
        return object.is_object() ? object.value(name, 0.0) : 0.0;
    };
    return {{"logins", number(camera, "logins")},     {"requests", number(camera, "requests_total")},
            {"restarts", number(camera, "restarts")}, {"reboots", number(device, "reboots")},
            {"alarm", last_of(page, "alarms")},       {"line", last_of(page, "log")}};
}

double count(const Hub &page, const std::string &what, const json &before) {
    const size_t colon = what.find(':');
    const std::string kind = what.substr(0, colon),
                      detail = colon == std::string::npos ? "" : what.substr(colon + 1);
    double found = 0;
    if (kind == "log") {
        for (const json &line : page.section("log"))
            found += line["n"] > before["line"] &&
                     line["text"].get<std::string>().find(detail) != std::string::npos;
        return found;
    }
    if (kind != "alarms") return counters(page).value(kind, 0.0) - before.value(kind, 0.0);
    for (const json &alarm : page.section("alarms"))
        found +=
            alarm["n"] > before["alarm"] && (detail.empty() || alarm["status"] == std::atoi(detail.c_str()));
    return found;
}

}  // namespace

json Scenarios::load(const std::string &name) const {
    if (name.find('/') != std::string::npos) return nullptr;
    std::ifstream file(folder_ + "/" + name + ".json");
    const json script = json::parse(file, nullptr, false);
    return script.is_object() ? script : json();
}

json Scenarios::list() const {
    json all = json::array();
    std::error_code ignored;
    for (const auto &entry : fs::directory_iterator(folder_, ignored)) {
        const std::string name = entry.path().stem();
        const json script = load(name);
        if (!script.is_object()) continue;
        double seconds = 0;
        for (const json &step : script["steps"]) seconds += step.value("after", 0.0);
        all.push_back(
            {{"name", name}, {"title", script["title"]}, {"about", script["about"]}, {"seconds", seconds}});
    }
    std::sort(all.begin(), all.end(), [](const json &a, const json &b) { return a["name"] < b["name"]; });
    return all;
}

std::string Scenarios::start(const std::string &name) {
    const json script = load(name);
    if (!script.is_object()) return "there is no scenario " + name;
    if (running_.exchange(true)) return "a scenario runs already";
    stopping_ = false;
    std::thread([this, script] {
        run(script);
        running_ = false;
    }).detach();
    return "";
}

bool Scenarios::pause(double seconds) const {
    const double until = clock_ms(CLOCK_MONOTONIC) + seconds * 1e3;
    const timespec moment{0, 100'000'000};
    while (!stopping_ && clock_ms(CLOCK_MONOTONIC) < until) nanosleep(&moment, nullptr);
    return !stopping_;
}

void Scenarios::show(const json &script, size_t step, const json &answered) const {
    json said = json::array();
    for (size_t i = 0; i < step; i++) said.push_back(script["steps"][i]["say"]);
    page_.set("scenario", {{"title", script["title"]},
                           {"steps", script["steps"].size()},
                           {"said", said},
                           {"running", answered.is_null()},
                           {"stopped", stopping_.load()},
                           {"answers", answered}});
}

json Scenarios::answers(const json &script, const json &before) const {
    json all = json::array();
    for (const json &question : script["questions"]) {
        const double found = count(page_, question["count"], before);
        const bool good = found >= question.value("at_least", 0.0) && found <= question.value("at_most", 1e9);
        all.push_back(
            {{"ask", question["ask"]}, {"count", question["count"]}, {"found", found}, {"good", good}});
    }
    return all;
}

void Scenarios::run(const json &script) {
    const double begin = wall_ms();
    const json before = counters(page_);
    page_.add("marks", json::array({{{"t", begin}, {"kind", "scenario"}, {"text", script["title"]}}}), 200);
    size_t done = 0;
    show(script, done, nullptr);
    for (const json &step : script["steps"]) {
        if (!pause(step.value("after", 0.0))) break;
        const std::string wrong =
            step.contains("request") ? order_(step.value("to", "camera"), step["request"]) : std::string();
        show(script, ++done, nullptr);
        if (!wrong.empty())
            page_.add("marks", json::array({{{"t", wall_ms()}, {"kind", "error"}, {"text", wrong}}}), 200);
    }
    show(script, done, answers(script, before));
}
