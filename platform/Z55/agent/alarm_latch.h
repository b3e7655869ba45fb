// A level alarm's latch: one alarm is sent per excursion. Main thread only.
#ifndef Z55_AGENT_ALARM_LATCH_H
#define Z55_AGENT_ALARM_LATCH_H

#include <optional>

#include "alarm_rules.h"

// Sends the event's alarm, clears the latch or logs that nothing is to be done. The latch is set only by a
// delivered alarm, so an undelivered one is tried again. `trace_line` is the line number of a trace before
// the held text, 0 for no trace.
void apply_level(const PollEvent &event, bool &latched, std::optional<bool> low, int trace_line);

#endif
