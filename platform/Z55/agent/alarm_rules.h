// The polled events, a row each, and which alarm a value asks for: pure decisions on value, latch and
// thresholds. No state, no I/O, any thread.
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

// By which rule an event's value is judged.
enum class AlarmRule {
    trigger,         // an alarm in each cycle in which the value triggers
    temperature,     // where the value triggers, the temperature and its limits decide
    low_value,       // a latched level: the value under its threshold
    low_card_space,  // a latched level: the card's free share, in percent, under its threshold
    missing_card,    // a latched level: see card_missing
};

// A polled event. The keys are the configuration's.
struct PollEvent {
    const char *name;  // also the camera's status key
    AlarmRule rule;
    AlarmStatus status{};              // of its alarm, unless the temperature decides
    const char *period_key = nullptr;  // seconds; null: polled in each cycle
    // Of levels. One that is not armed is judged as a trigger without an alarm of its own.
    const char *armed_key = nullptr;  // null: always
    const char *threshold_key = nullptr;
    const char *raised_text = nullptr, *recover_text = nullptr, *held_text = nullptr;  // a log line each
};

inline constexpr PollEvent kPollEvents[] = {
    {.name = "MotionEvent", .rule = AlarmRule::trigger, .status = kMotionAlarm},
    {.name = "AudioEvent", .rule = AlarmRule::trigger, .status = kSoundAlarm},
    {.name = "TemperatureEvent", .rule = AlarmRule::temperature},
    {.name = "Battery",
     .rule = AlarmRule::low_value,
     .status = kBatteryAlarm,
     .period_key = "BATTERY_PERIOD",
     .armed_key = "BATTERY_ARMED",
     .threshold_key = "BATTERY_LOW",
     .raised_text = "(poll) low battery event detected",
     .recover_text = "battery alarm end , recover flag",
     .held_text = "battery alarm had send , don't do something"},
    {.name = "Space",
     .rule = AlarmRule::low_card_space,
     .status = kCardSpaceAlarm,
     .period_key = "SDCARD_PERIOD",
     .armed_key = "SDCARD_ARMED",
     .threshold_key = "SDCARD_LOW",
     .raised_text = "(poll) low SDcard space event detected",
     .recover_text = "SDspace alarm end , recover flag",
     .held_text = "SDspace alarm had send , don't do something"},
    {.name = "SD",
     .rule = AlarmRule::missing_card,
     .status = kNoCardAlarm,
     .period_key = "SDCARD_PERIOD",
     .raised_text = "NO_SD_CARD Alarm event detected",
     .recover_text = "SD alarm end , recover flag",
     .held_text = "SD alarm had send , don't do something"},
};

// The cloud storage's quota: a level that no status of the camera tells.
inline constexpr PollEvent kQuotaEvent = {
    .name = "Nimb",
    .rule = AlarmRule::low_value,
    .status = kQuotaAlarm,
    .period_key = "NIMB_PERIOD",
    .armed_key = "NIMB_ARMED",
    .threshold_key = "NIMB_LOW",
    .raised_text = "(poll) low nimb space event detected",
    .recover_text = "nimb space alarm end , recover flag",
    .held_text = "nimb alarm had send , don't do something",
};

// Whether the rule is a latched level's.
constexpr bool is_level(AlarmRule rule) {
    return rule != AlarmRule::trigger && rule != AlarmRule::temperature;
}

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
