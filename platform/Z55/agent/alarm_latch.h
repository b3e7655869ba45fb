// A level alarm that is sent once per excursion: its latch, its status and its log texts. Main thread only.
#ifndef Z55_AGENT_ALARM_LATCH_H
#define Z55_AGENT_ALARM_LATCH_H

#include <optional>

#include "alarm_rules.h"

struct LevelAlarm {
    AlarmStatus status;
    bool latched;              // set while a delivered alarm's condition lasts
    const char *raised_text;   // a line
    const char *recover_text;  // a line
    const char *held_text;     // a line
};

// Sends the alarm, clears the latch or logs that nothing is to be done. The latch is set only by a delivered
// alarm, so an undelivered one is tried again. `trace_line` is the line number of a trace before the held
// text, 0 for no trace.
void apply_level(LevelAlarm &alarm, std::optional<bool> low, int trace_line);

#endif
