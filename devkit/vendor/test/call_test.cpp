// Every handler is called once with its own signature, and the ways to call it.
#include <fstream>

#include "agent_process.h"

namespace {

struct CallRow {
    const char *name, *args, *result;
};

const CallRow kCalls[] = {
    {"get_device_status", R"(["Battery"])", R"({"result":17,"value":"status of Battery"})"},
    {"get_device_status", R"(["Battery",false])", R"({"result":-3,"value":null})"},
    {"get_device_param", R"([null])", R"({"result":5,"value":"ERROR"})"},
    {"get_device_param", R"([{"repeat":"x","times":10000}])", R"({"result":5,"value":"10000"})"},
    {"get_device_param", R"([{"base64":"AQID"}])", R"({"result":1,"value":"3"})"},
    {"get_device_param", R"(["latin"])", R"({"result":4,"value":"caf\u00e9"})"},
    {"set_device_param", R"(["x","four"])", R"({"result":4})"},
    {"set_device_param", R"(["x",null])", R"({"result":0})"},
    {"set_device_param", R"(["x","four",2])", R"({"result":2})"},
    {"set_device_param", R"([null,"1"])", R"({"result":5})"},
    {"device_play_audio", R"([null])", R"({"result":-1})"},
    {"device_play_audio", R"([{"sequence":7,"data_base64":"AQID"}])", R"({"result":0})"},
    {"ptz_direction_control", R"([30,2])", R"({"result":3002})"},
    {"start_recording_video", R"([20])", R"({"result":20})"},
    {"stop_recording_video", R"([])", R"({"result":-1})"},
    {"notify_Z55_connection_status", R"([1])", R"({})"},
    {"login", R"([])", R"({"result":0})"},
    {"read_conf_value", R"(["hostIP","/some"])", R"({"result":0,"value":"hostIP"})"},
    {"read_conf_value", R"(["absent","/some"])", R"({"result":0,"value":null})"},
    {"read_conf_value", R"(["hostIP","/missing"])", R"({"result":1,"value":null})"},
    {"get_session_key", R"([])", R"({"value":"4711"})"},
    {"c_request_audio", R"([0,0])", R"({"result":1})"},
    {"e_get_param_str", R"([4])", R"({"result":0})"},
    {"error_callback", R"([4])", R"({"result":5})"},
    {"alarm_func", R"([14])", R"({})"},
    {"get_record_start_time", R"([])", R"({"result":0,"value":"20250102030405"})"},
    {"get_record_start_time", R"([14])", R"({"result":-1,"value":""})"},
    {"new_getframe_callback", R"([{"kind":3}])", R"({})"},
    {"resolutionChange", R"([3])", R"({"result":6})"},
    {"autocut_recording", R"([120])", R"({"result":120})"},
    {"waitAndPlay", R"([{"data_base64":"AQID","used":44}])", R"({"result":45})"},
    {"http_status_code_checker", R"(["HTTP/1.1 404 Not Found\r\n"])", R"({"result":24,"status":404})"},
    {"result_write_callback", R"(["abc"])", R"({"result":3,"value":"abc"})"},
    {"photo_write_callback", R"(["ab","c"])", R"({"count":3,"data_base64":"YWJj","result":1})"},
};

TEST(Call, EveryHandlerHasItsOwnSignature) {
    AgentProcess agent;
    for (const CallRow &row : kCalls) {
        EXPECT_EQ(agent.call(row.name, json::parse(row.args)), json::parse(row.result))
            << row.name << row.args;
        if (std::string(row.name) == "start_recording_video")
            agent.put("/variable", {{"name", "video_recording"}, {"value", 0}});
    }
    EXPECT_EQ(agent.get("/variable?name=NTP_FAIL").at("value"), 14);
    EXPECT_EQ(agent.get("/cloud_status").at("values"), json({2}));
}

TEST(Call, SnapshotGivesAllWordsAndTheData) {
    AgentProcess agent;
    const json taken = agent.call("get_camera_snapshot", {0}, {{"buffer", 4000}});
    EXPECT_EQ(taken.at("result"), 0);
    EXPECT_EQ(taken.at("kind"), 11);
    EXPECT_EQ(taken.at("word3"), 0x5a5a5a5a) << "a word that the handler left alone must show";
    EXPECT_EQ(taken.at("data_base64"), "anBn");
    const std::string path = agent.folder().path("photo.jpg");
    EXPECT_EQ(agent.call("get_camera_snapshot", {1}, {{"save", path}}).count("data_base64"), 0U);
    std::string text;
    std::ifstream(path) >> text;
    EXPECT_EQ(text, "jpg");
    EXPECT_EQ(agent.call("get_camera_snapshot", {9}, {{"buffer", 10}}).at("result"), -99);
    EXPECT_EQ(agent.call("get_camera_snapshot", {0}, {{"null_record", true}}), json({{"result", -1}}));
}

TEST(Call, ThreadsTimesRepeatResults) {
    AgentProcess agent;
    const json order = {
        {"name", "get_device_param"}, {"args", {"abc"}}, {"threads", 8}, {"repeat", 25}, {"via", "dlsym"}};
    const json results = agent.post("/call", order).at("results");
    EXPECT_EQ(results.size(), 200U);
    for (const json &result : results) EXPECT_EQ(result.at("value"), "3");
    EXPECT_EQ(agent.get("/calls"), json({{"running", 0}, {"finished", 200}}));
}

TEST(Call, AsyncAnswersBeforeTheHandlerDoes) {
    AgentProcess agent;
    EXPECT_EQ(agent.post("/call", {{"name", "OTA_monitor"}, {"async", true}}), json({{"started", 1}}));
    ASSERT_TRUE(eventually([&] { return agent.get("/calls").at("running") == 1; }));
    EXPECT_EQ(agent.get("/calls").at("finished"), 0);
    agent.call("start_recording_video", {0});
    EXPECT_TRUE(eventually([&] { return agent.get("/calls").at("finished") == 2; }));
}

TEST(Call, UnlistedNameTakesTheSignatureOfAnother) {
    AgentProcess agent;
    EXPECT_EQ(agent.call("stop_recording_video", {}, {{"kind", "login"}}).at("result"), -1);
    EXPECT_EQ(agent.ask("POST", "/call", {{"name", "puts"}}).status, 400);
    EXPECT_EQ(agent.ask("POST", "/call", {{"name", "no_such_name"}, {"kind", "login"}}).status, 400);
    EXPECT_EQ(agent.ask("POST", "/call", {{"name", "login"}, {"via", "table"}}).status, 400);
    EXPECT_EQ(agent.ask("POST", "/call", {{"name", "login"}, {"threads", 0}}).status, 400);
}

TEST(Call, ArgumentThatDoesNotFitIsAnErrorOfThatCall) {
    AgentProcess agent;
    EXPECT_EQ(agent.call("ptz_direction_control", {"x", 1}).count("error"), 1U);
    EXPECT_EQ(agent.call("get_device_param", {17}).count("error"), 1U);
    EXPECT_EQ(agent.call("device_play_audio", {{{"wav", "/no/such/file"}}}).count("error"), 1U);
}

TEST(Talk, WholeClipGoesInFrames) {
    AgentProcess agent;
    const std::string path = agent.folder().path("talk.wav");
    std::string wav = "RIFF....WAVEfmt ";
    wav += std::string("\x10\0\0\0", 4) + std::string(16, '\0') + "data" + std::string("\xff\xff\xff\x7f", 4);
    std::ofstream(path, std::ios::binary) << wav << std::string(1500, '\1');
    const json fed =
        agent.post("/talk", {{"wav", path}, {"pace", "fast"}, {"first_sequence", 10}, {"sequence_step", 5}});
    EXPECT_EQ(fed, json({{"frames", 3}, {"accepted", 3}}));
    EXPECT_EQ(agent.call("get_device_param", {"played"}).at("value"), "1500 20");
    agent.post("/talk", {{"pcm_base64", "AgIC"}, {"frame_bytes", 2}});
    EXPECT_EQ(agent.call("get_device_param", {"played"}).at("value"), "1506 2");
    EXPECT_EQ(agent.call("device_play_audio", {{{"wav", path}, {"offset", 44}, {"length", 4}}}).at("result"),
              0);
    EXPECT_EQ(agent.call("get_device_param", {"played"}).at("value"), "1510 1");
    EXPECT_EQ(agent.ask("POST", "/talk", {{"wav", FAKE_AGENT}}).status, 400);
}

}  // namespace
