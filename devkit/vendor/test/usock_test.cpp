// Tokens and cloud status.
#include "agent_process.h"

namespace {

std::string token_read_by(AgentProcess &agent) {
    return agent.call("get_device_param", {"token"}).at("value");
}

TEST(Tokens, AreReadRemovedAndFetchedAsOrdered) {
    AgentProcess agent;
    EXPECT_EQ(token_read_by(agent), "desk-to") << "cut to the reader's 8 bytes";
    agent.put("/token", {{"token", "abc"}, {"remove_result", -1}});
    EXPECT_EQ(token_read_by(agent), "abc");
    EXPECT_EQ(agent.call("set_device_param", {"remove_token", ""}).at("result"), -1);
    EXPECT_EQ(token_read_by(agent), "abc");
    agent.put("/token", {{"remove_result", 0}, {"soap_result", -1}, {"soap_token", "new"}});
    EXPECT_EQ(agent.call("set_device_param", {"remove_token", ""}).at("result"), 0);
    EXPECT_EQ(token_read_by(agent), "none");
    EXPECT_EQ(agent.call("set_device_param", {"soap", ""}).at("result"), -1);
    EXPECT_EQ(token_read_by(agent), "none");
    agent.put("/token", {{"soap_result", 0}});
    EXPECT_EQ(agent.call("set_device_param", {"soap", ""}).at("result"), 0);
    EXPECT_EQ(token_read_by(agent), "new");
    EXPECT_EQ(agent.ask("PUT", "/token", {{"token", 7}}).status, 400);
}

TEST(Tokens, CallsAreKeptInOrder) {
    AgentProcess agent;
    agent.call("set_device_param", {"cloud_status", "3"});
    agent.call("set_device_param", {"bitrate", "512"});
    token_read_by(agent);
    agent.call("set_device_param", {"cloud_status", "1"});
    std::string order;
    const json calls = agent.get("/token").at("calls");
    for (const json &call : calls) order += call.at("call").get<std::string>() + " ";
    EXPECT_EQ(order, "send_cloud_status set_video_bitrate readTokenFromFile send_cloud_status ");
    EXPECT_EQ(calls.at(1).at("argument"), 512);
    EXPECT_EQ(agent.get("/cloud_status"), json({{"total", 2}, {"values", {3, 1}}}));
    EXPECT_EQ(agent.get("/bitrates"), json({{"total", 1}, {"values", {512}}}));
    agent.ask("DELETE", "/token");
    EXPECT_EQ(agent.get("/token").at("calls").size(), 0U);
}

}  // namespace
