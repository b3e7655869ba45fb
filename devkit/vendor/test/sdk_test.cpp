// The SDK's own state: alarms, table, variables, orders from the environment, the interface itself.
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "agent_process.h"

namespace {

TEST(Sdk, StateTellsWhatTheAgentHandedOver) {
    AgentProcess agent;
    const json state = agent.get("/state");
    EXPECT_EQ(state.at("uuid"), "UUID-1");
    EXPECT_EQ(state.at("interface"), "wlan0");
    EXPECT_EQ(state.at("init_count"), 1);
    EXPECT_EQ(state.at("pid"), agent.pid());
    EXPECT_EQ(state.at("callbacks").size(), 9U);
    EXPECT_EQ(state.at("callbacks").at("stop_recording_video"), true);
    EXPECT_EQ(state.at("token"), "desk-token");
    for (int slot = 0; slot < 16; slot++)
        EXPECT_EQ(state.at("slots").at(slot), slot == 0 || slot == 7 || slot == 14);
}

TEST(Sdk, AlarmsAreKeptInOrderToTheByte) {
    AgentProcess agent;
    for (const char *status : {"1", "13", "20"})
        EXPECT_EQ(agent.call("set_device_param", {"alarm", status}).at("result"), 0);
    const json all = agent.get("/alarms");
    ASSERT_EQ(all.at("alarms").size(), 3U);
    EXPECT_EQ(all.at("total"), 3);
    EXPECT_EQ(all.at("alarms").at(1).at("status"), 13);
    EXPECT_EQ(all.at("alarms").at(0).at("name"), "alarm");
    EXPECT_EQ(all.at("alarms").at(0).at("table"), true);
    EXPECT_EQ(all.at("alarms").at(2).at("record"), "01000000616c61726d" + std::string(54, '0') + "14000000");
    const json newer = agent.get("/alarms?since=2").at("alarms");
    ASSERT_EQ(newer.size(), 1U);
    EXPECT_EQ(newer.at(0).at("seq"), 3);
    agent.ask("DELETE", "/alarms");
    EXPECT_EQ(agent.get("/alarms").at("alarms").size(), 0U);
    EXPECT_EQ(agent.get("/alarms").at("total"), 3);
}

TEST(Sdk, AlarmsStandInAFileThatOutlivesTheAgent) {
    const ScratchFolder folder;
    {
        AgentProcess agent({{"DESK_SDK_ALARMS_FILE", folder.path("alarms")}});
        for (const char *status : {"1", "13"}) agent.call("set_device_param", {"alarm", status});
    }
    std::ifstream file(folder.path("alarms"));
    std::string line;
    for (const int status : {1, 13}) {
        ASSERT_TRUE(std::getline(file, line));
        const json alarm = json::parse(line);
        EXPECT_EQ(alarm.at("status"), status);
        EXPECT_GT(alarm.at("monotonic_ms"), 0);
    }
    EXPECT_FALSE(std::getline(file, line));
}

TEST(Sdk, KeptAlarmsAndTheirNumbersGoOnInTheNextAgent) {
    const ScratchFolder folder;
    const std::map<std::string, std::string> kept{{"DESK_SDK_ALARMS_KEPT", folder.path("kept")}};
    json before;
    {
        AgentProcess agent(kept);
        for (const char *status : {"1", "13"}) agent.call("set_device_param", {"alarm", status});
        before = agent.get("/alarms").at("alarms");
    }
    AgentProcess agent(kept);
    EXPECT_EQ(agent.get("/alarms").at("alarms"), before);
    EXPECT_EQ(agent.get("/state").at("alarm_count"), 2);
    agent.call("set_device_param", {"alarm", "3"});
    const json newest = agent.get("/alarms?since=2").at("alarms");
    ASSERT_EQ(newest.size(), 1U);
    EXPECT_EQ(newest.at(0).at("seq"), 3);
    EXPECT_EQ(newest.at(0).at("status"), 3);
    EXPECT_NE(newest.at(0).at("pid"), before.at(0).at("pid"));
}

TEST(Sdk, AFileThatHoldsNoAlarmsIsMadeAnew) {
    const ScratchFolder folder;
    std::ofstream(folder.path("kept")) << "something else";
    AgentProcess agent({{"DESK_SDK_ALARMS_KEPT", folder.path("kept")}});
    EXPECT_EQ(agent.get("/alarms").at("total"), 0);
}

TEST(Sdk, OldAlarmsGiveWayToNewOnes) {
    AgentProcess agent;
    agent.post("/call",
               {{"name", "set_device_param"}, {"args", {"alarm", "3"}}, {"threads", 4}, {"repeat", 300}});
    const json alarms = agent.get("/alarms");
    EXPECT_EQ(alarms.at("total"), 1200);
    ASSERT_EQ(alarms.at("alarms").size(), 1024U);
    EXPECT_EQ(alarms.at("alarms").at(0).at("seq"), 177);
}

TEST(Sdk, TheHeapGrowsAndShrinksByWhatIsHeld) {
    AgentProcess agent;
    const auto in_use = [&] { return agent.get("/heap").at("in_use").get<double>(); };
    const double before = in_use();
    EXPECT_GT(before, 0);
    agent.put("/token", {{"token", std::string(1'000'000, 'x')}});
    EXPECT_GT(in_use(), before + 900'000);  // what other requests take comes and goes
    agent.put("/token", {{"token", "short"}});
    EXPECT_LT(in_use(), before + 500'000);
}

TEST(Sdk, TableAnswersAsOrdered) {
    AgentProcess agent;
    agent.put("/table", {{"alarm_result", -1}});
    EXPECT_EQ(agent.call("set_device_param", {"alarm", "1"}).at("result"), -1);
    agent.put("/table", {{"slot", 14}, {"present", false}});
    EXPECT_EQ(agent.call("set_device_param", {"alarm", "1"}).at("result"), -2);
    agent.put("/table", {{"slot", 14}, {"present", true}, {"alarm_result", 0}});
    EXPECT_EQ(agent.call("set_device_param", {"alarm", "1"}).at("result"), 0);
    EXPECT_EQ(agent.ask("PUT", "/table", {{"slot", 3}, {"present", true}}).status, 400);
}

TEST(Sdk, OrdersFromTheEnvironmentComeBeforeTheAgent) {
    AgentProcess agent(
        {{"DESK_SDK_AT_LOAD", R"([["PUT","/table",{"null":true}],["PUT","/token",{"token":"early"}],)"
                              R"(["PUT","/capture",{"init_result":-7}]])"},
         {"DESK_SDK_AT_INIT", R"([["POST","/call",{"name":"get_device_status","args":["SD"]}]])"}});
    EXPECT_EQ(agent.get("/variable?name=capture_refused").at("value"), true);
    EXPECT_EQ(agent.get("/variable?name=mipc_api").at("value"), false);
    EXPECT_EQ(agent.call("get_device_param", {"token"}).at("value"), "early");
    EXPECT_EQ(agent.get("/capture").at("initialised"), false);
    const json reply = agent.get("/state").at("at_init").at(0);
    EXPECT_EQ(reply.at("results"), json({{{"result", 12}, {"value", "status of SD"}}}));
    EXPECT_LE(reply.at("begun_ms"), reply.at("ended_ms"));
}

TEST(Sdk, ViewerComesAndLeaves) {
    AgentProcess agent;
    agent.put("/request_vedio", {{"value", 3}});
    EXPECT_EQ(agent.get("/variable?name=request_vedio").at("value"), 3);
    EXPECT_EQ(agent.get("/capture").at("started"), false);
    agent.put("/watch", {{"on", true}});
    EXPECT_EQ(agent.get("/state").at("request_vedio"), 1);
    EXPECT_EQ(agent.get("/capture").at("started"), true);
    agent.put("/watch", {{"on", false}});
    EXPECT_EQ(agent.get("/state").at("request_vedio"), 0);
    EXPECT_EQ(agent.get("/capture").at("started"), false);
}

TEST(Sdk, VariablesAreReadByTheirKind) {
    AgentProcess agent;
    EXPECT_EQ(agent.get("/variable?name=mipc_api").at("value"), true);
    EXPECT_EQ(agent.get("/variable?name=NTP_FAIL").at("value"), -1);
    EXPECT_EQ(agent.get("/variable?name=hostIP").at("value"), "127.0.0.1:80800");
    EXPECT_EQ(agent.get("/variable?name=cookie").at("value"), "Session=17");
    EXPECT_EQ(agent.get("/variable?name=response").at("value"), nullptr);
    EXPECT_EQ(agent.get("/variable?name=wav_header").at("value"), "52494646ff" + std::string(78, '0'));
    agent.put("/variable", {{"name", "video_recording"}, {"value", 1}});
    EXPECT_EQ(agent.call("stop_recording_video", json::array()).at("result"), 0);
    EXPECT_EQ(agent.ask("GET", "/variable?name=nobody_has_this").status, 400);
    EXPECT_EQ(agent.ask("PUT", "/variable", {{"name", "hostIP"}, {"value", 1}}).status, 400);
}

TEST(Sdk, CallThatEndsTheProcessDropsTheConnection) {
    AgentProcess agent;
    EXPECT_EQ(agent.ask("POST", "/call", {{"name", "rebootOperation"}}).status, 0);
    EXPECT_EQ(agent.wait_for_end(), 0);
}

TEST(Sdk, BusyPortIsReplacedByAFreeOne) {
    AgentProcess first;
    AgentProcess second({{"DESK_SDK_PORT", std::to_string(first.port())}});
    EXPECT_NE(second.port(), first.port());
    EXPECT_EQ(second.get("/state").at("pid"), second.pid());
}

TEST(Sdk, RestartedAgentTakesTheSamePortAgain) {
    int port;
    {
        AgentProcess first;
        port = first.port();
        first.get("/state");
    }
    AgentProcess second({{"DESK_SDK_PORT", std::to_string(port)}});
    EXPECT_EQ(second.port(), port);
}

TEST(Sdk, NonsenseIsRefusedAndDoesNoHarm) {
    AgentProcess agent;
    EXPECT_EQ(agent.ask("GET", "/nothing").status, 404);
    EXPECT_EQ(agent.ask("DELETE", "/state").status, 404);
    EXPECT_EQ(agent.ask("PUT", "/request_vedio", {{"value", "x"}}).status, 400);
    EXPECT_EQ(agent.ask("POST", "/call", json::array({1})).status, 400);
    EXPECT_EQ(agent.ask("POST", "/capture/frame", {{"data_base64", "***"}}).status, 400);
    EXPECT_EQ(agent.get("/state").at("init_count"), 1);
}

}  // namespace
