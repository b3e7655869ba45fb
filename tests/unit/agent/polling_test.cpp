// The poll cycle: what is asked when, what ends it, its log. The alarms are in polling_alarms_test.cpp.
#include "polling_test.h"

#include "intercept.h"
#include "vanishing_conf.h"

namespace {

class Polling : public PollingTest {
  protected:
    // The key lists that were asked for, in order.
    Texts key_lists() {
        Texts lists;
        for (const CameraRequest &request : camera.requests()) {
            lists.push_back(request.target.substr(request.target.find('?') + 1));
        }
        return lists;
    }
};

constexpr char kStart[] =
    "before_init_nimb_status  platform/Z55/agent/polling,line <N>\n"
    "after_init_nimb_status  platform/Z55/agent/polling,line <N>\n"
    "Events initialized.\nstart polling\n*** hostIP: 127.0.0.1:8080 ***\n";
constexpr char kCycle[] = "\n*** (polling) beginning of a time ***\n";
constexpr char kEnd[] =
    "getCameraStatuses failed due to polling failing.Errorcode: -2 \nmyPoll failed. error:ERRORCODE:-2\n";

std::string query(const std::string &keys) {
    return "*** keys_str = \"" + keys + "\"***\n[QUERY CameraStatus?" + keys + "]\n";
}

std::string quota_due(std::int64_t now) {
    const std::string text = std::to_string(now);
    return "*** (nimb_poll) OK curr tv_sec:" + text + ", last sec: " + text + "***\n";
}

std::string sleep(const std::string &period = "10") {
    return "\n*** (Polling) end of a time. Start sleeping for " + period + " sec.***\n\n[" + period +
           " s]\n\n*** (Polling) finish sleeping. ***\n";
}

TEST_F(Polling, TwoCyclesToTheCharacter) {
    set_conf("BATTERY_PERIOD", "60");
    set_conf("NIMB_PERIOD", "20");
    const std::string log = poll({status(), status()});
    const std::int64_t first = fake_os::kStart + 9, second = first + 10;
    const auto waiting = [&](const char *text, std::int64_t now) {
        return std::string(text) + std::to_string(now) + ", last sec: " + std::to_string(first);
    };
    const std::string without_battery = polled_keys({"Battery"});
    EXPECT_LOG(log,
               kStart + std::string("*** Polling Period: 10 ***\n[9000 ms]\n") +             //
                   kCycle + query(kAllKeys) + quota_due(first) + quiet_values() + sleep() +  //
                   kCycle + waiting("*** (poll) not long enough, curr tv_sec:", second) +
                   ", key:Battery ***\n" + query(without_battery) +
                   waiting("*** (nimb_poll) not long enough, curr tv_sec:", second) + "***\n" +
                   quiet_values({"Battery"}) + sleep() +  //
                   kCycle + waiting("*** (poll) not long enough, curr tv_sec:", second + 10) +
                   ", key:Battery ***\n" + query(without_battery) + kEnd);
    EXPECT_EQ(camera.seen().at(0), "GET /CGI/CameraStatus?" + kAllKeys + " Session=12345");
    EXPECT_EQ(alarm_statuses(), std::vector<int>{});
}

TEST_F(Polling, TheCloudStorageIsAskedOnItsPeriod) {
    set_conf("NIMB_ARMED", "1");
    set_conf("NIMB_PERIOD", "20");
    fake_vendor::result("readTokenFromFile", 1);
    fake_vendor::result("soapGetToken", 1);
    poll({status(), status(), status()});
    const Texts asked = {"readTokenFromFile", "soapGetToken"};
    EXPECT_EQ(fake_vendor::calls(), (Texts{asked[0], asked[1], asked[0], asked[1]}));
}

#ifdef __GLIBC__
TEST_F(Polling, FreeMemoryIsReturnedEachMinute) {
    const int before = intercept::trims();
    poll(std::vector<std::string>(6, status()));  // and the cycle that ends it: a minute after the first
    EXPECT_EQ(intercept::trims() - before, 2);
}
#endif

// --- Ways out.

struct ErrorRow {
    const char *name;
    const char *code;
    int result;
};

class PollingError : public Polling, public testing::WithParamInterface<ErrorRow> {};

TEST_P(PollingError, EndsWithTheCamerasCode) {
    const auto [name, code, result] = GetParam();
    camera.reply("/CGI/CameraStatus", std::string("<ErrorCode>") + code + "</ErrorCode>");
    int returned = 0;
    const std::string log = output_of([&] { returned = myPoll("12345"); });
    EXPECT_EQ(returned, result);
    const std::string marker = (std::string("ERRORCODE:") + code).substr(0, 39);
    const std::string end = "myPoll failed. error:" + marker + "\n";
    EXPECT_EQ(log.substr(log.size() - end.size()), end);
    EXPECT_EQ(fake_os::pauses(), Texts{"9000 ms"});
}

INSTANTIATE_TEST_SUITE_P(Rows, PollingError,
                         testing::Values(ErrorRow{.name = "wrong parameter", .code = "-2", .result = -2},
                                         ErrorRow{.name = "expired session", .code = "-9", .result = -9},
                                         ErrorRow{.name = "above zero", .code = "7", .result = 7},
                                         ErrorRow{.name = "with more text than the marker holds",
                                                  .code = "-3 and thirty more characters of text",
                                                  .result = -3}),
                         by_name);

TEST_F(Polling, AnErrorCodeOfZeroIsASuccess) {
    Texts replies;
    for (const char *code : {"0", "00", "\n0\n", "", "refused"}) {
        replies.push_back(std::string("<ErrorCode>") + code + "</ErrorCode>" +
                          status({{"MotionEvent", "1"}}));
    }
    poll(replies);
    EXPECT_EQ(alarm_statuses(), std::vector<int>(replies.size(), 1));
}

TEST_F(Polling, WithoutConfigurationEndsWithOne) {
    remove_conf();
    std::string log;
    const std::string errors = errors_of([&] { log = output_of([] { EXPECT_EQ(myPoll("12345"), 1); }); });
    EXPECT_EQ(errors, "Read hostIP failed.: No such file or directory\n");
    EXPECT_LOG(log, std::string(kStart).substr(0, std::string(kStart).find("*** hostIP")));
    EXPECT_EQ(fake_os::pauses(), Texts{});
    EXPECT_EQ(camera.seen(), Texts{});
}

TEST_F(Polling, WithoutAPeriodEndsWithOne) {
    camera.reply("/CGI/CameraStatus", "<ErrorCode>-2</ErrorCode>");
    EXPECT_TRUE(at_some_vanishing(conf_text(), [] {
        int result = 0;
        const std::string errors = errors_of([&] { output_of([&] { result = myPoll("12345"); }); });
        return result == 1 && errors == "Read polling period failed.: No such file or directory\n";
    }));
    EXPECT_EQ(camera.seen(), Texts{});
}

// --- Periods.

struct PeriodRow {
    const char *name;
    const char *configured, *printed, *pause;
};

class PollingPeriod : public Polling, public testing::WithParamInterface<PeriodRow> {};

TEST_P(PollingPeriod, OfZeroOrLessIsASecond) {
    const auto [name, configured, printed, pause] = GetParam();
    set_conf("POLL_STATUS_PERIOD_SEC", configured);
    const std::string log = poll({status()});
    EXPECT_NE(log.find(std::string("*** Polling Period: ") + printed + " ***\n"), std::string::npos) << log;
    EXPECT_NE(log.find(std::string("Start sleeping for ") + printed + " sec.***\n"), std::string::npos)
        << log;
    EXPECT_EQ(fake_os::pauses(), (Texts{"9000 ms", pause}));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, PollingPeriod,
    testing::Values(
        PeriodRow{.name = "zero", .configured = "0", .printed = "0", .pause = "1 s"},
        PeriodRow{.name = "below zero", .configured = "-5", .printed = "-5", .pause = "1 s"},
        PeriodRow{.name = "empty", .configured = "", .printed = "0", .pause = "1 s"},
        PeriodRow{.name = "one", .configured = "1", .printed = "1", .pause = "1 s"},
        PeriodRow{.name = "two", .configured = "2", .printed = "2", .pause = "2 s"},
        PeriodRow{.name = "followed by a letter", .configured = "15s", .printed = "15", .pause = "15 s"}),
    by_name);

TEST_F(Polling, BatteryOfSixtySecondsIsAskedInOneCycleOutOfSix) {
    set_conf("BATTERY_PERIOD", "60");
    poll(std::vector<std::string>(12, status()));
    const Texts lists = key_lists();
    ASSERT_EQ(lists.size(), 13U);
    for (size_t i = 0; i < lists.size(); i++) {
        EXPECT_EQ(lists[i].find("Battery") != std::string::npos, i % 6 == 0) << i;
        EXPECT_EQ(lists[i].find("Notification&MotionEvent&AudioEvent&TemperatureEvent&"), 0U) << i;
    }
}

TEST_F(Polling, CardEventsShareTheirPeriod) {
    set_conf("SDCARD_PERIOD", "25");
    poll(std::vector<std::string>(4, status()));
    const std::string without = polled_keys({"Space", "SD"});
    EXPECT_EQ(key_lists(), (Texts{kAllKeys, without, without, kAllKeys, without}));
}

TEST_F(Polling, AClockThatStepsChangesNothingButTheLog) {
    set_conf("BATTERY_PERIOD", "20");
    set_conf("NIMB_PERIOD", "20");
    constexpr std::int64_t kSteps[] = {1'000'000'000, 2'000'000'000, 0};
    int cycle = -1;
    fake_os::on_pause([&](const std::string &) {
        if (cycle >= 0) fake_os::set_wall(kSteps[cycle % 3]);
        cycle++;
    });
    const std::string log = poll(std::vector<std::string>(6, status()));
    const Texts lists = key_lists();
    for (size_t i = 0; i < lists.size(); i++) {
        EXPECT_EQ(lists[i].find("Battery") != std::string::npos, i % 2 == 0) << i;
    }
    EXPECT_NE(log.find("curr tv_sec:1000000000, last sec: 1700000009, key:Battery"), std::string::npos)
        << log;
    EXPECT_NE(log.find("(nimb_poll) OK curr tv_sec:2000000000, last sec: 2000000000***"), std::string::npos);
    EXPECT_NE(log.find("(nimb_poll) not long enough, curr tv_sec:0, last sec: 2000000000***"),
              std::string::npos);
}

TEST_F(Polling, EveryEntryAsksForEverything) {
    for (const char *key : {"BATTERY_PERIOD", "SDCARD_PERIOD", "NIMB_PERIOD"}) set_conf(key, "100000");
    const std::string log = poll({status()}) + poll({status()});
    EXPECT_EQ(key_lists().at(0), kAllKeys);
    EXPECT_EQ(key_lists().at(2), kAllKeys);
    EXPECT_NE(log.rfind("(nimb_poll) OK"), log.find("(nimb_poll) OK"));
}

// --- Replies.

TEST_F(Polling, WithoutAReplySkipsTheCycle) {
    set_conf("BATTERY_PERIOD", "60");
    const std::string log = poll_replies({{.status = 500}, {.body = status({{"MotionEvent", "1"}})}});
    EXPECT_NE(log.find(query(kAllKeys) +
                       "[failed]\ngetCameraStatuses failed. response of perform_curl() is null.\n"
                       "getMultipleCameraStatuses failed: return value is null.\n" +
                       sleep() + kCycle),
              std::string::npos)
        << log;
    // The quota waits for a cycle with an answer; what was asked for in vain waits for its own period.
    EXPECT_EQ(log.find("(nimb_poll) OK curr tv_sec:1700000019"), log.find("(nimb_poll)"));
    EXPECT_EQ(key_lists().at(1), polled_keys({"Battery"}));
    EXPECT_EQ(alarm_statuses(), std::vector<int>{1});
}

TEST_F(Polling, SurvivesACameraThatGoesAndComesBack) {
    camera.reply("/CGI/CameraStatus",
                 {CameraReply{.body = status()}, CameraReply{.body = "<ErrorCode>-9</ErrorCode>"}});
    int pauses = 0;
    fake_os::on_pause([&](const std::string &) {
        if (++pauses == 2) camera.go_away();
        if (pauses == 5) camera.come_back();
    });
    output_of([] { EXPECT_EQ(myPoll("12345"), -9); });
    EXPECT_EQ(pauses, 5);
}

TEST_F(Polling, MissingValuesAreLoggedAndSkipped) {
    const std::string log = poll({status({{"AudioEvent", "1"}}, {"MotionEvent", "TemperatureEvent"})});
    const auto missing = [](int index) {
        return "values[" + std::to_string(index) + "] = NULL,  platform/Z55/agent/polling : <N>\n";
    };
    EXPECT_LOG(
        log.substr(log.find("value  0"), log.find(kCycle, log.find("value  0")) - log.find("value  0")),
        "value  0 = NULL\nvalue  2 = NULL\n" + quota_due(fake_os::kStart + 9) + missing(0) +
            "(poll) Alarm event detected   \n" + log_of_alarm("(poll)", 3) + "Value of AudioEvent:1\n" +
            missing(2) + quiet_values({"MotionEvent", "AudioEvent", "TemperatureEvent"}) + sleep());
    EXPECT_EQ(alarm_statuses(), std::vector<int>{3});
}

// --- Settings while it runs.

TEST_F(Polling, AddressIsReadOncePerEntry) {
    fake_os::on_pause([](const std::string &) { set_conf("hostIP", "127.0.0.1:1"); });
    poll({status(), status()});
    EXPECT_EQ(camera.requests().size(), 3U);
}

TEST_F(Polling, AddressIsCutAt15Characters) {
    set_conf("hostIP", "127.0.0.1:08080x");
    const std::string log = poll({status()});
    EXPECT_NE(log.find("*** hostIP: 127.0.0.1:08080 ***\n"), std::string::npos) << log;
}

TEST_F(Polling, ArmingTakesEffectInTheNextCycle) {
    set_conf("BATTERY_LOW", "90");
    fake_os::on_pause([](const std::string &pause) {
        if (pause == "10 s") set_conf("BATTERY_ARMED", "1");
    });
    poll({status(), status()});
    EXPECT_EQ(alarm_statuses(), std::vector<int>{13});
}

}  // namespace
