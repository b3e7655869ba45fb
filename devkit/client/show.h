// How replies are printed: see ShowFunction.
#ifndef DEVKIT_CLIENT_SHOW_H
#define DEVKIT_CLIENT_SHOW_H

#include "commands.h"

int show_all(const nlohmann::json &reply, const Given &given);       // a member a line; nothing for {}
int show_member(const nlohmann::json &reply, const Given &given);    // the one that the arguments lead to
int show_requests(const nlohmann::json &reply, const Given &given);  // a line each
int show_frames(const nlohmann::json &reply, const Given &given);    // without the records
int show_value(const nlohmann::json &reply,
               const Given &given);  // what a reading handler gave, with its unit
int show_result(const nlohmann::json &reply,
                const Given &given);  // a handler's result in words; 1 if it failed
int show_viewer(const nlohmann::json &reply, const Given &given);
int show_variable(const nlohmann::json &reply, const Given &given);
int show_calls(const nlohmann::json &reply, const Given &given);  // every result as it is

// Throws where the SDK says that a call could not be made.
void check_made(const nlohmann::json &reply);

// The first result of a call, which was made.
const nlohmann::json &only_result(const nlohmann::json &reply);

// The result of `handler`: prints it when it is 0, throws its words otherwise.
int tell_result(const std::string &handler, const nlohmann::json &result);

#endif
