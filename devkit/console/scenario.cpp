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

constexpr double kPatience = 60;  // seconds, where a step names none

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
        for (const json &step : script["steps"])
            seconds += step.value("after", 0.0) + step.value("/until/within"_json_pointer, 0.0);
        all.push_back(
            {{"name", name}, {"title", script["title"]}, {"about", script["about"]}, {"seconds", seconds}});
    }
    std::sort(all.begin(), all.end(), [](const json &a, const json &b) { return a["name"] < b["name"]; });
    return all;
}

std::string Scenarios::start(const std::string &name) {
    const json script = load(name);
    if (!script.is_object()) return "there is no scenario " + name;
    const std::lock_guard guard(starting_);
    if (running_) return "a scenario runs already";
    if (runner_.joinable()) runner_.join();
    running_ = true;
    stopping_ = false;
    show(script, json::array(), nullptr);
    runner_ = std::thread([this, script] { run(script); });
    return "";
}

// False where the scenario was stopped or `holds` never came.
bool Scenarios::wait(double seconds, const std::function<bool()> &holds) const {
    const double until = clock_ms(CLOCK_MONOTONIC) + seconds * 1e3;
    const timespec moment{0, 200'000'000};
    for (;;) {
        if (stopping_) return false;
        if (holds()) return true;
        if (clock_ms(CLOCK_MONOTONIC) >= until) return false;
        nanosleep(&moment, nullptr);
    }
}

void Scenarios::pause(double seconds) const {
    wait(seconds, [] { return false; });
}

// What a step waits for, counted since before its order. Returns what is to be said where it never came.
std::string Scenarios::wait_for(const json &expected, const json &before) const {
    const double least = expected.value("at_least", 1.0), within = expected.value("within", kPatience);
    const std::string what = expected.value("count", "");
    const auto holds = [&] { return count(page_, what, before) >= least; };
    if (wait(within, holds) || stopping_) return "";
    return "not within " + std::to_string(std::lround(within)) + " s: " + what;
}

void Scenarios::show(const json &script, const json &said, const json &answered) const {
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
        all.push_back({{"ask", question["ask"]},
                       {"count", question["count"]},
                       {"found", std::llround(found)},
                       {"good", good}});
    }
    return all;
}

// One step; returns what went wrong, "" for nothing.
std::string Scenarios::take(const json &step) const {
    const json before = counters(page_);
    std::string wrong =
        step.contains("request") ? order_(step.value("to", "camera"), step["request"]) : std::string();
    if (wrong.empty() && step.contains("until")) wrong = wait_for(step["until"], before);
    return wrong;
}

void Scenarios::run(const json &script) {
    const json before = counters(page_);
    page_.add("marks", json::array({{{"t", wall_ms()}, {"kind", "scenario"}, {"text", script["title"]}}}),
              200);
    json said = json::array();
    for (const json &step : script["steps"]) {
        pause(step.value("after", 0.0));
        if (stopping_) break;
        said.push_back(step["say"]);
        show(script, said, nullptr);
        const std::string wrong = take(step);
        if (wrong.empty()) continue;
        said.back() = step["say"].get<std::string>() + " (" + wrong + ")";
        show(script, said, nullptr);
    }
    const json answered = answers(script, before);
    running_ = false;
    show(script, said, answered);
}
