#include "help.h"

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <set>
#include <sstream>

#include "log_modules.h"
#include "names.h"
#include "output.h"

using nlohmann::json;

namespace {

constexpr int kUsageWidth = 46;

std::string joined(const Texts &words) {
    std::string text;
    for (const std::string &word : words) text += (text.empty() ? "" : " ") + word;
    return text;
}

std::string padded(const std::string &text, int width) {
    std::ostringstream stream;
    stream << std::left << std::setw(width) << text;
    return stream.str();
}

void put_row(const Command &row) {
    put("  " + padded(usage_of(row), kUsageWidth) + " " + row.help,
        {{"command", row.words}, {"arguments", row.arguments}, {"help", row.help}, {"example", row.example}});
}

void put_group(const Group &group) {
    if (!json_chosen()) std::cout << group.title << " (" << group.name << ")\n";
    for (const Command &row : group.commands) put_row(row);
}

int help_of_all() {
    if (!json_chosen()) std::cout << "usage: desk COMMAND [--json], of:\n\n";
    for (const Group &group : all_groups()) {
        put_group(group);
        if (!json_chosen()) std::cout << '\n';
    }
    if (!json_chosen()) {
        std::cout << "desk help COMMAND, or desk COMMAND --help, tells more of one, with an example. With "
                     "--json each\n"
                     "command prints one object a line. Files that are saved go to build/run unless a path "
                     "is given.\n";
    }
    return 0;
}

// What an argument takes, a line each; nothing for free ones.
void put_values(const Command &row) {
    const std::vector<Argument> list = arguments_of(row);
    for (size_t i = 0; i < list.size(); ++i) {
        const Choice choice = choice_of(row, i, {});
        if (choice.is_number) {
            std::cout << "\n" << list[i].kind << ": " << choice.least << " to " << choice.most << '\n';
        } else if (!choice.names.empty()) {
            std::cout << "\n" << list[i].kind << ":\n";
            for (const Name &name : choice.names) {
                const std::string values = *name.values == '\0' ? "" : std::string("  ") + name.values;
                std::cout << "  " << padded(name.text, 24) << name.note << values << '\n';
            }
        }
    }
}

int help_of_one(const Command &row) {
    if (json_chosen()) {
        put_row(row);
        return 0;
    }
    std::cout << "usage: desk " << usage_of(row) << "\n\n" << row.help << "\n";
    put_values(row);
    std::cout << "\nexample: desk " << row.example << '\n';
    return 0;
}

using Candidates = std::vector<std::pair<std::string, std::string>>;  // each with a note

Candidates word_candidates(const Texts &words) {
    Candidates found;
    std::set<std::string> seen;
    for (const Group &group : all_groups()) {
        for (const Command &row : group.commands) {
            std::istringstream stream(row.words);
            std::string first, second;
            stream >> first >> second;
            const std::string &word = words.size() == 1 ? first : second;
            if (words.size() == 2 && (first != words[0] || second.empty())) continue;
            if (seen.insert(word).second)
                found.emplace_back(word, words.size() == 1 && !second.empty() ? "" : row.help);
        }
    }
    return found;
}

Candidates option_candidates(const Command &row, const std::string &option) {
    Candidates found;
    const auto options = options_of(row);
    const auto known = options.find(option);
    if (known != options.end() && !known->second.empty()) {
        if (known->second != "MODULE") return {};
        for (const std::string &name : log_module_names()) found.emplace_back(name, "");
        return found;
    }
    for (const auto &[name, value] : options) found.emplace_back(name, value);
    return found;
}

bool takes_value(const Command &row, const std::string &word) {
    const auto options = options_of(row);
    const auto known = options.find(word);
    return known != options.end() && !known->second.empty();
}

Candidates argument_candidates(const Command &row, const Texts &words, size_t taken) {
    if (words.back().starts_with("--")) return option_candidates(row, "");
    if (words.size() > taken + 1 && takes_value(row, words[words.size() - 2]))
        return option_candidates(row, words[words.size() - 2]);
    Texts before;
    for (size_t i = taken; i + 1 < words.size(); ++i) {
        if (words[i].starts_with("--"))
            i += takes_value(row, words[i]) ? 1 : 0;
        else
            before.push_back(words[i]);
    }
    const std::vector<Argument> list = arguments_of(row);
    if (before.size() >= list.size() && (list.empty() || !list.back().repeated))
        return option_candidates(row, "");
    Candidates found;
    for (const Name &name : choice_of(row, before.size(), before).names)
        found.emplace_back(name.text, name.note);
    return found;
}

}  // namespace

std::string usage_of(const Command &command) {
    std::string text = command.words;
    if (*command.arguments != '\0') text += std::string(" ") + command.arguments;
    for (const auto &[option, value] : options_of(command)) {
        if (option == "--json" || option == "--help") continue;
        text += " [" + option + (value.empty() ? "" : " " + value) + "]";
    }
    return text;
}

std::string no_such_command(const Texts &words) {
    Texts known, firsts;
    for (const Group &group : all_groups()) {
        for (const Command &row : group.commands) {
            const std::string spelled = row.words;
            const std::string first = spelled.substr(0, spelled.find(' '));
            if (std::find(firsts.begin(), firsts.end(), first) == firsts.end()) firsts.push_back(first);
            if (first == words[0] && first != spelled) known.push_back(spelled.substr(first.size() + 1));
        }
    }
    if (known.empty()) return unknown_text("command", words[0], firsts) + " (desk help tells of each)";
    if (words.size() == 1) return "desk " + words[0] + " what? There are: " + joined(known);
    return unknown_text("command of desk " + words[0], words[1], known) + " (desk help " + words[0] +
           " tells of each)";
}

int print_help(const Given &given) {
    const Texts &words = given.arguments;
    if (words.empty()) return help_of_all();
    size_t taken = 0;
    const Command *row = find_command(words, taken);
    if (row != nullptr && taken == words.size()) return help_of_one(*row);
    bool any = false;
    for (const Group &group : all_groups()) {
        for (const Command &each : group.commands) {
            const bool begins = std::string(each.words).starts_with(joined(words) + " ");
            if (!begins && (words.size() > 1 || words[0] != group.name)) continue;
            put_row(each);
            any = true;
        }
    }
    if (!any) throw DeskError(no_such_command(words));
    return 0;
}

int print_candidates(const Given &given) {
    Texts words = given.arguments;
    const bool noted = !words.empty() && words[0] == "--notes";
    if (noted) words.erase(words.begin());
    if (words.empty()) words.emplace_back();
    if (words.size() > 1 && words[0] == "help") words.erase(words.begin());
    size_t taken = 0;
    const Texts finished(words.begin(), words.end() - 1);
    const Command *row = find_command(finished, taken);
    const Candidates found = row == nullptr && words.size() > 2 ? Candidates{}
                             : row == nullptr                   ? word_candidates(words)
                                                                : argument_candidates(*row, words, taken);
    for (const auto &[text, note] : found) {
        if (text.starts_with(words.back()))
            put(noted && !note.empty() ? text + ":" + note : text, {{"word", text}, {"note", note}});
    }
    return 0;
}
