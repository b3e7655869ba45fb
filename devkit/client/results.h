// What the numbers mean that handlers, camera and alarms give.
#ifndef DEVKIT_CLIENT_RESULTS_H
#define DEVKIT_CLIENT_RESULTS_H

#include <string>

// "-10: a recording runs already". `handler` is the one that gave the result.
std::string result_text(const std::string &handler, int result);

// "motion" for 1; "alarm 99" for one that is not known.
std::string alarm_text(int status);

#endif
