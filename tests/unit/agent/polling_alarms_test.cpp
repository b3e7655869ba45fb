// The alarms of the status watch: each rule's record, latch and log, the temperature check, the handing over.
#include <sys/resource.h>

#include <filesystem>

#include "agent/alarm_sink.h"
#include "polling_test.h"
#include "vanishing_conf.h"

namespace {

std::string sent(int code) {
    return log_of_alarm("(poll)", code);
}

std::string held(const std::string &text) {
    return "--platform/Z55/agent/polling, line <N> -- \n" + text + " alarm had send , don't do something\n";
}

constexpr char kDetected[] = "(poll) Alarm event detected   \n";

class PollingAlarms : public PollingTest {};

// --- Levels: one alarm per excursion.

TEST_F(PollingAlarms, BatteryIsTakenByItsThreshold) {
    set_conf("BATTERY_ARMED", "1");
    set_conf("BATTERY_LOW", "20");
    EXPECT_LOG(rules("Battery", "20"), held("battery"));  // at the threshold is not low
    EXPECT_LOG(rules("Battery", "19"), "(poll) low battery event detected\n" + sent(13));
    EXPECT_LOG(rules("Battery", "3"), held("battery"));
    EXPECT_EQ(rules("Battery", "20"), "battery alarm end , recover flag\n");  // equality clears a set latch
    EXPECT_LOG(rules("Battery", "100"), held("battery"));
    EXPECT_LOG(rules("Battery", "none"), "(poll) low battery event detected\n" + sent(13));  // reads as 0
    EXPECT_EQ(alarm_statuses(), (std::vector<int>{13, 13}));
}

TEST_F(PollingAlarms, BatteryWithoutAThresholdIsNeverLow) {
    set_conf("BATTERY_ARMED", "1");
    EXPECT_LOG(rules("Battery", "0"), held("battery"));
    set_conf("BATTERY_LOW", "");
    EXPECT_LOG(rules("Battery", "0"), held("battery"));
    write_conf({{"hostIP", FakeCamera::kHost}, {"POLL_STATUS_PERIOD_SEC", "10"}, {"BATTERY_ARMED", "1"}});
    EXPECT_LOG(rules("Battery", "0"), held("battery"));
}

TEST_F(PollingAlarms, CardSpaceIsDfsNotTheCameras) {
    set_conf("SDCARD_ARMED", "1");
    set_conf("SDCARD_LOW", "10");
    const std::string free_is = " get_SDspace_percent percent=";
    free_percent(10);
    EXPECT_LOG(rules("Space", "0"), free_is + "10\n" + held("SDspace"));
    free_percent(9);
    EXPECT_EQ(rules("Space", "99999"), free_is + "9\n(poll) low SDcard space event detected\n" + sent(11));
    EXPECT_LOG(rules("Space", "99999"), free_is + "9\n" + held("SDspace"));
    free_percent(10);
    EXPECT_EQ(rules("Space", "0"), free_is + "10\nSDspace alarm end , recover flag\n");
    EXPECT_LOG(rules("Space", "0"), free_is + "10\n" + held("SDspace"));
    EXPECT_EQ(alarm_statuses(), std::vector<int>{11});
}

TEST_F(PollingAlarms, ADfThatCannotBeAskedRecoversNothing) {
    set_conf("SDCARD_ARMED", "1");
    set_conf("SDCARD_LOW", "10");
    free_percent(9);
    rules("Space", "0");
    fake_os::on_shell([](const std::string &) { return fake_os::ShellResult{.status = -1}; });
    EXPECT_LOG(rules("Space", "0"), " get_SDspace_percent percent=100\n" + held("SDspace"));
    free_percent(9);
    EXPECT_LOG(rules("Space", "0"), " get_SDspace_percent percent=9\n" + held("SDspace"));
    // A folder in the place of what df prints to.
    unlink("/tmp/space_percent");
    mkdir("/tmp/space_percent", 0755);
    EXPECT_LOG(rules("Space", "0"), " get_SDspace_percent percent=100\n" + held("SDspace"));
    rmdir("/tmp/space_percent");
    EXPECT_LOG(rules("Space", "0"), " get_SDspace_percent percent=9\n" + held("SDspace"));
    EXPECT_EQ(alarm_statuses(), std::vector<int>{11});
}

TEST_F(PollingAlarms, AThresholdThatCannotBeReadRecoversNothing) {
    set_conf("BATTERY_ARMED", "1");
    set_conf("BATTERY_LOW", "20");
    rules("Battery", "19");
    const std::string text = conf_text();
    EXPECT_FALSE(at_some_vanishing(text, [&] {
        camera.reply("/CGI/CameraStatus",
                     {{.body = status({{"Battery", "19"}})}, {.body = "<ErrorCode>-2</ErrorCode>"}});
        std::string log;
        errors_of([&] { log = output_of([&] { (void)myPoll("12345"); }); });
        return log.find("recover flag") != std::string::npos;
    }));
}

TEST_F(PollingAlarms, CardPresenceNeedsNoArming) {
    EXPECT_LOG(rules("SD", "1"), held("SD"));
    EXPECT_EQ(rules("SD", "0"), "NO_SD_CARD Alarm event detected\n" + sent(15));
    EXPECT_LOG(rules("SD", "0"), held("SD"));
    EXPECT_LOG(rules("SD", "2"), held("SD"));  // neither sends nor clears
    EXPECT_LOG(rules("SD", ""), held("SD"));
    EXPECT_LOG(rules("SD", "0 but more"), held("SD"));
    EXPECT_EQ(rules("SD", "1"), "SD alarm end , recover flag\n");
    EXPECT_LOG(rules("SD", "unknown"), held("SD"));
    EXPECT_EQ(rules("SD", "01"), "NO_SD_CARD Alarm event detected\n" + sent(15));
    EXPECT_EQ(alarm_statuses(), (std::vector<int>{15, 15}));
}

struct ArmedRow {
    const char *name;
    const char *text;
    bool armed;
};

class PollingArmed : public PollingTest, public testing::WithParamInterface<ArmedRow> {};

TEST_P(PollingArmed, IsExactlyOne) {
    const auto [name, text, armed] = GetParam();
    set_conf("BATTERY_ARMED", text);
    set_conf("SDCARD_ARMED", text);
    set_conf("BATTERY_LOW", "90");
    set_conf("SDCARD_LOW", "95");
    poll({status()});
    EXPECT_EQ(alarm_statuses(), armed ? (std::vector<int>{13, 11}) : std::vector<int>{});
}

INSTANTIATE_TEST_SUITE_P(Rows, PollingArmed,
                         testing::Values(ArmedRow{.name = "one", .text = "1", .armed = true},
                                         ArmedRow{.name = "zero", .text = "0", .armed = false},
                                         ArmedRow{.name = "empty", .text = "", .armed = false},
                                         ArmedRow{.name = "two", .text = "2", .armed = false},
                                         ArmedRow{.name = "a word", .text = "ON", .armed = false},
                                         ArmedRow{.name = "eleven", .text = "11", .armed = false}),
                         by_name);

TEST_F(PollingAlarms, LevelsThatAreNotArmedOnlyLogALeadingOne) {
    EXPECT_EQ(rules("Battery", "100"), kDetected);
    EXPECT_EQ(rules("Battery", "90"), "");
    EXPECT_EQ(rules("Space", "1024"), kDetected);
    EXPECT_EQ(rules("Space", "2048"), "");
    EXPECT_EQ(alarm_statuses(), std::vector<int>{});
}

TEST_F(PollingAlarms, LatchesOutliveANewEntry) {
    poll({status({{"SD", "0"}})});
    poll({status({{"SD", "0"}}), status({{"SD", "0"}})});
    EXPECT_EQ(alarm_statuses(), std::vector<int>{15});
}

TEST_F(PollingAlarms, OnlyADeliveredAlarmSetsItsLatch) {
    set_conf("BATTERY_ARMED", "1");
    set_conf("SDCARD_ARMED", "1");
    set_conf("BATTERY_LOW", "90");
    set_conf("SDCARD_LOW", "95");
    const std::string low = status({{"SD", "0"}});
    mipc_api = nullptr;
    const std::string log = poll({low});
    EXPECT_EQ(rules_of("Battery", log), "(poll) low battery event detected\n(poll) mipc_api == NULL\n");
    EXPECT_EQ(rules_of("Space", log),
              " get_SDspace_percent percent=90\n(poll) low SDcard space event detected\n"
              "(poll) mipc_api == NULL\n");
    EXPECT_EQ(rules_of("SD", log), "NO_SD_CARD Alarm event detected\n(poll) mipc_api == NULL\n");
    mipc_api = &fake_vendor::table();
    poll({low, low});
    EXPECT_EQ(alarm_statuses(), (std::vector<int>{13, 11, 15}));
}

TEST_F(PollingAlarms, WhatTheSdkReturnsMeansNothing) {
    fake_vendor::alarm_result(-5);
    poll({status({{"SD", "0"}}), status({{"SD", "0"}})});
    EXPECT_EQ(alarm_statuses(), std::vector<int>{15});
}

// --- Events: an alarm in every cycle.

struct EventRow {
    const char *name;
    int code;
};

class PollingEvent : public PollingTest, public testing::WithParamInterface<EventRow> {};

TEST_P(PollingEvent, IsSentEveryCycle) {
    const auto [name, code] = GetParam();
    const std::string on = status({{name, "1"}});
    const std::string log = poll({on, on, status()});
    EXPECT_EQ(rules_of(name, log), kDetected + sent(code));
    EXPECT_EQ(alarm_statuses(), (std::vector<int>{code, code}));
    for (const char *value : {"", "0", "2", "01"}) EXPECT_EQ(rules(name, value), "") << value;
    EXPECT_EQ(rules(name, "1 since noon"), kDetected + sent(code));
}

INSTANTIATE_TEST_SUITE_P(Rows, PollingEvent,
                         testing::Values(EventRow{.name = "MotionEvent", .code = 1},
                                         EventRow{.name = "AudioEvent", .code = 3}),
                         by_name);

TEST_F(PollingAlarms, SeveralEventsComeInTheOrderOfTheTable) {
    set_conf("BATTERY_ARMED", "1");
    set_conf("BATTERY_LOW", "90");
    poll({status({{"MotionEvent", "1"}, {"AudioEvent", "1"}, {"SD", "0"}})});
    EXPECT_EQ(alarm_statuses(), (std::vector<int>{1, 3, 13, 15}));
}

// --- The temperature check.

constexpr char kTemperatureKeys[] = "Temperature&TemperatureMax&TemperatureMin";

std::string temperature_reply(const std::string &now, const std::string &max, const std::string &min) {
    return "<TemperatureMax>" + max + "</TemperatureMax><TemperatureMin>" + min +
           "</TemperatureMin><Temperature>" + now + "</Temperature>";
}

const std::string kCheck = std::string(kDetected) + "*** keys_str = \"" + kTemperatureKeys +
                           "\"***\n[QUERY CameraStatus?" + kTemperatureKeys + "]\n";

struct TemperatureRow {
    const char *name;
    const char *now, *max, *min;
    int numbers[3];
    const char *text;
    int code;  // 0 for none
};

class PollingTemperature : public PollingTest, public testing::WithParamInterface<TemperatureRow> {};

TEST_P(PollingTemperature, IsComparedWithItsBounds) {
    const TemperatureRow &row = GetParam();
    camera.reply(std::string("/CGI/CameraStatus?") + kTemperatureKeys,
                 temperature_reply(row.now, row.max, row.min));
    const std::string numbers = "Temperature=" + std::to_string(row.numbers[0]) +
                                " TemperatureMax=" + std::to_string(row.numbers[1]) +
                                " TemperatureMin=" + std::to_string(row.numbers[2]) + " \n";
    EXPECT_EQ(rules("TemperatureEvent", "1"),
              kCheck + numbers + (row.code != 0 ? row.text + std::string("\n") + sent(row.code) : ""));
    EXPECT_EQ(alarm_statuses(), row.code != 0 ? std::vector<int>{row.code} : std::vector<int>{});
    EXPECT_EQ(camera.seen().at(1),
              std::string("GET /CGI/CameraStatus?") + kTemperatureKeys + " Session=12345");
}

INSTANTIATE_TEST_SUITE_P(Rows, PollingTemperature,
                         testing::Values(TemperatureRow{.name = "above the maximum",
                                                        .now = "31",
                                                        .max = "30",
                                                        .min = "10",
                                                        .numbers = {31, 30, 10},
                                                        .text = "TemperatureMax alarm",
                                                        .code = 10},
                                         TemperatureRow{.name = "at the maximum",
                                                        .now = "30",
                                                        .max = "30",
                                                        .min = "10",
                                                        .numbers = {30, 30, 10},
                                                        .text = "",
                                                        .code = 0},
                                         TemperatureRow{.name = "at the minimum",
                                                        .now = "10",
                                                        .max = "30",
                                                        .min = "10",
                                                        .numbers = {10, 30, 10},
                                                        .text = "",
                                                        .code = 0},
                                         TemperatureRow{.name = "below the minimum",
                                                        .now = "9",
                                                        .max = "30",
                                                        .min = "10",
                                                        .numbers = {9, 30, 10},
                                                        .text = "TemperatureMin alarm",
                                                        .code = 14},
                                         TemperatureRow{.name = "fraction and unit",
                                                        .now = "-5.9",
                                                        .max = "30C",
                                                        .min = "-5",
                                                        .numbers = {-5, 30, -5},
                                                        .text = "",
                                                        .code = 0},
                                         TemperatureRow{.name = "empty maximum",
                                                        .now = "-6",
                                                        .max = "",
                                                        .min = "-5",
                                                        .numbers = {-6, 0, -5},
                                                        .text = "TemperatureMin alarm",
                                                        .code = 14}),
                         by_name);

TEST_F(PollingAlarms, TemperatureIsNotLatched) {
    camera.reply(std::string("/CGI/CameraStatus?") + kTemperatureKeys, temperature_reply("31", "30", "10"));
    poll({status({{"TemperatureEvent", "1"}}), status({{"TemperatureEvent", "1"}})});
    EXPECT_EQ(alarm_statuses(), (std::vector<int>{10, 10}));
}

TEST_F(PollingAlarms, TemperatureWithoutAReplyIsNotChecked) {
    camera.reply(std::string("/CGI/CameraStatus?") + kTemperatureKeys, {CameraReply{.status = 500}});
    EXPECT_EQ(rules("TemperatureEvent", "1"),
              kCheck +
                  "[failed]\ngetCameraStatuses failed. response of perform_curl() is null.\n"
                  "getMultipleCameraStatuses failed: return value is null.\n");
}

TEST_F(PollingAlarms, TemperatureErrorsAreIgnored) {
    camera.reply(std::string("/CGI/CameraStatus?") + kTemperatureKeys, "<ErrorCode>-9</ErrorCode>");
    EXPECT_EQ(rules("TemperatureEvent", "1"),
              kCheck + "getCameraStatuses failed due to polling failing.Errorcode: -9 \n");
    EXPECT_EQ(alarm_statuses(), std::vector<int>{});
}

struct MissingRow {
    const char *name;
    int index;  // among the keys that are asked for
};

class PollingMissing : public PollingTest, public testing::WithParamInterface<MissingRow> {};

TEST_P(PollingMissing, TemperatureIsNotChecked) {
    constexpr const char *kValues[] = {"<Temperature>31</Temperature>", "<TemperatureMax>30</TemperatureMax>",
                                       "<TemperatureMin>1</TemperatureMin>"};
    std::string reply = "<Status>";
    for (int i = 0; i < 3; i++) {
        if (i != GetParam().index) reply += kValues[i];
    }
    camera.reply(std::string("/CGI/CameraStatus?") + kTemperatureKeys, reply);
    const std::string index = std::to_string(GetParam().index);
    EXPECT_LOG(rules("TemperatureEvent", "1"), kCheck + "value  " + index + " = NULL\nvalues[" + index +
                                                   "] = NULL, aborting platform/Z55/agent/polling : <N>\n");
    EXPECT_EQ(alarm_statuses(), std::vector<int>{});
}

INSTANTIATE_TEST_SUITE_P(Rows, PollingMissing,
                         testing::Values(MissingRow{.name = "temperature", .index = 0},
                                         MissingRow{.name = "maximum", .index = 1},
                                         MissingRow{.name = "minimum", .index = 2}),
                         by_name);

// --- Handing over.

class HandingOver : public AgentTest {};

TEST_F(HandingOver, GivesTheRecordAndTheTable) {
    EXPECT_EQ(output_of([] { EXPECT_EQ(SendAlarmData("(poll)", 7, "noise", 42), 0); }),
              "(poll) SendAlarmData!! index:7, name:noise, status: 42 \n(poll) end SendAlarmData\n");
    ASSERT_EQ(fake_vendor::alarms().size(), 1U);
    const alarm_record record = fake_vendor::alarms()[0];
    EXPECT_EQ(record.index, 7);
    EXPECT_EQ(std::string(record.name, 32), "noise" + std::string(27, '\0'));
    EXPECT_EQ(record.status, 42);
    EXPECT_TRUE(fake_vendor::alarms_name_the_table());
}

TEST_F(HandingOver, CutsTheNameAt31Characters) {
    const std::string name(10'000, 'n');
    EXPECT_EQ(output_of([&] { (void)SendAlarmData("(poll)", 1, name.c_str(), 2); }),
              "(poll) SendAlarmData!! index:1, name:" + name.substr(0, 31) +
                  ", status: 2 \n(poll) end SendAlarmData\n");
    const alarm_record record = fake_vendor::alarms().at(0);
    EXPECT_EQ(std::string(record.name, 32), std::string(31, 'n') + '\0');
    EXPECT_EQ(record.status, 2);
}

TEST_F(HandingOver, WithoutATableIsMinusOne) {
    mipc_api = nullptr;
    EXPECT_EQ(output_of([] { EXPECT_EQ(SendAlarmData("(poll)", 1, "alarm", 1), -1); }),
              "(poll) mipc_api == NULL\n");
}

TEST_F(HandingOver, WithoutAnEntryIsMinusTwo) {
    fake_vendor::table().SendAlarmData = nullptr;
    EXPECT_EQ(output_of([] { EXPECT_EQ(SendAlarmData("(poll)", 1, "alarm", 1), -2); }),
              "(poll) mipc_api->SendAlarmData == NULL\n");
}

// --- Free space of the card.

struct DfRow {
    const char *name;
    const char *output;
    int free;
};

class CardSpace : public AgentTest, public testing::WithParamInterface<DfRow> {};

TEST_P(CardSpace, IsWhatDfLeavesOfAHundred) {
    const auto [name, output, free] = GetParam();
    fake_os::on_shell([text = std::string(output)](const std::string &) {
        write_file("/tmp/space_percent", text);
        return fake_os::ShellResult{};
    });
    int percent = -1;
    EXPECT_EQ(output_of([&] { percent = get_SDspace_percent(); }),
              " get_SDspace_percent percent=" + std::to_string(free) + "\n");
    EXPECT_EQ(percent, free);
    EXPECT_EQ(
        fake_os::shell_commands(),
        Texts{"df /tmp/fuse_d | /bin/grep /tmp/fuse_d  | /usr/bin/awk '{print $5}' > /tmp/space_percent"});
}

INSTANTIATE_TEST_SUITE_P(
    Rows, CardSpace,
    testing::Values(DfRow{.name = "partly used", .output = "37%\n", .free = 63},
                    DfRow{.name = "full", .output = "100%\n", .free = 0},
                    DfRow{.name = "unused", .output = "0%\n", .free = 100},
                    DfRow{.name = "nothing", .output = "", .free = 100},
                    DfRow{.name = "empty line", .output = "\n", .free = 100},
                    DfRow{.name = "empty first line", .output = "\n5%\n", .free = 100},
                    DfRow{.name = "no number", .output = "-\n", .free = 100},
                    DfRow{.name = "several lines", .output = "5%\n6%\n", .free = 95},
                    DfRow{.name = "digits beyond the ninth", .output = "0000000099", .free = 91}),
    by_name);

class CardSpaceFile : public AgentTest {
  protected:
    static constexpr char kFile[] = "/tmp/space_percent";

    void SetUp() override {
        AgentTest::SetUp();
        std::filesystem::remove(kFile);
    }
    static int space() {
        int percent = -1;
        output_of([&] { percent = get_SDspace_percent(); });
        return percent;
    }
    static void df_says(const std::string &output, int status = 0) {
        fake_os::on_shell([output, status](const std::string &) {
            write_file(kFile, output);
            return fake_os::ShellResult{.status = status};
        });
    }
};

TEST_F(CardSpaceFile, ThatCannotBeMadeIsAHundred) {
    std::filesystem::create_directory(kFile);
    EXPECT_EQ(space(), 100);
}

TEST_F(CardSpaceFile, ThatNoDescriptorIsLeftForIsTold) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const std::string log = output_of([&] {
        const rlimit few{3, limit.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
        EXPECT_EQ(get_SDspace_percent(), 100);
        setrlimit(RLIMIT_NOFILE, &limit);
    });
    EXPECT_EQ(
        log,
        "shell output not read, /tmp/space_percent:Too many open files\n get_SDspace_percent percent=100\n");
}

TEST_F(CardSpaceFile, OfADfThatFailsIsAHundred) {
    df_says("37%\n", 9);
    EXPECT_EQ(space(), 100);
}

TEST_F(CardSpaceFile, FromBeforeIsNotRead) {
    write_file(kFile, "37%\n");
    EXPECT_EQ(space(), 100);
}

TEST_F(CardSpaceFile, IsNotTheOneThatALinkPointsTo) {
    write_file("/tmp/victim", "mine");
    std::filesystem::create_symlink("/tmp/victim", kFile);
    df_says("37%\n");
    EXPECT_EQ(space(), 63);
    EXPECT_EQ(read_file("/tmp/victim"), "mine");
}

}  // namespace
