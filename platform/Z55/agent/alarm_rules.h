// Which alarm a polled value asks for: pure decisions on value, latch and thresholds. No state, no I/O, any
// thread.
#ifndef Z55_AGENT_ALARM_RULES_H
#define Z55_AGENT_ALARM_RULES_H

#include <cstdint>
#include <optional>

// The status field of an alarm record.
enum AlarmStatus {
    kMotionAlarm = 1,
    kSoundAlarm = 3,
    kTemperatureHighAlarm = 10,
    kCardSpaceAlarm = 11,
    kQuotaAlarm = 12,
    kBatteryAlarm = 13,
    kTemperatureLowAlarm = 14,
    kNoCardAlarm = 15,
    kDownloadFailedNotice = 17,
    kUpgradeStartNotice = 18,
    kUpgradeSucceededNotice = 19,
    kUpgradeFailedNotice = 20,
};

// By which rule a value is judged.
enum class AlarmRule { battery, card_space, card_presence, trigger };

// A level that is not armed falls through to the trigger rule. Only the first 7, 5 and 2 characters of `name`
// count.
AlarmRule alarm_rule(const char *name, bool battery_armed, bool sdcard_armed);

// What a latched level asks for: one alarm per excursion.
enum class LevelAction { raise, recover, none };

// `low` is empty when the value says neither. The latch stays set from a delivered alarm to the recovery.
LevelAction level_action(std::optional<bool> low, bool latched);

// Whether an "SD" value tells of a missing card ('0' first) or of a present one ('1' first); else nothing.
std::optional<bool> card_missing(const char *value);

// Whether a value triggers: its first character is '1'.
bool triggered(const char *value);

// The alarm for a temperature outside [min, max], nothing inside.
std::optional<AlarmStatus> temperature_alarm(int temperature, int max, int min);

// The free share of a cloud-storage quota in percent, rounded down; 0 when more is used than there is.
// `total` > 0.
unsigned free_percent(std::uint64_t total, std::uint64_t used);

#endif
