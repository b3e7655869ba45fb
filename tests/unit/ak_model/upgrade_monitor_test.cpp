#include "ak_model/upgrade_monitor.h"

#include <ostream>

#include "agent/alarm_sink.h"
#include "intercept.h"
#include "upgrade_fixture.h"

namespace {

// One round: what the camera answers, and what the monitor prints after it has read that.
struct Round {
    const char *status;
    const char *progress;
    std::string log;
};

std::string log_of_reading(const std::string &status, const std::string &progress) {
    return log_of_status("Upgrade_SW_status", "FwUpgradeStatus", status) +
           log_of_status("Upgrade_SW_process", "FwDownloadProgress", progress) +
           "SW status Now  = " + status +
           ",---  platform/Z55/ak_model,<N> -----\n"
           "SW fwProcess Now download progress = " +
           progress + ",---  platform/Z55/ak_model,<N> -----\n";
}

std::string progress_log(const char *progress) {
    return std::string("(OTA_monitor) downloading progress = ") + progress + "\n";
}

const std::string kStartLog =
    "(OTA_monitor) start downloading\n"
    "Retrieved line of length 6 :\n1.0.3\n"
    "Created OTA Temp file:\"/tmp/ota.marker\\n";
const std::string kFinishedLog =
    "(OTA_monitor) Download finished!!\n"
    "(OTA_monitor) SOAP to AA!\n"
    "soap_OTA_upgrade_start called\n" +
    log_of_alarm("(OTA)", 18);
const std::string kUpgradingLog = "(OTA_monitor) start upgrading\n";
const std::string kFailedLog =
    "PROGRESS == 0, FAIL!\n"
    "\n\nOTA FAILED!!!!!!!\n SOAP!\n"
    "soap_OTA_download_failed called\n" +
    log_of_alarm("(OTA)", 17) + "(OTA_monitor) OTA Failed. Leaving...\n";

std::string idle_log(const char *progress) {
    return std::string("(OTA_monitor) Became Idle. Weird?  progress = ") + progress + "\n";
}

class Monitor : public UpgradeTest {
  protected:
    void SetUp() override {
        UpgradeTest::SetUp();
        write_file(kFirmwareVersion, "1.0.3\n");
    }
    void camera_goes_through(const std::vector<Round> &rounds) {
        CameraScript script;
        for (const Round &round : rounds) {
            script["CameraStatus?FwUpgradeStatus"].push_back(element("FwUpgradeStatus", round.status));
            script["CameraStatus?FwDownloadProgress"].push_back(
                element("FwDownloadProgress", round.progress));
        }
        play_script(camera, script);
    }
    // Lets the monitor run until it ends or pauses for the n-th time; expects the log of all rounds.
    void expect_rounds(const std::vector<Round> &rounds, bool ends) {
        camera_goes_through(rounds);
        std::string expected = "(OTA_monitor) OTA_monitor starts.\n";
        for (const Round &round : rounds) {
            expected += log_of_reading(round.status, round.progress) + round.log;
        }
        bool goes_on = false;
        const std::string log = marked_log(output_of([&] {
            goes_on = fake_os::run_until_pause(static_cast<int>(rounds.size()),
                                               [] { EXPECT_EQ(OTA_monitor(nullptr), nullptr); });
        }));
        EXPECT_LOG(log, expected);
        EXPECT_EQ(goes_on, !ends);
        EXPECT_EQ(load_shared(ota_enable), 1);
    }
};

// --- The way through

TEST_F(Monitor, FollowsAWholeUpgrade) {
    expect_rounds({{"Idle", "0", ""},
                   {"Downloading", "0", kStartLog},
                   {"Downloading", "40", progress_log("40")},
                   {"Downloading", "97", progress_log("97")},
                   {"Downloading", "100", progress_log("100") + kFinishedLog},
                   {"Upgrading", "100", ""}},
                  false);
    EXPECT_EQ(fake_os::pauses(), (Texts{"5 s", "5 s", "5 s", "1 s", "1 s", "1 s"}));
    EXPECT_EQ(alarm_statuses(), std::vector{18});
    EXPECT_TRUE(fake_vendor::alarms_name_the_table());
    EXPECT_EQ(read_file(kMarker), "1.0.3");
}

TEST_F(Monitor, LeavesWhenTheDownloadFails) {
    expect_rounds(
        {{"Downloading", "0", kStartLog}, {"Idle", "0", progress_log("0") + idle_log("0") + kFailedLog}},
        true);
    EXPECT_EQ(alarm_statuses(), std::vector{17});
    EXPECT_EQ(fake_os::pauses(), Texts{"5 s"});
}

// --- The state table: each row begins where the rounds before the last have led.

struct StateRow {
    const char *name;
    std::vector<Round> rounds;
    bool ends;
    std::vector<int> alarms;
};

void PrintTo(const StateRow &row, std::ostream *out) {
    *out << row.name;
}

class StateTable : public Monitor, public testing::WithParamInterface<StateRow> {};

TEST_P(StateTable, Row) {
    expect_rounds(GetParam().rounds, GetParam().ends);
    EXPECT_EQ(alarm_statuses(), GetParam().alarms);
}

const Round kToDownloading{"Downloading", "0", kStartLog};
const Round kToDownloaded{"Downloading", "100", progress_log("100") + kFinishedLog};
const Round kToUpgrading{"Upgrading", "50", progress_log("50") + kUpgradingLog};

INSTANTIATE_TEST_SUITE_P(
    States, StateTable,
    testing::Values(
        StateRow{.name = "WaitingIdle", .rounds = {{"Idle", "0", ""}}, .ends = false, .alarms = {}},
        StateRow{
            .name = "WaitingUpgrading", .rounds = {{"Upgrading", "100", ""}}, .ends = false, .alarms = {}},
        StateRow{.name = "WaitingIdleAt100", .rounds = {{"Idle", "100", ""}}, .ends = false, .alarms = {}},
        StateRow{.name = "WaitingOnceMoreAfterAnything",
                 .rounds = {{"Upgrading", "0", ""}, kToDownloading},
                 .ends = false,
                 .alarms = {}},
        StateRow{.name = "ToDownloadingAt100",
                 .rounds = {{"Downloading", "100", kStartLog}},
                 .ends = false,
                 .alarms = {}},
        StateRow{.name = "DownloadingGoesOn",
                 .rounds = {kToDownloading, {"Downloading", "99", progress_log("99")}},
                 .ends = false,
                 .alarms = {}},
        StateRow{.name = "DownloadingOver100",
                 .rounds = {kToDownloading, {"Downloading", "101", progress_log("101")}},
                 .ends = false,
                 .alarms = {}},
        StateRow{.name = "DownloadingAt100",
                 .rounds = {kToDownloading, kToDownloaded},
                 .ends = false,
                 .alarms = {18}},
        StateRow{.name = "DownloadingIdleWithProgress",
                 .rounds = {kToDownloading,
                            {"Idle", "1", progress_log("1") + idle_log("1")},
                            {"Downloading", "2", progress_log("2")}},
                 .ends = false,
                 .alarms = {}},
        StateRow{.name = "DownloadingIdleAt100",
                 .rounds = {kToDownloading,
                            {"Idle", "100", progress_log("100") + kFinishedLog + idle_log("100")},
                            {"Idle", "0", ""}},
                 .ends = false,
                 .alarms = {18}},
        StateRow{
            .name = "DownloadingIdleWithoutANumber",
            .rounds = {kToDownloading, {"Idle", "none", progress_log("0") + idle_log("none") + kFailedLog}},
            .ends = true,
            .alarms = {17}},
        StateRow{.name = "DownloadingToUpgrading",
                 .rounds = {kToDownloading, kToUpgrading, {"Idle", "0", ""}, {"Downloading", "100", ""}},
                 .ends = false,
                 .alarms = {}},
        StateRow{.name = "DownloadingToUpgradingAt100",
                 .rounds = {kToDownloading,
                            {"Upgrading", "100", progress_log("100") + kFinishedLog + kUpgradingLog},
                            {"Upgrading", "100", ""}},
                 .ends = false,
                 .alarms = {18}},
        StateRow{.name = "DownloadedStays",
                 .rounds = {kToDownloading, kToDownloaded, {"Idle", "0", ""}, {"Upgrading", "100", ""}},
                 .ends = false,
                 .alarms = {18}},
        StateRow{.name = "AnotherTextLeavesIdle",
                 .rounds = {{"Idle", "0", ""}, {"Broken", "0", ""}},
                 .ends = false,
                 .alarms = {}},
        StateRow{.name = "AnotherTextLeavesDownloading",
                 .rounds = {{"Downloading", "0", kStartLog}, {"Broken", "0", progress_log("0")}},
                 .ends = false,
                 .alarms = {}},
        StateRow{.name = "AnotherTextLeavesUpgrading",
                 .rounds = {{"Upgrading", "0", ""},
                            {"Broken", "0", ""},
                            kToDownloading,
                            {"downloading", "3", progress_log("3")}},
                 .ends = false,
                 .alarms = {}}),
    by_name);

// --- Periods

struct PeriodRow {
    const char *name;
    const char *configured;
    const char *pause;
};

void PrintTo(const PeriodRow &row, std::ostream *out) {
    *out << row.name;
}

class MonitorPeriod : public Monitor, public testing::WithParamInterface<PeriodRow> {};

TEST_P(MonitorPeriod, OfTheRounds) {
    if (GetParam().configured != nullptr) set_conf("OTA_POLLING_PERIOD", GetParam().configured);
    expect_rounds({{"Idle", "95", ""}, {"Idle", "95", ""}}, false);
    EXPECT_EQ(fake_os::pauses(), Texts(2, GetParam().pause));
}

INSTANTIATE_TEST_SUITE_P(Configured, MonitorPeriod,
                         testing::Values(PeriodRow{.name = "None", .configured = nullptr, .pause = "5 s"},
                                         PeriodRow{.name = "Zero", .configured = "0", .pause = "5 s"},
                                         PeriodRow{.name = "Negative", .configured = "-2", .pause = "5 s"},
                                         PeriodRow{.name = "NoNumber", .configured = "often", .pause = "5 s"},
                                         PeriodRow{.name = "One", .configured = "1", .pause = "1 s"},
                                         PeriodRow{.name = "Twenty", .configured = "20", .pause = "20 s"}),
                         by_name);

TEST_F(Monitor, PeriodIsOneSecondOnceProgressPassed95) {
    set_conf("OTA_POLLING_PERIOD", "30");
    expect_rounds({{"Idle", "95", ""}, {"Idle", "96", ""}, {"Idle", "0", ""}}, false);
    EXPECT_EQ(fake_os::pauses(), (Texts{"30 s", "1 s", "1 s"}));
}

TEST_F(Monitor, WithoutAConfigurationTheRoundsAreEveryFiveSeconds) {
    remove_conf();
    expect_rounds({{"Idle", "0", ""}}, false);
    EXPECT_EQ(fake_os::pauses(), Texts{"5 s"});
}

// --- The marker

TEST_F(Monitor, MarkerHoldsNoLineEndAndReplacesAnOlderOne) {
    write_file(kMarker, "a longer text than the version's");
    write_file(kFirmwareVersion, "2.1\r\n");
    camera_goes_through({{"Downloading", "0", ""}});
    output_of([] { EXPECT_TRUE(fake_os::run_until_pause(1, [] { OTA_monitor(nullptr); })); });
    EXPECT_EQ(read_file(kMarker), "2.1");
}

TEST_F(Monitor, MarkerThatCannotBeWrittenHoldsNothingUp) {
    set_conf("OTA_TMP_FILE", "/tmp/no/such/marker");
    const std::string errors = errors_of([&] {
        expect_rounds({{"Downloading", "0",
                        "(OTA_monitor) start downloading\nRetrieved line of length 6 :\n1.0.3\n"
                        "Open OTA Temp file failed.\n"},
                       {"Downloading", "7", progress_log("7")}},
                      false);
    });
    EXPECT_EQ(errors, "Error: No such file or directory\n");
    camera_goes_through({{"Downloading", "0", ""}});
    EXPECT_EQ(
        errors_on_a_full_log([] { EXPECT_TRUE(fake_os::run_until_pause(1, [] { OTA_monitor(nullptr); })); }),
        errors);
}

// --- The start of the thread

TEST_F(Monitor, StartsOnAThreadOfItsOwn) {
    camera_goes_through({{"Idle", "0", ""}});
    fake_os::on_pause([](const std::string &) { fake_os::park(); });
    const std::string log = output_of([] {
        start_OTA_monitoring();
        EXPECT_TRUE(eventually([] { return !fake_os::pauses().empty(); }));
    });
    EXPECT_EQ(log.substr(0, 65), "start_OTA_monitoring called\n(OTA_monitor) OTA_monitor starts.\n!!!");
    EXPECT_EQ(load_shared(ota_enable), 1);
}

class MonitorStartFailure : public Monitor, public testing::WithParamInterface<const char *> {};

TEST_P(MonitorStartFailure, IsReportedAndNotRetried) {
    intercept::refuse_next(GetParam());
    std::string log;
    const std::string errors = errors_of([&] { log = output_of(start_OTA_monitoring); });
    EXPECT_EQ(log, "start_OTA_monitoring called\n");
    EXPECT_EQ(errors.substr(0, errors.find('\n') + 1),
              "start_thread: " + std::string(GetParam()) + " fail \n");
    EXPECT_EQ(load_shared(ota_enable), 0);
}

INSTANTIATE_TEST_SUITE_P(Calls, MonitorStartFailure,
                         testing::Values("pthread_attr_init", "pthread_attr_setdetachstate",
                                         "pthread_create"),
                         [](const auto &row) { return std::string(row.param); });

// --- Notices

struct NoticeRow {
    const char *name;
    void (*send)();
    int status;
};

void PrintTo(const NoticeRow &row, std::ostream *out) {
    *out << row.name;
}

class Notice : public AgentTest, public testing::WithParamInterface<NoticeRow> {};

TEST_P(Notice, IsALineAndAnAlarm) {
    EXPECT_EQ(output_of(GetParam().send),
              std::string(GetParam().name) + " called\n" + log_of_alarm("(OTA)", GetParam().status));
    EXPECT_EQ(alarm_statuses(), std::vector{GetParam().status});
    EXPECT_TRUE(fake_vendor::alarms_name_the_table());
}

INSTANTIATE_TEST_SUITE_P(
    Upgrade, Notice,
    testing::Values(
        NoticeRow{.name = "soap_OTA_download_failed", .send = soap_OTA_download_failed, .status = 17},
        NoticeRow{.name = "soap_OTA_upgrade_start", .send = soap_OTA_upgrade_start, .status = 18},
        NoticeRow{.name = "soap_OTA_succeeded", .send = soap_OTA_succeeded, .status = 19},
        NoticeRow{.name = "soap_OTA_failed", .send = soap_OTA_failed, .status = 20}),
    by_name);

TEST_F(AgentTest, UpgradeAlarmToTheByte) {
    EXPECT_EQ(output_of([] { (void)SendAlarmData("(OTA)", -5, "name", 99); }),
              "(OTA) SendAlarmData!! index:-5, name:name, status: 99 \n(OTA) end SendAlarmData\n");
    ASSERT_EQ(fake_vendor::alarms().size(), 1u);
    const alarm_record sent = fake_vendor::alarms()[0];
    alarm_record expected;
    std::memset(&expected, 0, sizeof expected);
    expected.index = -5;
    std::strcpy(expected.name, "name");
    expected.status = 99;
    EXPECT_EQ(std::memcmp(&sent, &expected, 40), 0);
}

TEST_F(AgentTest, UpgradeAlarmsNameIsCutAt31Characters) {
    const std::string name(10000, 'n');
    const std::string log = output_of([&] { (void)SendAlarmData("(OTA)", 1, name.c_str(), 2); });
    const std::string cut(31, 'n');
    EXPECT_EQ(log, "(OTA) SendAlarmData!! index:1, name:" + cut + ", status: 2 \n(OTA) end SendAlarmData\n");
    EXPECT_EQ(fake_vendor::alarms().at(0).name, cut);
}

TEST_F(AgentTest, UpgradeAlarmWithoutATable) {
    store_shared(mipc_api, static_cast<mipc_api_table *>(nullptr));
    EXPECT_EQ(output_of([] { (void)SendAlarmData("(OTA)", 1, "alarm", 17); }), "(OTA) mipc_api == NULL\n");
}

TEST_F(AgentTest, UpgradeAlarmWithoutASlot) {
    fake_vendor::table().SendAlarmData = nullptr;
    EXPECT_EQ(output_of([] { (void)SendAlarmData("(OTA)", 1, "alarm", 17); }),
              "(OTA) mipc_api->SendAlarmData == NULL\n");
}

}  // namespace
