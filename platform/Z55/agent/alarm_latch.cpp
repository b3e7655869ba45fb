#include "alarm_latch.h"

#include <cstdio>

#include "polling.h"

void apply_level(LevelAlarm &alarm, std::optional<bool> low, int trace_line) {
    switch (level_action(low, alarm.latched)) {
        case LevelAction::raise:
            std::puts(alarm.raised_text);
            alarm.latched = SendAlarmData(1, "alarm", alarm.status) == 0;
            break;
        case LevelAction::recover:
            std::puts(alarm.recover_text);
            alarm.latched = false;
            break;
        case LevelAction::none:
            if (trace_line != 0) std::printf("--%s, line %d -- \n", "platform/Z55/agent/polling", trace_line);
            std::puts(alarm.held_text);
            break;
    }
}
