#include "alarm_latch.h"

#include <cstdio>

#include "../log_sources.h"
#include "alarm_sink.h"

void apply_level(const PollEvent &event, bool &latched, std::optional<bool> low, int trace_line) {
    switch (level_action(low, latched)) {
        case LevelAction::raise:
            std::puts(event.raised_text);
            latched = send_alarm("(poll)", event.status) == 0;
            break;
        case LevelAction::recover:
            std::puts(event.recover_text);
            latched = false;
            break;
        case LevelAction::none:
            if (trace_line != 0) std::printf("--%s, line %d -- \n", kPollingSource, trace_line);
            std::puts(event.held_text);
            break;
    }
}
