// The session key: when it is renewed, what that looks like, and what survives it.
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <algorithm>
#include <cmath>

#include "desk.h"

namespace {

void wait_for_login(const Desk &desk, size_t count) {
    wait_until("login number " + std::to_string(count),
               [&] { return desk.requests("CameraLogin").size() >= count; });
}

// The start takes two logins: the main thread's and the cloud thread's.
constexpr size_t kLoginsOfTheStart = 2;

}  // namespace

class RenewalTest : public testing::TestWithParam<int> {};

TEST_P(RenewalTest, CameraErrorEndsThePollAndRenewsTheKey) {
    const std::string code = std::to_string(GetParam());
    Desk desk;
    desk.fault({{"endpoint", "CameraStatus"}, {"kind", "error_code"}, {"value", GetParam()}, {"count", 1}});
    const size_t renewal =
        desk.wait_for_log("getCameraStatuses failed due to polling failing.Errorcode: " + code +
                          " \nmyPoll failed. error:ERRORCODE:" + code +
                          "\n*** (main) wait for 5 sec ***\n"
                          "*** (main) myPoll result:" +
                          code +
                          "  failed. login... ***\n"
                          "Getting Session Key...\nLoginning..\n");
    desk.wait_for_log("Session key=1000003\n*** (main) myPoll... ***\n", renewal);
    desk.wait_for_log("*** (Polling) end of a time.", renewal);
    EXPECT_EQ(desk.requests("CameraLogin").size(), kLoginsOfTheStart + 1);
    EXPECT_EQ(desk.requests("CameraStatus").back()["cookie"], "Session=1000003");
    EXPECT_EQ(desk.conf_value("SESSION_KEY"), "1000003");
    EXPECT_EQ(file_text("/tmp/working/cookie"), " Set-Cookie: Session=1000003\n");
}

INSTANTIATE_TEST_SUITE_P(Session, RenewalTest, testing::Values(-2, -9),
                         [](const auto &row) { return "Minus" + std::to_string(-row.param); });

TEST(Session, AKeyThatCannotBeStoredIsUsedAllTheSame) {
    Desk desk;
    ASSERT_EQ(mount("/tmp/working", "/tmp/working", nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(mount(nullptr, "/tmp/working", nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr), 0);
    for (const char *key : {"1000003", "1000004"}) {
        const size_t from = desk.log().size();
        desk.camera("POST", "/session/expire");
        desk.wait_for_logs({"write_conf_value failed: key = SESSION_KEY, Read-only file system\n",
                            std::string("Session key=") + key + "\n*** (main) myPoll... ***\n",
                            "*** (Polling) end of a time."},
                           from);
        EXPECT_EQ(desk.requests("CameraStatus").back()["cookie"], std::string("Session=") + key);
        const long seen = desk.last_alarm();
        desk.set_status("MotionEvent", "1");
        wait_until("an alarm", [&] { return desk.last_alarm() > seen; });
        desk.set_status("MotionEvent", "0");
    }
    EXPECT_EQ(desk.conf_value("SESSION_KEY"), "1000002") << "the last that could be stored, expired since";
    EXPECT_EQ(desk.requests("CameraLogin").size(), kLoginsOfTheStart + 2);
}

class NoRenewalTest : public testing::TestWithParam<int> {};

TEST_P(NoRenewalTest, OtherCameraErrorsOnlyStartThePollAgain) {
    const std::string code = std::to_string(GetParam());
    Desk desk;
    desk.fault({{"endpoint", "CameraStatus"}, {"kind", "error_code"}, {"value", GetParam()}, {"count", 1}});
    const size_t again = desk.wait_for_log("*** (main) wait for 5 sec ***\n*** (main) myPoll result:" + code +
                                           " failed. error code:" + code + "\n*** (main) myPoll... ***\n");
    desk.wait_for_log("*** (Polling) end of a time.", again);
    EXPECT_EQ(desk.requests("CameraLogin").size(), kLoginsOfTheStart);
    EXPECT_EQ(desk.requests("CameraStatus").back()["cookie"], "Session=1000001");
}

INSTANTIATE_TEST_SUITE_P(Session, NoRenewalTest, testing::Values(-1, -3, -92, 1, 7), [](const auto &row) {
    return row.param < 0 ? "Minus" + std::to_string(-row.param) : "Plus" + std::to_string(row.param);
});

TEST(Session, APollThatFailedIsMadeAgainAfterItsPauses) {
    constexpr int kFailures = 4;
    DeskOptions options;
    options.speed = 10;
    Desk desk(options);
    const long before = desk.requests("CameraStatus").back()["seq"];
    desk.fault({{"endpoint", "CameraStatus"}, {"kind", "error_code"}, {"value", -1}, {"count", kFailures}});
    std::vector<json> polls;
    wait_until("the polls", [&] {
        polls = desk.requests("CameraStatus", before);
        return polls.size() > kFailures;
    });
    double shortest = INFINITY;
    for (size_t i = 1; i < polls.size(); i++)
        shortest =
            std::min(shortest, polls[i]["time_ms"].get<double>() - polls[i - 1]["time_ms"].get<double>());
    EXPECT_NEAR(shortest * desk.speed(), 14'000, 600)
        << "5 s, and the 9 s before a poll; a busy machine is late with some, but not with all";
}

TEST(Session, FiveSecondsPassBeforeTheLoginAndNineBeforeTheFirstPollAfterIt) {
    DeskOptions options;
    options.speed = 20;
    Desk desk(options);
    desk.fault({{"endpoint", "CameraStatus"}, {"kind", "error_code"}, {"value", -2}, {"count", 1}});
    wait_for_login(desk, kLoginsOfTheStart + 1);
    const long login = desk.requests("CameraLogin").back()["seq"];
    wait_until("the poll after the login", [&] { return !desk.requests("CameraStatus", login).empty(); });
    std::vector<json> polls = desk.requests("CameraStatus");
    while (polls.back()["seq"] > login) polls.pop_back();
    // The camera notes when a request begins: before it answers, and so before the agent begins its pause.
    const double refused = polls.back()["time_ms"], renewed = desk.requests("CameraLogin").back()["time_ms"],
                 polled = desk.requests("CameraStatus", login).front()["time_ms"];
    EXPECT_GT((renewed - refused) * desk.speed(), 3900) << "5 s less the part of a second that had gone";
    EXPECT_GT((polled - renewed) * desk.speed(), 8900);
}

TEST(Session, ExpiredKeysAreRenewedAndPollingGoesOn) {
    Desk desk;
    for (int round = 1; round <= 3; round++) {
        const size_t before = desk.log().size();
        desk.camera("POST", "/session/expire");
        desk.wait_for_logs({" failed. login... ***\n", "Session key=", "*** (Polling) end of a time."},
                           before);
        EXPECT_EQ(desk.requests("CameraLogin").size(), kLoginsOfTheStart + round);
    }
}

TEST(Session, ARestartedCameraWithOtherKeysIsPolledAgain) {
    Desk desk;
    const std::string before = desk.requests("CameraStatus").back()["cookie"];
    const size_t from = desk.log().size();
    desk.camera("POST", "/restart");
    desk.wait_for_logs({" failed. login... ***\n", "Session key=", "*** (Polling) end of a time."}, from);
    const std::string after = desk.requests("CameraStatus").back()["cookie"];
    EXPECT_NE(before, after);
    EXPECT_EQ(after, "Session=" + desk.conf_value("SESSION_KEY"));
    const long seen = desk.last_alarm();
    desk.set_status("MotionEvent", "1");
    wait_until("the alarm arrives", [&] { return desk.last_alarm() > seen; });
}

TEST(Session, WhileTheLoginIsRefusedNoKeyIsHeld) {
    Desk desk;
    desk.camera("PATCH", "/config", {{"password", "changed"}});
    desk.camera("POST", "/session/expire");
    const size_t failed =
        desk.wait_for_log("*** (getSessionKey) login failed, waiting for next try... ***\n");
    EXPECT_EQ(desk.call("get_session_key", json::array())["value"], nullptr);
    desk.wait_for_log("Getting Session Key...\n", failed);
    EXPECT_EQ(desk.conf_value("SESSION_KEY"), "");
    const size_t refused = desk.log().size();
    desk.camera("PATCH", "/config", {{"password", "secret"}});
    const size_t held = desk.wait_for_log("Session key=", refused);
    desk.wait_for_log("*** (Polling) end of a time.", held);
    EXPECT_EQ(desk.call("get_session_key", json::array())["value"], desk.conf_value("SESSION_KEY"));
}

TEST(Session, LatchesOutliveTheRenewalAndEveryEventIsPolledFirst) {
    DeskOptions options;
    options.conf = {{"BATTERY_PERIOD", "100000"}, {"SDCARD_PERIOD", "100000"}};
    Desk desk(options);
    desk.stop_agent();
    desk.set_status("Battery", "3");
    desk.start_agent();
    desk.wait_until_polling();
    ASSERT_EQ(desk.alarms(), std::vector<int>{13});
    const size_t before = desk.log().size();
    desk.camera("POST", "/session/expire");
    const size_t polled = desk.wait_for_logs(
        {"Session key=",
         "*** keys_str = \"Notification&MotionEvent&AudioEvent&TemperatureEvent&Battery&Space&SD\"",
         "Value of Battery:3\n"},
        before);
    EXPECT_LT(desk.log().rfind("battery alarm had send , don't do something\n"), polled);
    EXPECT_EQ(desk.alarms(), std::vector<int>{13});
}

TEST(Session, ALoginReplyInPiecesIsGatheredWhole) {
    DeskOptions options;
    options.wait = DeskOptions::not_started;
    Desk desk(options);
    desk.fault(
        {{"endpoint", "CameraLogin"}, {"kind", "pieces"}, {"pieces", 9}, {"chunked", true}, {"ms", 5}});
    desk.start_agent();
    desk.wait_until_polling();
    EXPECT_EQ(file_text("/tmp/FWVER.txt"), "1.0.3");
    EXPECT_GE(desk.count_in_log("write_callback_func, buffer="), 2);
}

TEST(Session, ALoginReplyWithoutVersionStillCounts) {
    DeskOptions options;
    options.wait = DeskOptions::not_started;
    Desk desk(options);
    desk.fault(
        {{"endpoint", "CameraLogin"},
         {"kind", "body"},
         {"raw", true},
         {"count", 1},
         {"text", "HTTP/1.1 500 Broken\r\nSet-Cookie: Session=77; path=/\r\nContent-Length: 2\r\n\r\nno"}});
    desk.start_agent();
    desk.wait_for_logs({"(login)session_key=77\n",
                        "res !=CURLE_OK: platform/Z55/agent/loginout,line 285\nlogin get FWVER failure\n",
                        "***(getSessionKey) login succeeded. *** \n", "Session key=77\n"});
    desk.wait_until_polling();
}

TEST(Session, TheLastHeaderWithAKeyWinsAndTheKeyEndsAtTheFirstOtherCharacter) {
    DeskOptions options;
    options.wait = DeskOptions::not_started;
    Desk desk(options);
    desk.fault({{"endpoint", "CameraLogin"},
                {"kind", "body"},
                {"raw", true},
                {"count", 1},
                {"text",
                 "HTTP/1.1 200 OK\r\nSet-Cookie: Session=1\r\nX-Session: Session=x23y4\r\n"
                 "Content-Length: 0\r\n\r\n"}});
    desk.start_agent();
    desk.wait_for_log("Session key=x23\n");
    desk.wait_until_polling();
}

TEST(Session, ARedirectedLoginIsFollowed) {
    DeskOptions options;
    options.wait = DeskOptions::not_started;
    Desk desk(options);
    const std::string there = "http://127.0.0.1:" + std::to_string(desk.camera_port()) +
                              "/CGI/CameraLogin?Device=Camera&Stream=Stream1&moved";
    desk.fault({{"endpoint", "CameraLogin"},
                {"kind", "redirect"},
                {"status", 307},
                {"location", there},
                {"count", 1}});
    desk.start_agent();
    desk.wait_until_polling();
    EXPECT_EQ(desk.requests("CameraLogin")[1]["target"],
              "/CGI/CameraLogin?Device=Camera&Stream=Stream1&moved");
    EXPECT_EQ(desk.requests("CameraLogin")[1]["body"], "password=secret");
}
