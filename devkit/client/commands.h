// The commands of the client, as data: most are one request, built from a template; the rest name a function.
#ifndef DEVKIT_CLIENT_COMMANDS_H
#define DEVKIT_CLIENT_COMMANDS_H

#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <vector>

#include "desk_run.h"

using Texts = std::vector<std::string>;

// Prints a reply. Returns the exit code: 0, or 1 when the reply tells of a failure.
using ShowFunction = int (*)(const nlohmann::json &reply, const Texts &arguments);

struct Command {
    const char *words;      // one or two words
    const char *arguments;  // for the help; [] marks what may be left out
    size_t least, most;     // number of arguments
    const char *help;
    // Either one request ...
    Side to = Side::camera;
    const char *method = nullptr;
    const char *path = "";  // $1: the first argument
    const char *body = "";  // JSON; "$1": the first argument as text, "#1": as JSON, or text if it is none;
                            // "#*": an array of all; a member whose argument is missing falls away
    ShowFunction show = nullptr;  // null: indented JSON
    // ... or a function that does it all and returns the exit code.
    int (*run)(const Texts &arguments) = nullptr;
};

constexpr size_t kAny = 1000;

std::span<const Command> all_commands();

// Fills the templates of a command.
std::string fill_path(const char *path, const Texts &arguments);
nlohmann::json fill_body(const char *body, const Texts &arguments);

#endif
