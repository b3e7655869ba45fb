#include "interleaving.h"

#include <cctype>
#include <map>
#include <set>

namespace {

constexpr char kNumber[] = "{N}";
constexpr size_t kNoMatch = std::string::npos;

using Progress = std::vector<size_t>;  // how many texts of each thread are printed

// Where `text` ends in `log` when it stands at `at`.
size_t end_of_match(const std::string &log, size_t at, const std::string &text) {
    for (size_t i = 0; i < text.size();) {
        if (text.compare(i, 3, kNumber) == 0) {
            const size_t start = at;
            while (at < log.size() && std::isdigit(static_cast<unsigned char>(log[at]))) at++;
            if (at == start) return kNoMatch;
            i += 3;
        } else if (at < log.size() && log[at] == text[i]) {
            at++;
            i++;
        } else {
            return kNoMatch;
        }
    }
    return at;
}

std::string describe(const std::string &log, size_t at, const Progress &progress,
                     const std::vector<PrintedTexts> &threads) {
    std::string text = "the log goes on with \"" + log.substr(at, 200) + "\"";
    for (size_t i = 0; i < threads.size(); i++) {
        const bool over = progress[i] == threads[i].size();
        text +=
            "\n  thread " + std::to_string(i) + (over ? ": nothing more" : ": " + threads[i][progress[i]]);
    }
    return text;
}

bool finished(const Progress &progress, const std::vector<PrintedTexts> &threads) {
    for (size_t i = 0; i < threads.size(); i++)
        if (progress[i] < threads[i].size()) return false;
    return true;
}

}  // namespace

std::string interleaving_error(const std::string &log, const std::vector<PrintedTexts> &threads) {
    std::map<size_t, std::set<Progress>> reached = {{0, {Progress(threads.size())}}};
    std::string error;
    while (!reached.empty()) {
        const auto [at, states] = *reached.begin();
        reached.erase(reached.begin());
        for (const Progress &state : states) {
            if (at == log.size() && finished(state, threads)) return "";
            error = describe(log, at, state, threads);
            for (size_t i = 0; i < threads.size(); i++) {
                if (state[i] == threads[i].size()) continue;
                const size_t end = end_of_match(log, at, threads[i][state[i]]);
                if (end == kNoMatch) continue;
                Progress next = state;
                next[i]++;
                reached[end].insert(std::move(next));
            }
        }
    }
    return error;
}
