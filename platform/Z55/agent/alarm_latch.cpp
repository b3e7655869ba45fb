#include "alarm_latch.h"

#include <cstdio>

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
            if (trace_line != 0) std::printf("--%s, line %d -- \n", "platform/Z55/agent/polling", trace_line);
            std::puts(event.held_text);
            break;
    }
}
