// Which camera values become which alarms, over the wire: rows of a camera's history.
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <fstream>

#include "poll_gate.h"
#include "poll_log.h"
#include "row_names.h"

namespace {

// In each step the statuses are set (null removes one) and two cycles are polled.
struct Step {
    json statuses;
    std::vector<int> alarms;         // of the two cycles
    std::vector<std::string> texts;  // that the log then holds, in this order
};

struct History {
    const char *name;
    std::map<std::string, std::optional<std::string>> conf;
    std::vector<Step> steps;
};

void PrintTo(const History &row, std::ostream *out) {
    *out << row.name;
}

std::string alarm_text(int status) {
    return "(poll) SendAlarmData!! index:1, name:alarm, status: " + std::to_string(status) +
           " \n(poll) end SendAlarmData\n";
}

const History kHistories[] = {
    {.name = "MotionIsReportedInEveryCycle",
     .conf = {},
     .steps = {{{{"MotionEvent", "1"}},
                {1, 1},
                {"(poll) Alarm event detected   \n" + alarm_text(1) + "Value of MotionEvent:1\n"}},
               {{{"MotionEvent", "0"}}, {}, {"Value of MotionEvent:0\n"}}}},
    {.name = "OnlyTheFirstCharacterTriggers",
     .conf = {},
     .steps = {{{{"MotionEvent", "10"}}, {1, 1}, {"Value of MotionEvent:10\n"}},
               {{{"MotionEvent", "01"}}, {}, {"Value of MotionEvent:01\n"}},
               {{{"MotionEvent", ""}}, {}, {"Value of MotionEvent:\n"}}}},
    {.name = "SoundIsReportedInEveryCycle",
     .conf = {},
     .steps = {{{{"AudioEvent", "1"}}, {3, 3}, {"(poll) Alarm event detected   \n" + alarm_text(3)}}}},
    {.name = "MotionBeforeSound",
     .conf = {},
     .steps = {{{{"MotionEvent", "1"}, {"AudioEvent", "1"}}, {1, 3, 1, 3}, {}}}},
    {.name = "TemperatureAboveMaximum",
     .conf = {},
     .steps = {{{{"TemperatureEvent", "1"},
                 {"Temperature", "31"},
                 {"TemperatureMax", "30"},
                 {"TemperatureMin", "10"}},
                {10, 10},
                {"(poll) Alarm event detected   \n*** keys_str = "
                 "\"Temperature&TemperatureMax&TemperatureMin\"***\n",
                 "Temperature=31 TemperatureMax=30 TemperatureMin=10 \nTemperatureMax alarm\n" +
                     alarm_text(10)}}}},
    {.name = "TemperatureBelowMinimum",
     .conf = {},
     .steps = {{{{"TemperatureEvent", "1"},
                 {"Temperature", "-4"},
                 {"TemperatureMax", "30"},
                 {"TemperatureMin", "-3"}},
                {14, 14},
                {"Temperature=-4 TemperatureMax=30 TemperatureMin=-3 \nTemperatureMin alarm\n" +
                 alarm_text(14)}}}},
    {.name = "TemperatureAtItsLimitsIsNoAlarm",
     .conf = {},
     .steps = {{{{"TemperatureEvent", "1"},
                 {"Temperature", "30"},
                 {"TemperatureMax", "30"},
                 {"TemperatureMin", "10"}},
                {},
                {"Temperature=30 TemperatureMax=30 TemperatureMin=10 \n"}},
               {{{"Temperature", "10"}}, {}, {"Temperature=10 TemperatureMax=30 TemperatureMin=10 \n"}}}},
    {.name = "MissingTemperatureEndsTheCheck",
     .conf = {},
     .steps = {{{{"TemperatureEvent", "1"}, {"Temperature", "99"}, {"TemperatureMax", nullptr}},
                {},
                {"value  1 = NULL\nvalues[1] = NULL, aborting platform/Z55/agent/polling : "}}}},
    {.name = "LowBatteryOncePerExcursion",
     .conf = {},
     .steps = {{{{"Battery", "9"}},
                {13},
                {"(poll) low battery event detected\n" + alarm_text(13) + "Value of Battery:9\n",
                 "battery alarm had send , don't do something\nValue of Battery:9\n"}},
               {{{"Battery", "10"}},
                {},
                {"battery alarm end , recover flag\nValue of Battery:10\n",
                 "battery alarm had send , don't do something\nValue of Battery:10\n"}},
               {{{"Battery", "0"}}, {13}, {"(poll) low battery event detected\n"}}}},
    {.name = "UnarmedBatteryOfAHundredOnlyLogs",
     .conf = {{"BATTERY_ARMED", "0"}},
     .steps = {{{{"Battery", "100"}}, {}, {"(poll) Alarm event detected   \nValue of Battery:100\n"}},
               {{{"Battery", "1"}}, {}, {"(poll) Alarm event detected   \nValue of Battery:1\n"}},
               {{{"Battery", "5"}}, {}, {"Value of Battery:5\n"}}}},
    {.name = "ArmedMeansExactlyOne",
     .conf = {{"BATTERY_ARMED", "11"}},
     .steps = {{{{"Battery", "5"}}, {}, {"Value of Battery:5\n"}}}},
    {.name = "MissingThresholdIsZero",
     .conf = {{"BATTERY_LOW", std::nullopt}},
     .steps = {{{{"Battery", "0"}}, {}, {"battery alarm had send"}}}},
    {.name = "NoCardOncePerExcursion",
     .conf = {{"SDCARD_ARMED", "0"}},
     .steps = {{{{"SD", "0"}},
                {15},
                {"NO_SD_CARD Alarm event detected\n" + alarm_text(15) + "Value of SD:0\n",
                 "SD alarm had send , don't do something\nValue of SD:0\n"}},
               {{{"SD", "x"}}, {}, {"SD alarm had send , don't do something\nValue of SD:x\n"}},
               {{{"SD", "0"}}, {}, {}},
               {{{"SD", "1"}}, {}, {"SD alarm end , recover flag\nValue of SD:1\n"}},
               {{{"SD", "0"}}, {15}, {"NO_SD_CARD Alarm event detected\n"}}}},
    {.name = "UnarmedSpaceOnlyLogs",
     .conf = {{"SDCARD_ARMED", "0"}, {"SDCARD_LOW", "101"}},
     .steps = {{{{"Space", "12"}}, {}, {"(poll) Alarm event detected   \nValue of Space:12\n"}}}},
    {.name = "MissingValuesAreSkipped",
     .conf = {},
     .steps = {{{{"AudioEvent", nullptr}, {"Battery", nullptr}, {"MotionEvent", "1"}},
                {1, 1},
                {"value  1 = NULL\nvalue  3 = NULL\n",
                 "Value of MotionEvent:1\nvalues[1] = NULL,  platform/Z55/agent/polling : ",
                 "Value of TemperatureEvent:0\nvalues[3] = NULL,  platform/Z55/agent/polling : "}}}},
};

class AlarmTest : public testing::TestWithParam<History> {};

}  // namespace

TEST_P(AlarmTest, History) {
    DeskOptions options;
    options.conf = GetParam().conf;
    Desk desk(options);
    PollGate gate(desk);
    for (const Step &step : GetParam().steps) {
        const size_t from = desk.log().size();
        const long alarm = desk.last_alarm();
        desk.camera("PATCH", "/status", step.statuses);
        gate.let_cycle_pass();
        gate.let_cycle_pass();
        desk.wait_for_logs(step.texts, from);
        EXPECT_EQ(desk.alarms(alarm), step.alarms) << step.statuses;
    }
}

INSTANTIATE_TEST_SUITE_P(Alarm, AlarmTest, testing::ValuesIn(kHistories), by_name);

// The card's fill is what `df` says of its file system, whatever the camera's "Space" is.
TEST(Alarm, LowCardSpaceOncePerExcursion) {
    DeskOptions options;
    options.conf = {{"SDCARD_LOW", "40"}};
    Desk desk(options);
    PollGate gate(desk);
    ASSERT_EQ(mount("tmpfs", "/tmp/fuse_d", "tmpfs", MS_REMOUNT, "size=10m"), 0);
    const auto fill = [](size_t megabytes) {
        std::ofstream("/tmp/fuse_d/fill") << std::string(megabytes * 1024 * 1024, 'x');
    };
    fill(7);
    const size_t low = desk.log().size();
    gate.let_cycle_pass();
    gate.let_cycle_pass();
    desk.wait_for_logs(
        {" get_SDspace_percent percent=29\n(poll) low SDcard space event detected\n" + alarm_text(11),
         "SDspace alarm had send , don't do something\nValue of Space:"},
        low);
    EXPECT_EQ(desk.alarms(), std::vector<int>{11});
    fill(5);
    const size_t recovered = desk.log().size();
    gate.let_cycle_pass();
    desk.wait_for_log("SDspace alarm end , recover flag\n", recovered);
    fill(9);
    gate.let_cycle_pass();
    EXPECT_EQ(desk.alarms(), (std::vector<int>{11, 11}));
}

// Arming and thresholds are read afresh for every value.
TEST(Alarm, ThresholdsTakeEffectInTheNextCycle) {
    Desk desk;
    PollGate gate(desk);
    desk.set_status("Battery", "50");
    gate.let_cycle_pass();
    EXPECT_EQ(desk.alarms(), std::vector<int>{});
    desk.write_conf({{"BATTERY_LOW", "51"}, {"SESSION_KEY", desk.conf_value("SESSION_KEY")}});
    gate.let_cycle_pass();
    EXPECT_EQ(desk.alarms(), std::vector<int>{13});
    desk.write_conf({{"BATTERY_ARMED", "0"}, {"SESSION_KEY", desk.conf_value("SESSION_KEY")}});
    desk.set_status("Battery", "90");
    const size_t unarmed = desk.log().size();
    gate.let_cycle_pass();
    EXPECT_EQ(desk.count_in_log("battery alarm", unarmed), 0);
}

TEST(Alarm, AnErrorOfTheTemperatureQueryIsIgnored) {
    Desk desk;
    PollGate gate(desk);
    desk.camera("PATCH", "/status", {{"TemperatureEvent", "1"}, {"Temperature", "99"}});
    desk.fault({{"endpoint", "CameraStatus"},
                {"match", "TemperatureMax"},
                {"kind", "error_code"},
                {"value", -2},
                {"count", 1}});
    desk.fault(
        {{"endpoint", "CameraStatus"}, {"match", "TemperatureMax"}, {"kind", "http_status"}, {"count", 1}});
    const size_t from = desk.log().size();
    gate.let_cycle_pass();
    desk.wait_for_log("Errorcode: -2 \nValue of TemperatureEvent:1\n", from);
    gate.let_cycle_pass();
    desk.wait_for_log(
        "getMultipleCameraStatuses failed: return value is null.\nValue of TemperatureEvent:1\n", from);
    gate.let_cycle_pass();
    EXPECT_EQ(desk.alarms(), std::vector<int>{10});
    EXPECT_EQ(desk.count_in_log("myPoll failed", from), 0);
}

// The record counts as sent once it is handed over, whatever the SDK returns.
TEST(Alarm, ARefusalOfTheSdkStillLatches) {
    Desk desk;
    PollGate gate(desk);
    desk.sdk("PUT", "/table", {{"alarm_result", -1}});
    desk.set_status("Battery", "1");
    gate.let_cycle_pass();
    gate.let_cycle_pass();
    EXPECT_EQ(desk.alarms(), std::vector<int>{13});
}

TEST(Alarm, WithoutAnSdkEntryItIsTriedAgainInTheNextCycle) {
    Desk desk;
    PollGate gate(desk);
    desk.sdk("PUT", "/table", {{"slot", 14}, {"present", false}});
    desk.set_status("Battery", "1");
    const size_t from = desk.log().size();
    gate.let_cycle_pass();
    gate.let_cycle_pass();
    EXPECT_EQ(desk.count_in_log("(poll) low battery event detected\n(poll) mipc_api->SendAlarmData == NULL\n",
                                from),
              2);
    desk.sdk("PUT", "/table", {{"slot", 14}, {"present", true}});
    gate.let_cycle_pass();
    gate.let_cycle_pass();
    EXPECT_EQ(desk.alarms(), std::vector<int>{13});
}

TEST(Alarm, WithoutAnSdkTableItIsTriedAgainInTheNextCycle) {
    DeskOptions options;
    options.environment["DESK_SDK_AT_LOAD"] = R"([["PUT","/table",{"null":true}]])";
    Desk desk(options);
    PollGate gate(desk);
    desk.set_status("SD", "0");
    const size_t from = desk.log().size();
    gate.let_cycle_pass();
    gate.let_cycle_pass();
    EXPECT_EQ(
        desk.count_in_log("NO_SD_CARD Alarm event detected\n(poll) mipc_api == NULL\nValue of SD:0\n", from),
        2);
    EXPECT_EQ(desk.alarms(), std::vector<int>{});
}

// Battery and card are asked for at their own periods; what is not due is named in the log with its times.
TEST(Alarm, BatteryIsPolledInOneCycleOutOfSix) {
    DeskOptions options;
    options.speed = 40;
    options.conf = {{"POLL_STATUS_PERIOD_SEC", "10"}, {"BATTERY_PERIOD", "60"}, {"SDCARD_PERIOD", "20"}};
    Desk desk(options);
    wait_until("thirteen cycles", [&] { return poll_cycles(desk).size() >= 13; });
    const auto cycles = poll_cycles(desk);
    for (const char *key : {"MotionEvent", "AudioEvent", "TemperatureEvent"})
        expect_asked_at_period(cycles, key, 0);
    expect_asked_at_period(cycles, "Battery", 60);
    expect_asked_at_period(cycles, "Space", 20);
    expect_asked_at_period(cycles, "SD", 20);
    const auto polls = desk.requests("CameraStatus");
    for (size_t i = 0; i < cycles.size(); i++) {
        const std::string keys = cycles[i].keys.substr(0, cycles[i].keys.find("&Nimb"));
        EXPECT_EQ(polls[i]["target"], "/CGI/CameraStatus?Notification&" + keys) << "cycle " << i;
    }
    desk.wait_for_log(", key:Battery ***\n*** (poll) not long enough, curr tv_sec:");
}
