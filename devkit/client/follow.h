// The commands that tell what happens, once or, with --follow, as it happens, until Ctrl-C or until nobody
// reads any more. A desk that goes away meanwhile, as the agent's half does in a reboot, is waited for.
#ifndef DEVKIT_CLIENT_FOLLOW_H
#define DEVKIT_CLIENT_FOLLOW_H

#include "commands.h"

int show_alarms(const Given &given);  // [SINCE]
int show_events(const Given &given);
int show_log(const Given &given);  // --module, --grep

// Waits for a moment. False when whoever read standard output has gone.
bool pause_while_read();

#endif
