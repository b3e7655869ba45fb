// desk: the command line of a desk, for the camera's control interface and the SDK's.
#include <cstring>
#include <iomanip>
#include <iostream>

#include "commands.h"
#include "show.h"

namespace {

constexpr int kUsage = 2;

// How many of `arguments` spell the words of `row`; 0 when they do not.
size_t matching_words(const Command &row, const Texts &arguments) {
    if (arguments.empty()) return 0;
    if (row.words == arguments[0]) return 1;
    return arguments.size() > 1 && row.words == arguments[0] + " " + arguments[1] ? 2 : 0;
}

// The rows that begin with `word`, or all.
int print_help(const std::string &word, std::ostream &out) {
    out << "usage: desk COMMAND, of:\n";
    for (const Command &row : all_commands()) {
        const std::string words = row.words;
        if (!word.empty() && words != word && words.rfind(word + " ", 0) != 0) continue;
        out << "  " << std::left << std::setw(48) << words + " " + row.arguments << row.help << '\n';
    }
    return kUsage;
}

int perform(const Command &row, const Texts &arguments) {
    if (arguments.size() < row.least || arguments.size() > row.most) {
        std::cerr << "usage: desk " << row.words << " " << row.arguments << "    " << row.help << '\n';
        return kUsage;
    }
    if (row.run != nullptr) return row.run(arguments);
    const nlohmann::json reply =
        request_json(row.to, row.method, fill_path(row.path, arguments), fill_body(row.body, arguments));
    return (row.show != nullptr ? row.show : show_json)(reply, arguments);
}

int dispatch(const Texts &arguments) {
    for (const Command &row : all_commands()) {
        const auto words = static_cast<std::ptrdiff_t>(matching_words(row, arguments));
        if (words != 0) return perform(row, Texts(arguments.begin() + words, arguments.end()));
    }
    const bool asked = arguments.empty() || arguments[0] == "help" || arguments[0] == "--help";
    print_help(asked ? "" : arguments[0], asked ? std::cout : std::cerr);
    return asked ? 0 : kUsage;
}

}  // namespace

int main(int count, char **arguments) {
    try {
        return dispatch(Texts(arguments + 1, arguments + count));
    } catch (const std::exception &error) {
        std::cerr << "desk: " << error.what() << '\n';
        return 1;
    }
}
