// The commands that tell of the commands.
#ifndef DEVKIT_CLIENT_HELP_H
#define DEVKIT_CLIENT_HELP_H

#include "commands.h"

int print_help(const Given &given);        // [COMMAND...]: all, a group, or one of them
int print_candidates(const Given &given);  // [WORD...]: what completes the last word, a line each

// "camera set KEY VALUE" of a row.
std::string usage_of(const Command &command);

// The sentence for words that begin no command.
std::string no_such_command(const Texts &words);

#endif
