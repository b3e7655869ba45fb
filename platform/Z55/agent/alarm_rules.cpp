#include "alarm_rules.h"

LevelAction level_action(std::optional<bool> low, bool latched) {
    if (!low || *low == latched) return LevelAction::none;
    return *low ? LevelAction::raise : LevelAction::recover;
}

std::optional<bool> card_missing(const char *value) {
    if (value[0] == '0') return true;
    if (value[0] == '1') return false;
    return std::nullopt;
}

bool triggered(const char *value) {
    return value[0] == '1';
}

std::optional<AlarmStatus> temperature_alarm(int temperature, int max, int min) {
    if (temperature > max) return kTemperatureHighAlarm;
    if (temperature < min) return kTemperatureLowAlarm;
    return std::nullopt;
}

unsigned free_percent(std::uint64_t total, std::uint64_t used) {
    if (used >= total) return 0;
    const std::uint64_t free = total - used;
    if (free > UINT64_MAX / 100) return static_cast<unsigned>(free / (total / 100));
    return static_cast<unsigned>(free * 100 / total);
}
