// desk run: a scenario that the desk's page offers too, carried out by the page's server.
#include "scenario.h"

#include <csignal>
#include <ctime>

#include "follow.h"
#include "output.h"

using nlohmann::json;

namespace {

constexpr int kStopped = 130;

volatile std::sig_atomic_t interrupted = 0;

// A step, when it is said; again where more is said of it, such as that something never came.
void put_steps(const json &now, Texts &known) {
    const Texts said = now.value("said", Texts());
    for (size_t i = 0; i < said.size(); ++i) {
        if (i < known.size() && known[i] == said[i]) continue;
        const std::string clock = clock_text(std::time(nullptr));
        put(coloured(Colour::dim, clock) + "  " + said[i],
            {{"clock", clock}, {"step", i + 1}, {"said", said[i]}});
    }
    known = said;
}

// Whether all is as it should be.
bool put_answers(const json &answers) {
    bool good = !answers.empty();
    for (const json &each : answers) {
        const bool yes = each.value("good", false);
        good = good && yes;
        put(coloured(yes ? Colour::good : Colour::bad, yes ? "Yes" : "No ") + "  " + each.value("ask", "") +
                coloured(Colour::dim, "  (" + inline_text(each.value("found", json())) + " x " +
                                          each.value("count", "") + ")"),
            each);
    }
    return good;
}

int stop() {
    request(Side::console, "DELETE", "/api/scenarios", "");
    put_error("stopped; what it had ordered stays (desk camera heal, desk camera appear)");
    return kStopped;
}

}  // namespace

std::vector<std::pair<std::string, std::string>> scenario_names() {
    std::vector<std::pair<std::string, std::string>> names;
    try {
        const json all = request_json(Side::console, "GET", "/api/scenarios");
        if (!all.is_array()) return {};
        for (const json &each : all) names.emplace_back(each.value("name", ""), each.value("title", ""));
    } catch (const DeskError &) {
        // Nothing runs, as when its help is asked for.
    }
    return names;
}

int run_scenario(const Given &given) {
    request(Side::console, "POST", "/api/scenarios/" + given.arguments[0], "");
    std::signal(SIGINT, [](int) { interrupted = 1; });
    Texts known;
    for (;;) {
        const json now = request_json(Side::console, "GET", "/api/scenario");
        put_steps(now, known);
        if (!now.value("running", false))
            return !now.value("stopped", false) && put_answers(now.value("answers", json::array())) ? 0 : 1;
        if (!pause_while_read() || interrupted != 0) return stop();
    }
}
