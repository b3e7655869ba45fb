// The camera leaves the network and comes back, for any length of time and at any moment: polling and alarms
// resume without a restart of the agent, which is afterwards what it was.
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>

#include "desk.h"
#include "silent_hosts.h"

namespace {

void expect_motion_alarm(Desk &desk) {
    const long seen = desk.last_alarm();
    desk.set_status("MotionEvent", "1");
    wait_until("the alarm arrives", [&] { return desk.last_alarm() > seen; });
    desk.set_status("MotionEvent", "0");
    desk.wait_for_cycles(2);
}

// Probes of a silent connection cannot be bent below a second each; fewer of them do for a test.
void give_up_silent_connections_soon() {
    std::ofstream("/proc/sys/net/ipv4/tcp_keepalive_probes") << 2;
}

}  // namespace

TEST(Outage, AVanishedCameraIsPolledAgainWhenItAppears) {
    Desk desk;
    const AgentSize before = agent_size(desk);
    for (int round = 0; round < 2; round++) {
        desk.camera("POST", "/vanish");
        size_t at = desk.log().size();
        for (int cycle = 0; cycle < 4; cycle++)
            at = desk.wait_for_log("getMultipleCameraStatuses failed: return value is null.\n", at);
        desk.camera("POST", "/appear");
        expect_motion_alarm(desk);
    }
    EXPECT_EQ(desk.requests("CameraLogin").size(), 2u);
    expect_same_size(desk, before);
}

TEST(Outage, ConnectingToAVanishedCameraIsGivenUpAfterTwoSeconds) {
    DeskOptions options;
    options.speed = 10;
    Desk desk(options);
    desk.camera("POST", "/vanish");
    // From the last look at the log before the first failure, which is before it however late the test is.
    const std::string failed = "getMultipleCameraStatuses failed: return value is null.\n";
    const size_t from = desk.log().size();
    std::chrono::steady_clock::time_point started, look = std::chrono::steady_clock::now();
    wait_until("a poll has failed", [&] {
        started = look;
        look = std::chrono::steady_clock::now();
        return desk.count_in_log(failed, from) == 1;
    });
    wait_until("and another one", [&] { return desk.count_in_log(failed, from) >= 2; });
    const double bent =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count() * desk.speed();
    EXPECT_GT(bent, 6) << "2 s to connect and most of the 5 s between cycles";
    desk.camera("POST", "/appear");
}

TEST(Outage, ATransferThatWasUnderWayIsGivenUp) {
    give_up_silent_connections_soon();
    Desk desk;
    const AgentSize before = agent_size(desk);
    desk.fault({{"endpoint", "CameraStatus"}, {"kind", "hang"}});
    wait_until("a poll is under way", [&] { return desk.camera_state()["in_progress"] == 1; });
    const size_t from = desk.log().size();
    desk.camera("POST", "/vanish");
    desk.wait_for_log("After res !=CURLE_OK: platform/Z55/agent/polling,line 126\n", from);
    EXPECT_NE(desk.errors().find("curl_easy_perform() failed: Failure when receiving data from the peer\n"),
              std::string::npos);
    desk.clear_faults();
    desk.camera("POST", "/appear");
    expect_motion_alarm(desk);
    expect_same_size(desk, before);
}

TEST(Outage, ACameraThatComesBackRestartedHasAnotherKey) {
    Desk desk;
    const AgentSize before = agent_size(desk);
    for (int round = 0; round < 2; round++) {
        const size_t from = desk.log().size();
        desk.camera("POST", "/vanish");
        desk.wait_for_log("getMultipleCameraStatuses failed: return value is null.\n", from);
        desk.camera("POST", "/restart");
        desk.camera("POST", "/appear");
        desk.wait_for_logs({" failed. login... ***\n", "Session key=", "*** (Polling) end of a time."}, from);
        expect_motion_alarm(desk);
    }
    EXPECT_EQ(desk.requests("CameraLogin").size(), 4u);
    expect_same_size(desk, before);
}

TEST(Outage, ACameraThatIsAwayWhenTheKeyIsRenewed) {
    Desk desk;
    const AgentSize before = agent_size(desk);
    const size_t from = desk.log().size();
    desk.fault({{"endpoint", "CameraLogin"}, {"kind", "reset"}, {"count", 3}});
    desk.camera("POST", "/session/expire");
    desk.wait_for_logs(
        {" failed. login... ***\n", "***(login) error: curl perform failed. error code = 56***\n\n",
         "After res !=CURLE_OK: platform/Z55/agent/loginout,line 266\n",
         "*** (getSessionKey) login failed, waiting for next try... ***\n", "login failed, waiting",
         "login failed, waiting", "Session key=", "*** (Polling) end of a time."},
        from);
    // Refused first: a poll between the two would find the key expired, and the agent would not poll again.
    desk.camera("POST", "/refuse");
    desk.camera("POST", "/session/expire");
    const size_t refused = desk.log().size();
    desk.wait_for_log("getMultipleCameraStatuses failed: return value is null.\n", refused);
    desk.camera("POST", "/accept");
    desk.wait_for_logs({" failed. login... ***\n", "Session key=", "*** (Polling) end of a time."}, refused);
    expect_motion_alarm(desk);
    expect_same_size(desk, before);
}

TEST(Outage, ACameraThatVanishesInTheMiddleOfALogin) {
    give_up_silent_connections_soon();
    Desk desk;
    const AgentSize before = agent_size(desk);
    desk.fault({{"endpoint", "CameraLogin"}, {"kind", "hang"}});
    const size_t from = desk.log().size();
    desk.camera("POST", "/session/expire");
    wait_until("a login is under way", [&] { return desk.requests("CameraLogin").size() == 3; });
    desk.camera("POST", "/vanish");
    desk.clear_faults();
    // The next try finds nobody to connect to.
    desk.wait_for_logs({"*** (getSessionKey) login failed, waiting for next try... ***\n", "Loginning..\n",
                        "***(login) curl_perform starts ***\n"},
                       from);
    desk.camera("POST", "/appear");
    desk.wait_for_logs({"Session key=", "*** (Polling) end of a time."}, from);
    expect_motion_alarm(desk);
    expect_same_size(desk, before);
}

TEST(Outage, ACameraThatIsAwayWhenTheAgentStarts) {
    DeskOptions options;
    options.wait = DeskOptions::not_started;
    Desk desk(options);
    desk.camera("POST", "/refuse");
    desk.start_agent();
    desk.wait_for_logs({"***(login) error: curl perform failed. error code = 7***\n\n",
                        "Getting Session Key...\n",
                        "***(login) error: curl perform failed. error code = 7***\n\n"});
    desk.camera("POST", "/accept");
    desk.wait_until_polling();
    expect_motion_alarm(desk);
}

// Keep-alive sends no probe while sent bytes are unacknowledged: without a limit of its own such a transfer
// would hold the only queue for a quarter of an hour.
TEST(Outage, ACameraThatAcknowledgesNothingFreesTheQueue) {
    DeafHost deaf;
    Desk desk;
    const AgentSize before = agent_size(desk);
    const size_t from = desk.log().size();
    // The recording's requests read their host anew, polls do not.
    const std::string key = desk.conf_value("SESSION_KEY");
    desk.write_conf({{"hostIP", deaf.host()}, {"SESSION_KEY", key}});
    EXPECT_NE(desk.call("start_recording_video", {0})["result"], 0);
    desk.wait_for_log("res !=CURLE_OK, res = 56. (platform/Z55/z55cgi,line 75\n)", from);
    expect_motion_alarm(desk);
    desk.write_conf({{"hostIP", "127.0.0.1:" + std::to_string(desk.camera_port())}, {"SESSION_KEY", key}});
    EXPECT_EQ(desk.call("start_recording_video", {0})["result"], 0);
    EXPECT_EQ(desk.call("stop_recording_video", json::array())["result"], 0);
    expect_same_size(desk, before);
}

TEST(Outage, ARedirectToANameThatNobodyKnowsFreesTheQueue) {
    SilentNameServers names;
    Desk desk;
    desk.fault({{"endpoint", "CameraSetting"},
                {"kind", "redirect"},
                {"location", "http://elsewhere.example/CGI/CameraSetting"}});
    EXPECT_EQ(desk.call("get_device_param", {"md_armed"}), (json{{"result", 5}, {"value", "ERROR"}}));
    EXPECT_GT(names.questions(), 0);
    desk.clear_faults();
    EXPECT_EQ(desk.call("get_device_param", {"md_armed"}), (json{{"result", 1}, {"value", "0"}}));
    expect_motion_alarm(desk);
}

// Every handler's request fails at once or after the connect time-out, none hangs, and the queue is free
// again.
TEST(Outage, HandlersFailWhileTheCameraIsAwayAndWorkAfterwards) {
    Desk desk;
    const AgentSize before = agent_size(desk);
    desk.camera("POST", "/vanish");
    EXPECT_EQ(desk.call("get_device_status", {"Battery"}), (json{{"result", 5}, {"value", "ERROR"}}));
    EXPECT_EQ(desk.call("get_device_param", {"md_armed"}), (json{{"result", 5}, {"value", "ERROR"}}));
    EXPECT_NE(desk.call("set_device_param", {"md_armed", "1"})["result"], 0);
    EXPECT_NE(desk.call("start_recording_video", {5})["result"], 0);
    desk.camera("POST", "/appear");
    EXPECT_EQ(desk.call("get_device_status", {"Battery"}), (json{{"result", 2}, {"value", "90"}}));
    EXPECT_EQ(desk.call("set_device_param", {"md_armed", "1"})["result"], 0);
    desk.wait_for_cycles(1);
    expect_same_size(desk, before);
}
