// The pure decisions of the alarm rules, row by row.
#include "agent/alarm_rules.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>

#include <climits>

#include "poll_event_rows.h"
#include "row_names.h"

namespace {

TEST(AlarmRules, StatusNumbersAreThoseOfTheCloud) {
    EXPECT_EQ(kMotionAlarm, 1);
    EXPECT_EQ(kSoundAlarm, 3);
    EXPECT_EQ(kTemperatureHighAlarm, 10);
    EXPECT_EQ(kCardSpaceAlarm, 11);
    EXPECT_EQ(kQuotaAlarm, 12);
    EXPECT_EQ(kBatteryAlarm, 13);
    EXPECT_EQ(kTemperatureLowAlarm, 14);
    EXPECT_EQ(kNoCardAlarm, 15);
    EXPECT_EQ(kDownloadFailedNotice, 17);
    EXPECT_EQ(kUpgradeStartNotice, 18);
    EXPECT_EQ(kUpgradeSucceededNotice, 19);
    EXPECT_EQ(kUpgradeFailedNotice, 20);
}

class PollEventTable : public testing::TestWithParam<PollEventRow> {};

std::string text(const char *key) {
    return key != nullptr ? key : "-";
}

TEST_P(PollEventTable, HoldsTheEvent) {
    const PollEventRow &row = GetParam();
    const auto event = std::find_if(std::begin(kPollEvents), std::end(kPollEvents),
                                    [&](const PollEvent &polled) { return text(polled.name) == row.name; });
    ASSERT_NE(event, std::end(kPollEvents));
    EXPECT_EQ(event->rule, row.rule);
    EXPECT_EQ(event->status, row.status);
    EXPECT_EQ(text(event->period_key), row.period_key);
    EXPECT_EQ(text(event->armed_key), row.armed_key);
    EXPECT_EQ(text(event->threshold_key), row.threshold_key);
}

INSTANTIATE_TEST_SUITE_P(Rows, PollEventTable, testing::ValuesIn(kPollEventRows), by_name);

TEST(PollEvents, AreAskedForInThisOrder) {
    ASSERT_EQ(std::size(kPollEvents), std::size(kPollEventRows));
    for (size_t i = 0; i < std::size(kPollEventRows); i++)
        EXPECT_STREQ(kPollEvents[i].name, kPollEventRows[i].name);
}

TEST(AlarmRules, LevelIsRaisedOnceAndRecoversOnce) {
    EXPECT_EQ(level_action(true, false), LevelAction::raise);
    EXPECT_EQ(level_action(true, true), LevelAction::none);
    EXPECT_EQ(level_action(false, true), LevelAction::recover);
    EXPECT_EQ(level_action(false, false), LevelAction::none);
    EXPECT_EQ(level_action(std::nullopt, false), LevelAction::none);
    EXPECT_EQ(level_action(std::nullopt, true), LevelAction::none);
}

TEST(AlarmRules, CardIsMissingByTheFirstCharacterOnly) {
    EXPECT_EQ(card_missing("0"), true);
    EXPECT_EQ(card_missing("01"), true);
    EXPECT_EQ(card_missing("1"), false);
    EXPECT_EQ(card_missing("10"), false);
    for (const char *value : {"", "2", "/", " 0", "x1"})
        EXPECT_EQ(card_missing(value), std::nullopt) << value;
}

TEST(AlarmRules, TriggersByALeadingOne) {
    for (const char *value : {"1", "100", "1x"}) EXPECT_TRUE(triggered(value)) << value;
    for (const char *value : {"", "0", "2", "01", " 1"}) EXPECT_FALSE(triggered(value)) << value;
}

TEST(AlarmRules, TemperatureOnABoundSendsNothing) {
    EXPECT_EQ(temperature_alarm(31, 30, 10), kTemperatureHighAlarm);
    EXPECT_EQ(temperature_alarm(30, 30, 10), std::nullopt);
    EXPECT_EQ(temperature_alarm(10, 30, 10), std::nullopt);
    EXPECT_EQ(temperature_alarm(9, 30, 10), kTemperatureLowAlarm);
    EXPECT_EQ(temperature_alarm(20, 10, 30),
              kTemperatureHighAlarm);  // bounds crossed: the upper one is first
}

TEST(AlarmRules, FreePercentIsRoundedDown) {
    EXPECT_EQ(free_percent(100, 0), 100U);
    EXPECT_EQ(free_percent(1000, 901), 9U);
    EXPECT_EQ(free_percent(3, 2), 33U);
    EXPECT_EQ(free_percent(100, 100), 0U);
    EXPECT_EQ(free_percent(100, 101), 0U);
    EXPECT_EQ(free_percent(UINT64_MAX, 0), 100U);
    EXPECT_EQ(free_percent(UINT64_MAX, UINT64_MAX / 2), 50U);
    // The last product of 100 that 64 bits hold.
    EXPECT_EQ(free_percent(UINT64_MAX / 100, 0), 100U);
    EXPECT_EQ(free_percent(UINT64_MAX / 100, 1), 99U);
    EXPECT_EQ(free_percent(UINT64_MAX / 100 * 2, UINT64_MAX / 100), 50U);
    EXPECT_EQ(free_percent(UINT64_MAX / 100 * 2 + 1, UINT64_MAX / 100 + 1), 49U);
}

}  // namespace
