// Scenarios: scripts of troubles that end with questions and answers. The console knows and runs them.
#ifndef DEVKIT_CLIENT_SCENARIO_H
#define DEVKIT_CLIENT_SCENARIO_H

#include <string>
#include <utility>
#include <vector>

#include "commands.h"

// Names with their titles; none where no console runs.
std::vector<std::pair<std::string, std::string>> scenario_names();

// NAME. Prints the steps as they are taken, then questions and answers; 1 when an answer is not the right
// one. Ctrl-C, and a reader that goes, stop the scenario.
int run_scenario(const Given &given);

#endif
