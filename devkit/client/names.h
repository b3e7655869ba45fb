// The kinds of arguments, by the names that they have in a command's row: which values each takes.
#ifndef DEVKIT_CLIENT_NAMES_H
#define DEVKIT_CLIENT_NAMES_H

#include "commands.h"

struct Name {
    const char *text;
    const char *note = "";    // what it is, or its unit
    const char *values = "";  // of what is given to it: "0|1", "0..100", "" for any
};

// What an argument may be. Neither names nor range: anything.
struct Choice {
    std::string what = {};         // "status"
    std::vector<Name> names = {};  // the only ones, unless `open`
    bool open = false;             // names are but proposals
    bool is_number = false;        // a whole number from least to most
    long long least = 0, most = 0;
};

// What the argument at `place` of a command may be; `before` are those in front of it.
Choice choice_of(const Command &command, size_t place, const Texts &before);

// Throws a DeskError, with the nearest name and the list, for the first argument that its row does not take.
void check_arguments(const Command &command, const Texts &arguments);

// The sentence for a word that is none of `known`: "WORD is no WHAT; did you mean X? There are: ...".
std::string unknown_text(const std::string &what, const std::string &word, const Texts &known);

// The one of `known` that `word` is likely a misspelling of; "" for none.
std::string nearest(const std::string &word, const Texts &known);

// What stands in the tables below about a name; null for none.
const Name *find_status(const std::string &name);

// The lists themselves (name_tables.cpp).
std::span<const Name> statuses(), parameters(), write_only_parameters(), write_actions(), remote_operations(),
    camera_keys(), setting_groups(), camera_properties(), capture_properties(), endpoints(), misbehaviours(),
    handlers(), variables();

#endif
