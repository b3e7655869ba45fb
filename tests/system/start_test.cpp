// From the first line of the log to a polling agent that raises alarms.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <regex>

#include "desk.h"
#include "start_log.h"

namespace {

std::vector<std::string> targets(const std::vector<json> &requests) {
    std::vector<std::string> result;
    for (const json &request : requests)
        result.push_back(request["method"].get<std::string>() + " " + request["target"].get<std::string>());
    return result;
}

// Of a text such as 2023-11-14-22-13-20, as if it were Greenwich's.
time_t seconds_of(const std::string &text) {
    tm parts{};
    EXPECT_NE(strptime(text.c_str(), "%Y-%m-%d-%H-%M-%S", &parts), nullptr) << text;
    return timegm(&parts);
}

DeskOptions only_started() {
    DeskOptions options;
    options.wait = DeskOptions::started;
    return options;
}

}  // namespace

TEST(Start, LogFromTheFirstLineToTheFirstCycleIsTheGoldenOne) {
    DeskOptions options;
    options.conf = {{"POLL_STATUS_PERIOD_SEC", "5000"}};
    Desk desk(options);
    desk.wait_for_log("(NTP) curl finished succeeded\n", desk.wait_for_log("NTP_poll polling\n"));
    const size_t threads_start = desk.wait_for_log("*** initial perform_NTP() OK! ***\n");
    EXPECT_EQ(interleaving_error(desk.log().substr(0, threads_start), {kStartLog}), "");
    EXPECT_EQ(
        interleaving_error(desk.log().substr(threads_start), {kCloudLog, kQueueLog, kClockLog, kMainLog}),
        "");
}

TEST(Start, EveryThreadAsksTheCameraInItsOrder) {
    Desk desk;
    wait_until("the clock thread has set the camera's time",
               [&] { return desk.requests("CameraSetup").size() == 3; });
    const auto all = desk.requests();
    EXPECT_EQ(targets(desk.requests("CameraLogin")),
              std::vector<std::string>(2, "POST /CGI/CameraLogin?Device=Camera&Stream=Stream1"));
    EXPECT_EQ(all[0]["body"], "password=secret");
    EXPECT_EQ(all[0]["cookie"], "");
    EXPECT_EQ(all[1]["endpoint"], "CameraSetup") << "the time, before any thread runs";
    EXPECT_EQ(all[1]["cookie"], "Session=1000001");
    EXPECT_EQ(targets(desk.requests("CameraInfo")), std::vector<std::string>{"GET /CGI/CameraInfo?"});
    const json poll = desk.requests("CameraStatus").at(0);
    EXPECT_EQ(poll["target"],
              "/CGI/CameraStatus?Notification&MotionEvent&AudioEvent&TemperatureEvent&Battery&Space&SD");
    EXPECT_EQ(poll["cookie"], "Session=1000001") << "the main thread's key, not the cloud thread's";
    EXPECT_EQ(desk.camera_state()["fw_upgrade"], "ON");
}

TEST(Start, MotionBecomesAnAlarmRecordWithinTwoPollPeriods) {
    Desk desk;
    const size_t raised = desk.log().size();
    desk.set_status("MotionEvent", "1");
    wait_until("an alarm arrives", [&] { return desk.last_alarm() > 0; });
    const json alarm = desk.sdk("GET", "/alarms")["alarms"][0];
    EXPECT_EQ(alarm["record"],
              "01000000"
              "616c61726d" +
                  std::string(54, '0') + "01000000");
    EXPECT_EQ(alarm["tid"], desk.agent_pid()) << "alarms are sent by the main thread";
    EXPECT_EQ(alarm["table"], true);
    const std::string until_sent =
        desk.log().substr(raised, desk.wait_for_log("SendAlarmData!!", raised) - raised);
    EXPECT_LE(count_of("*** (polling) beginning of a time ***", until_sent), 2);
}

// A newcomer's first five minutes: raise motion, see the alarm, read a status and a parameter, let it end.
TEST(Start, FirstFiveMinutes) {
    Desk desk;
    desk.set_status("MotionEvent", "1");
    wait_until("the alarm arrives", [&] { return !desk.alarms().empty(); });
    EXPECT_EQ(desk.alarms()[0], 1);
    desk.set_status("MotionEvent", "0");
    desk.wait_for_cycles(1);
    const long seen = desk.last_alarm();
    desk.wait_for_cycles(2);
    EXPECT_EQ(desk.last_alarm(), seen) << "no motion, no alarm";
    desk.set_status("Battery", "77");
    EXPECT_EQ(desk.call("get_device_status", {"Battery"}), (json{{"result", 2}, {"value", "77"}}));
    EXPECT_EQ(desk.call("get_device_param", {"md_armed"}), (json{{"result", 1}, {"value", "0"}}));
}

TEST(Start, TheSdkIsGivenUuidInterfaceAndNineCallbacksWhenTheLoginGlobalsAreThere) {
    DeskOptions options;
    options.environment["DESK_SDK_AT_INIT"] =
        R"([["GET","/variable?name=hostIP"],["GET","/variable?name=device"],)"
        R"(["GET","/variable?name=stream"],["GET","/variable?name=password"]])";
    Desk desk(options);
    const json state = desk.sdk("GET", "/state");
    EXPECT_EQ(state["uuid"], "Z55-0000-0001");
    EXPECT_EQ(state["interface"], "wlan0");
    EXPECT_EQ(state["init_count"], 1);
    EXPECT_EQ(state["callbacks"].size(), 9u);
    for (const auto &[name, present] : state["callbacks"].items()) EXPECT_EQ(present, true) << name;
    const std::string at_init = state["at_init"].dump();
    for (const std::string &text :
         {"127.0.0.1:" + std::to_string(desk.camera_port()), std::string("\"Camera\""),
          std::string("\"Stream1\""), std::string("\"secret\"")})
        EXPECT_NE(at_init.find(text), std::string::npos) << text << " is not in " << at_init;
}

TEST(Start, LeavesStartTimeFirmwareVersionCookieAndKeyInTheirFiles) {
    DeskOptions options;
    options.environment["TZ"] = "EAST-3";
    Desk desk(options);
    const std::string line = file_text("/tmp/fuse_d/nimbo.log");
    const std::regex both("localtime \\[ (\\d{4}(?:-\\d\\d){5}) \\]gmtime \\[ (\\d{4}(?:-\\d\\d){5}) \\]\n");
    std::smatch times;
    ASSERT_TRUE(std::regex_match(line, times, both)) << line;
    constexpr time_t kHour = 3600;
    EXPECT_EQ(seconds_of(times[1]) - seconds_of(times[2]), 3 * kHour) << line;
    EXPECT_LT(std::abs(seconds_of(times[2]) - std::time(nullptr)), 24 * kHour) << line;
    EXPECT_EQ(file_text("/tmp/FWVER.txt"), "1.0.3");
    EXPECT_EQ(file_text("/tmp/working/cookie"), " Set-Cookie: Session=1000001\n");
    EXPECT_EQ(desk.conf_value("SESSION_KEY"), "1000002") << "the cloud thread's login is the last";
}

TEST(Start, AppendsTheStartTimeOfEachStart) {
    Desk desk;
    desk.stop_agent();
    desk.start_agent();
    desk.wait_until_polling();
    EXPECT_EQ(count_of("localtime [ ", file_text("/tmp/fuse_d/nimbo.log")), 2);
}

TEST(Start, StartTimeIsWrittenToNoFifoAndThroughNoLink) {
    constexpr char kStartLogFile[] = "/tmp/fuse_d/nimbo.log";
    DeskOptions options;
    options.wait = DeskOptions::not_started;
    Desk desk(options);
    std::ofstream("/tmp/victim") << "mine";
    ASSERT_EQ(symlink("/tmp/victim", kStartLogFile), 0);
    for (int start = 1; start <= 2; start++) {
        desk.start_agent();
        desk.wait_until_polling();
        EXPECT_EQ(desk.count_in_log("cannot set time to /tmp/fuse_d/nimbo.log while VeloAgent init.\n"),
                  start);
        EXPECT_EQ(file_text("/tmp/victim"), "mine");
        desk.stop_agent();
        unlink(kStartLogFile);
        ASSERT_EQ(mkfifo(kStartLogFile, 0644), 0);
    }
}

TEST(Start, ReserveFileIsWrittenWhereThereIsNone) {
    DeskOptions options;
    options.reserve = false;
    Desk desk(options);
    struct stat reserve {};
    ASSERT_EQ(stat("/tmp/fuse_d/.ota.tmp", &reserve), 0);
    EXPECT_EQ(reserve.st_size, 102'400'000);
    desk.wait_for_logs({"dummyFileCreator function \n", "create start\n", "create file end\n",
                        "create file success\n", "vq_ipca_init return\n"});
}

TEST(Start, NoProxyIsTakenFromTheEnvironment) {
    DeskOptions options;
    for (const char *name : {"http_proxy", "all_proxy", "ALL_PROXY"})
        options.environment[name] = "http://127.0.0.1:1";
    Desk desk(options);
    EXPECT_EQ(desk.requests("CameraLogin").size(), 2u);
    EXPECT_EQ(desk.count_in_log("res !=CURLE_OK"), 0);
}

TEST(Start, MissingSdCardDoesNotStopIt) {
    DeskOptions options;
    options.wait = DeskOptions::not_started;
    options.reserve = false;
    Desk desk(options);
    ASSERT_EQ(umount2("/tmp/fuse_d", MNT_DETACH), 0);
    ASSERT_EQ(rmdir("/tmp/fuse_d"), 0);
    desk.start_agent();
    desk.wait_until_polling();
    EXPECT_TRUE(
        desk.log().starts_with("Try log VeloAgent init time...........\n"
                               "cannot set time to /tmp/fuse_d/nimbo.log while VeloAgent init.\n"
                               "Getting Session Key...\n"));
    EXPECT_EQ(desk.count_in_log("create file failure"), 1);
    EXPECT_EQ(desk.count_in_log(" get_SDspace_percent percent=100\n"), 1) << "no figure: nothing is used";
}

// Clearing the stored key leaves an empty file behind, whose empty host no later try reaches.
TEST(Start, MissingConfigurationFileIsWaitedFor) {
    DeskOptions options;
    options.wait = DeskOptions::not_started;
    Desk desk(options);
    ASSERT_EQ(unlink("/tmp/working/VeloAgent.conf"), 0);
    desk.start_agent();
    size_t at = desk.wait_for_log(
        "Try log VeloAgent init time...........\n"
        "Getting Session Key...\nLoginning..\nread hostIP in login() failed.\n"
        "*** (getSessionKey) login failed, waiting for next try... ***\n"
        "Getting Session Key...\n");
    for (int tries = 0; tries < 3; tries++)
        at = desk.wait_for_log("***(login) error: curl perform failed. error code = 6***\n\n", at);
    EXPECT_EQ(file_text("/tmp/working/VeloAgent.conf"), "");
    EXPECT_EQ(desk.last_request(), 0);
    desk.write_conf({});
    desk.wait_until_polling();
}

TEST(Start, TheStartLogFollowsNoLink) {
    DeskOptions options;
    options.wait = DeskOptions::not_started;
    Desk desk(options);
    std::ofstream("/tmp/victim") << "precious";
    std::filesystem::remove("/tmp/fuse_d/nimbo.log");
    std::filesystem::create_symlink("/tmp/victim", "/tmp/fuse_d/nimbo.log");
    desk.start_agent();
    desk.wait_for_log("cannot set time to /tmp/fuse_d/nimbo.log while VeloAgent init.\n");
    EXPECT_EQ(file_text("/tmp/victim"), "precious");
}

TEST(Start, WrongPasswordIsTriedAgainUntilItIsRight) {
    DeskOptions options = only_started();
    options.conf = {{"PASSWORD", "wrong"}, {"SESSION_KEY", "4711"}};
    Desk desk(options);
    size_t at = desk.wait_for_log("<ErrorCode>-1</ErrorCode>");
    at = desk.wait_for_log(
        "***(login) curl_perform ends ***\ngetSessionKeyInHeader\n"
        "*** (getSessionKey) login failed, waiting for next try... ***\nGetting Session Key...\n",
        at);
    EXPECT_EQ(desk.conf_value("SESSION_KEY"), "") << "a stale key is not used again";
    EXPECT_EQ(desk.requests("CameraStatus").size(), 0u);
    desk.wait_for_log("login failed", desk.wait_for_log("login failed", at));
    const auto logins = desk.requests("CameraLogin");
    for (size_t i = 1; i < logins.size(); i++) {
        const double pause =
            (logins[i]["time_ms"].get<double>() - logins[i - 1]["time_ms"].get<double>()) * desk.speed();
        EXPECT_GT(pause, 3900) << "5 s less the part of a second that had gone";
    }
    desk.write_conf({{"PASSWORD", "secret"}});
    desk.wait_until_polling();
}

TEST(Start, WithoutASessionKeyLineTheKeyIsNeverKept) {
    DeskOptions options = only_started();
    options.conf = {{"SESSION_KEY", std::nullopt}};
    Desk desk(options);
    size_t at = 0;
    for (int tries = 0; tries < 3; tries++)
        at = desk.wait_for_log(
            "***(getSessionKey) login succeeded. *** \n"
            "*** (getSessionKey) failed, waiting for next try... ***\nGetting Session Key...\n",
            at);
    EXPECT_EQ(desk.conf_value("SESSION_KEY"), "");
    EXPECT_EQ(desk.count_in_log("Got session key"), 0);
    desk.write_conf({{"SESSION_KEY", ""}});
    desk.wait_until_polling();
}

TEST(Start, UuidIsAskedForUntilTheCameraTellsIt) {
    DeskOptions options;
    options.wait = DeskOptions::not_started;
    Desk desk(options);
    desk.fault({{"endpoint", "CameraInfo"}, {"kind", "http_status"}, {"count", 2}});
    desk.fault({{"endpoint", "CameraInfo"}, {"kind", "error_code"}, {"value", -2}, {"count", 2}});
    desk.start_agent();
    desk.wait_until_polling();
    EXPECT_EQ(desk.requests("CameraInfo").size(), 5u);
    EXPECT_EQ(desk.count_in_log("get_uuid curl failed. response of perform_curl() is null.\n"), 2);
    EXPECT_EQ(desk.count_in_log("find_xml_value failed. response of perform_curl() is null.\n"), 4);
    EXPECT_EQ(desk.sdk("GET", "/state")["uuid"], "Z55-0000-0001");
}
