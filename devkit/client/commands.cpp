#include "commands.h"

#include <sstream>

namespace {

constexpr char kCommonOptions[] = "--json --help";

Texts words_of(const std::string &text) {
    std::istringstream stream(text);
    Texts words;
    for (std::string word; stream >> word;) words.push_back(word);
    return words;
}

// How many of `arguments` spell the words of `row`; 0 when they do not.
size_t matching_words(const Command &row, const Texts &arguments) {
    const Texts words = words_of(row.words);
    if (words.size() > arguments.size()) return 0;
    return std::equal(words.begin(), words.end(), arguments.begin()) ? words.size() : 0;
}

}  // namespace

std::span<const Group> all_groups() {
    static const Group groups[] = {
        {"camera", "The camera", camera_commands()},
        {"trouble", "Trouble with the camera", fault_commands()},
        {"cloud", "What the cloud does", cloud_commands()},
        {"media", "Pictures, sound, recordings", media_commands()},
        {"watching", "What happens", watch_commands()},
        {"device", "The device and its libraries", device_commands()},
        {"desk", "This program", own_commands()},
    };
    return groups;
}

const Command *find_command(const Texts &arguments, size_t &words) {
    const Command *best = nullptr;
    words = 0;
    for (const Group &group : all_groups()) {
        for (const Command &row : group.commands) {
            const size_t count = matching_words(row, arguments);
            if (count <= words) continue;
            words = count;
            best = &row;
        }
    }
    return best;
}

std::vector<Argument> arguments_of(const Command &command) {
    std::vector<Argument> list;
    for (std::string word : words_of(command.arguments)) {
        Argument argument;
        argument.optional = word.front() == '[';
        if (argument.optional) word = word.substr(1, word.size() - 2);
        argument.repeated = word.ends_with("...");
        if (argument.repeated) word.resize(word.size() - 3);
        argument.kind = word;
        list.push_back(argument);
    }
    return list;
}

std::map<std::string, std::string> options_of(const Command &command) {
    std::map<std::string, std::string> options;
    std::string last;
    for (const std::string &word : words_of(std::string(command.options) + " " + kCommonOptions)) {
        if (word.starts_with("--")) {
            last = word;
            options[word] = "";
        } else {
            options[last] = word;
        }
    }
    return options;
}
