// How replies are printed: see show_function.
#ifndef DEVKIT_CLIENT_SHOW_H
#define DEVKIT_CLIENT_SHOW_H

#include "commands.h"

int show_json(const nlohmann::json &reply, const Texts &arguments);  // indented; nothing for {}
int show_member(const nlohmann::json &reply,
                const Texts &arguments);  // the member that the arguments lead to
int show_alarms(const nlohmann::json &reply, const Texts &arguments);    // {1, "alarm", 13} a line
int show_requests(const nlohmann::json &reply, const Texts &arguments);  // a line each
int show_frames(const nlohmann::json &reply, const Texts &arguments);    // without the records
int show_result(const nlohmann::json &reply,
                const Texts &arguments);  // a handler's value or result; 1 if it failed
int show_calls(const nlohmann::json &reply, const Texts &arguments);  // every result as it is

#endif
