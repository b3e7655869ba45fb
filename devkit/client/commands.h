// The commands of the client, as data: most are one request, built from a template; the rest name a function.
#ifndef DEVKIT_CLIENT_COMMANDS_H
#define DEVKIT_CLIENT_COMMANDS_H

#include <map>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <vector>

#include "desk_run.h"

using Texts = std::vector<std::string>;

struct Command;

// What the user gave a command: its arguments, and its options ("--follow", "") or ("--grep", "T").
struct Given {
    const Command *command;
    Texts arguments;
    std::map<std::string, std::string> options = {};

    bool has(const char *option) const {
        return options.contains(option);
    }
};

// Prints a reply. Returns the exit code: 0, or 1 when the reply tells of a failure.
using ShowFunction = int (*)(const nlohmann::json &reply, const Given &given);

struct Command {
    const char *words;  // one or two words
    const char
        *arguments;  // each names its kind (names.h) or lists its values; [] may be left out, ... repeated
    const char *options;  // "--follow --grep TEXT"
    const char *help;
    const char *example;  // what stands behind "desk"
    // Either one request ...
    Side to = Side::camera;
    const char *method = nullptr;
    const char *path = "";  // $1: the first argument
    const char *body = "";  // JSON; "$1": the first argument as text, "#1": as JSON, or text if it is none;
                            // "#*": an array of all; a member whose argument is missing falls away
    ShowFunction show = nullptr;  // null: all of it
    // ... or a function that does it all and returns the exit code.
    int (*run)(const Given &given) = nullptr;
};

// One argument of a row: "[SECONDS]" is the kind SECONDS, optional.
struct Argument {
    std::string kind;
    bool optional = false, repeated = false;
};

struct Group {
    const char *name, *title;
    std::span<const Command> commands;
};

std::span<const Group> all_groups();
std::span<const Command> camera_commands();  // commands_camera.cpp
std::span<const Command> fault_commands();
std::span<const Command> cloud_commands();  // commands_cloud.cpp
std::span<const Command> media_commands();
std::span<const Command> watch_commands();  // commands_device.cpp
std::span<const Command> device_commands();
std::span<const Command> own_commands();

// The row that begins the arguments, null for none; `words` is how many of them it takes.
const Command *find_command(const Texts &arguments, size_t &words);
std::vector<Argument> arguments_of(const Command &command);

// The options of a row, each with the name of its value, "" for none. Those of every command are among them.
std::map<std::string, std::string> options_of(const Command &command);

// Fills the templates of a command.
std::string fill_path(const char *path, const Texts &arguments);
nlohmann::json fill_body(const char *body, const Texts &arguments);

#endif
