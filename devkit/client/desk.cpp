// desk: the command line of a desk, for the camera's control interface and the SDK's.
#include <algorithm>

#include "commands.h"
#include "help.h"
#include "names.h"
#include "output.h"
#include "show.h"

namespace {

constexpr int kRefused = 1, kUsage = 2;

// What is not understood: ends with 2, unlike what is refused.
struct Misuse {
    std::string sentence;
};

// Moves the options from `words` to `given`. What follows "--" is none.
void take_options(const Texts &words, Given &given) {
    const auto options = options_of(*given.command);
    for (size_t i = 0; i < words.size(); ++i) {
        if (words[i] == "--") {
            given.arguments.insert(given.arguments.end(), words.begin() + static_cast<std::ptrdiff_t>(i) + 1,
                                   words.end());
            return;
        }
        const std::string name = words[i] == "-h" ? "--help" : words[i];
        if (!name.starts_with("--")) {
            given.arguments.push_back(name);
            continue;
        }
        const auto known = options.find(name);
        if (known == options.end()) {
            Texts names;
            for (const auto &[option, value] : options) names.push_back(option);
            throw Misuse{unknown_text("option", name, names)};
        }
        if (known->second.empty()) {
            given.options[name] = "";
        } else {
            if (i + 1 == words.size()) throw Misuse{name + " needs a " + known->second};
            given.options[name] = words[++i];
        }
    }
}

void check_count(const Given &given) {
    size_t least = 0, most = 0;
    for (const Argument &argument : arguments_of(*given.command)) {
        least += argument.optional ? 0 : 1;
        most = argument.repeated ? static_cast<size_t>(-1) : most + 1;
    }
    const size_t count = given.arguments.size();
    if (count < least || count > most)
        throw Misuse{"usage: desk " + usage_of(*given.command) + "    " + given.command->help + " (desk " +
                     given.command->example + ")"};
}

int perform(const Given &given) {
    const Command &row = *given.command;
    if (row.run != nullptr) return row.run(given);
    const nlohmann::json reply = request_json(row.to, row.method, fill_path(row.path, given.arguments),
                                              fill_body(row.body, given.arguments));
    return (row.show != nullptr ? row.show : show_all)(reply, given);
}

// --json is heeded from the first mistake on.
void look_for_json(const Texts &words) {
    const auto end = std::find(words.begin(), words.end(), "--");
    if (std::find(words.begin(), end, "--json") != end) choose_json();
}

int dispatch(Texts words) {
    const bool completes = !words.empty() && words[0] == "complete";
    if (!completes) look_for_json(words);
    while (!completes && !words.empty() && words[0] == "--json") words.erase(words.begin());
    if (words.empty() || words[0] == "--help" || words[0] == "-h") words.insert(words.begin(), "help");
    size_t taken = 0;
    Given given{find_command(words, taken), {}};
    if (given.command == nullptr) {
        if (words.size() == 2 && words[1] == "--help") return print_help({nullptr, {words[0]}});
        throw DeskError(no_such_command(words));
    }
    const Texts rest(words.begin() + static_cast<std::ptrdiff_t>(taken), words.end());
    if (completes) {
        given.arguments = rest;
        return perform(given);
    }
    take_options(rest, given);
    if (given.has("--help") && words[0] != "help")
        return print_help(
            {nullptr, Texts(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(taken))});
    check_count(given);
    check_arguments(*given.command, given.arguments);
    return perform(given);
}

}  // namespace

int main(int count, char **arguments) {
    try {
        return dispatch(Texts(arguments + 1, arguments + count));
    } catch (const Misuse &misuse) {
        put_error(misuse.sentence);
        return kUsage;
    } catch (const std::exception &error) {
        put_error(error.what());
        return kRefused;
    }
}
