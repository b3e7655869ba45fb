// Remote operations, resolution changes and the network state over the wire.
#include <gtest/gtest.h>

#include "wire.h"

namespace {

using Sent = std::vector<std::string>;

const std::string kModeQuery = get("CameraStatus?LullabyMode");

std::string lullaby(const std::string &inner) {
    return post("RemoteControl",
                inner.empty() ? "" : "<RemoteControl><Action>LULLABY</Action>" + inner + "</RemoteControl>");
}

std::string night_light(const std::string &setting) {
    return post("RemoteControl", "<RemoteControl><Action>NIGHT_LIGHT</Action><Setting>" + setting +
                                     "</Setting></RemoteControl>");
}

struct Operation {
    int command, param;
    Sent sent;
    const char *text;
};

const Operation kOperations[] = {
    {1, 0, {}, "PTZ control: UP\n"},
    {2, 0, {}, "PTZ control: DOWN\n"},
    {3, 0, {}, "ptz_direction_control: unknown command= 3\n"},
    {4, 0, {}, "PTZ control: LEFT\n"},
    {5, 0, {}, "PTZ control: RIGHT\n"},
    {46, 0, {}, "ptz_direction_control: unknown command= 46\n"},
    {30, 0, {night_light("0")}, " **********\n"},
    {30, 12, {night_light("12")}, ""},
    {30, -1, {night_light("-1")}, ""},
    {40, 0, {kModeQuery, lullaby("<Setting>OFF</Setting>")}, " ***** sound operation*****\n"},
    {40, 1, {kModeQuery, lullaby("<Setting>ON</Setting>")}, ""},
    {40, 2, {kModeQuery, lullaby("<Setting>PAUSE</Setting>")}, ""},
    {40, 3, {kModeQuery, lullaby("<Setting>RESUME</Setting>")}, ""},
    {40, 7, {kModeQuery, lullaby("")}, ""},
    {41, 0, {kModeQuery, lullaby("<Mode>ALL</Mode>")}, ""},
    {41, 1, {kModeQuery, lullaby("<Mode>ONE</Mode>")}, ""},
    {41, 2, {kModeQuery, lullaby("")}, ""},
    {42, 0, {kModeQuery, lullaby("<Mode>ONE</Mode><Song>1</Song>")}, ""},
    {42, 5, {kModeQuery, lullaby("<Mode>ONE</Mode><Song>6</Song>")}, ""},
    {42, 6, {kModeQuery}, "Select Song is out of range, error"},
    {42, -1, {kModeQuery}, "Select Song is out of range, error"},
    {43, 0, {kModeQuery, lullaby("<Mode>ONE</Mode>")}, ""},
    {43, 1, {kModeQuery, lullaby("<Mode>RANDOM</Mode>")}, ""},
    {43, 2, {kModeQuery, lullaby("<Mode>ALL</Mode>")}, ""},
    {43, 3, {kModeQuery, lullaby("")}, ""},
    {44, 8, {kModeQuery, lullaby("<Volume>8</Volume>")}, ""},
};

// The stream-change request for a profile.
std::string stream(const std::string &profile) {
    return post("RemoteControl", "<RemoteControl><Action>STREAM_CHANGE</Action><STREAM>" + profile +
                                     "</STREAM></RemoteControl>");
}

void arm(const Desk &desk, const char *motion, const char *sound) {
    desk.camera("PATCH", "/settings/MOTION_DETECTION", {{"ENABLE", motion}, {"SENSITIVITY", "4"}});
    desk.camera("PATCH", "/settings/AUDIO_DETECTION", {{"ENABLE", sound}, {"SENSITIVITY", "6"}});
}

std::string switched(const char *group, const char *enable, const char *sensitivity) {
    const std::string name = group;
    return post("CameraSetup", "<CameraSetup><" + name + "><ENABLE>" + enable + "</ENABLE><SENSITIVITY>" +
                                   sensitivity + "</SENSITIVITY></" + name + "></CameraSetup>");
}

size_t bitrates(const Desk &desk) {
    return desk.sdk("GET", "/bitrates")["total"];
}

// Bent seconds between two requests of the record.
double seconds_between(const Desk &desk, const json &first, const json &second) {
    return (second["time_ms"].get<double>() - first["time_ms"].get<double>()) / 1000 * desk.speed();
}

}  // namespace

TEST(Operations, EveryRowOfTheTable) {
    Desk desk;
    for (const Operation &row : kOperations) {
        SCOPED_TRACE(std::to_string(row.command) + " " + std::to_string(row.param));
        const long since = desk.last_request();
        const size_t from = desk.log().size();
        EXPECT_EQ(desk.call("ptz_direction_control", {row.command, row.param})["result"], 0);
        EXPECT_EQ(commands(desk, since), row.sent);
        EXPECT_GT(desk.count_in_log(
                      "command=" + std::to_string(row.command) + ",param=" + std::to_string(row.param) + "\n",
                      from),
                  0);
        desk.wait_for_log(row.text, from);  // one without a line end comes with the next line
    }
}

TEST(Operations, WithoutAnAnswerTheLullabyIsLeftAlone) {
    Desk desk;
    desk.fault({{"endpoint", "CameraStatus"}, {"match", "LullabyMode"}, {"kind", "close"}});
    const long since = desk.last_request();
    EXPECT_EQ(desk.call("ptz_direction_control", {44, 3})["result"], 0);
    EXPECT_EQ(commands(desk, since), Sent{kModeQuery});
}

TEST(Operations, AFormattedCardGetsItsReserveFile) {
    Desk desk;
    const long since = desk.last_request();
    EXPECT_EQ(desk.call("set_device_param", {"sdformat", "1"})["result"], 0);
    EXPECT_EQ(commands(desk, since),
              Sent{post("RemoteControl", "<RemoteControl><Action>FORMATSD</Action></RemoteControl>", 56)});
    EXPECT_EQ(desk.camera_state()["formats"], 1);
    EXPECT_EQ(file_text("/tmp/fuse_d/.ota.tmp").size(), 102'400'000u);
}

TEST(Resolution, DetectionsAreOffForTheWholeChange) {
    DeskOptions options;
    options.speed = 20;
    Desk desk(options);
    arm(desk, "ON", "ON");
    const long since = desk.last_request();
    const size_t from = desk.log().size();
    const size_t rates = bitrates(desk);
    EXPECT_EQ(desk.call("set_device_param", {"high_definition", "3"})["result"], 0);
    wait_until("the bit rate is set", [&] { return bitrates(desk) > rates; });
    const std::string md = get("CameraSetting?MOTION_DETECTION"), sd = get("CameraSetting?AUDIO_DETECTION");
    EXPECT_EQ(commands(desk, since),
              (Sent{get("CameraSetting?MOTION_DETECTION&AUDIO_DETECTION"), md,
                    switched("MOTION_DETECTION", "OFF", "4"), sd, switched("AUDIO_DETECTION", "OFF", "6"),
                    stream("RTP_H264_HD"), md, switched("MOTION_DETECTION", "ON", "4"), sd,
                    switched("AUDIO_DETECTION", "ON", "6")}));
    EXPECT_GT(desk.count_in_log("ptz_direction_control: change resolution= 3\n", from), 0);
    EXPECT_GT(desk.count_in_log(" ****  resolution change ******\ncharPara = RTP_H264_", from), 0);
    EXPECT_EQ(desk.call("get_device_param", {"high_definition"})["value"], "3");
    std::vector<json> settings;
    for (const json &request : desk.requests("CameraSetting", since)) settings.push_back(request);
    ASSERT_EQ(settings.size(), 5u);
    for (size_t i = 1; i < settings.size(); i++)
        EXPECT_GE(seconds_between(desk, settings[i - 1], settings[i]), 1.0);
    EXPECT_EQ(desk.sdk("GET", "/bitrates")["values"].back(), 512);
}

TEST(Resolution, OnlyWhatWasArmedIsSwitched) {
    Desk desk;
    arm(desk, "ON", "OFF");
    const long since = desk.last_request();
    const size_t rates = bitrates(desk);
    desk.call("ptz_direction_control", {45, 0});
    wait_until("the bit rate is set", [&] { return bitrates(desk) > rates; });
    const std::string md = get("CameraSetting?MOTION_DETECTION");
    EXPECT_EQ(commands(desk, since), (Sent{get("CameraSetting?MOTION_DETECTION&AUDIO_DETECTION"), md,
                                           switched("MOTION_DETECTION", "OFF", "4"), stream("RTP_H264_WQVGA"),
                                           md, switched("MOTION_DETECTION", "ON", "4")}));
    EXPECT_EQ(desk.sdk("GET", "/variable?name=gResolutionType")["value"], 1);
}

TEST(Resolution, TwoChangesAtOnceEndWithTheLastProfileAndTheDetectionsOn) {
    DeskOptions options;
    options.speed = 20;
    Desk desk(options);
    arm(desk, "ON", "ON");
    const size_t rates = bitrates(desk);
    desk.call("set_device_param", {"high_definition", "3"});
    desk.call("ptz_direction_control", {45, 2});
    wait_until("both are through", [&] { return bitrates(desk) == rates + 2; });
    const json state = desk.camera_state();
    EXPECT_EQ(state["stream"], "RTP_H264_WVGA");
    EXPECT_EQ(state["settings"]["MOTION_DETECTION"]["ENABLE"], "ON");
    EXPECT_EQ(state["settings"]["AUDIO_DETECTION"]["ENABLE"], "ON");
}

TEST(Resolution, ARefusedStreamLeavesTheDetectionsOff) {
    Desk desk;
    arm(desk, "ON", "ON");
    desk.fault({{"endpoint", "RemoteControl"}, {"match", "STREAM_CHANGE"}, {"kind", "reset"}});
    const size_t from = desk.log().size();
    desk.call("ptz_direction_control", {45, 2});
    desk.wait_for_log("curl_POST failure res = ", from);
    desk.wait_for_cycles(2);
    EXPECT_EQ(desk.camera_state()["settings"]["MOTION_DETECTION"]["ENABLE"], "OFF");
    EXPECT_EQ(desk.call("get_device_param", {"high_definition"})["value"], "2");
}

TEST(Network, TheCloudsStateBecomesOneOfThreeStatuses) {
    Desk desk;
    struct Row {
        int status;
        const char *ifconfig, *ping_exit, *netstat;
        std::vector<int> sent;
        std::vector<const char *> texts;
    };
    const char *wlan = "wlan0     Link encap:Ethernet  HWaddr a1:b2:c3:d4:e5:f6\n";
    const char *route = "Destination     Gateway         Genmask\n0.0.0.0         192.168.0.1     0.0.0.0\n";
    const Row rows[] = {
        {0, wlan, "0", route, {1}, {"***** CLOUD_OK !!!!!! *****\n"}},
        {1,
         wlan,
         "0",
         route,
         {3},
         {"command:\"ping -c1 -s1 192.168.0.1\"\nTry pinging default gateway...\n",
          "(ping_default_gateway) ping 192.168.0.1 succeeded.\n***** CLOUD_LOCAL_OK !!!!!! *****\n"}},
        {1,
         wlan,
         "1",
         route,
         {2},
         {"(ping_default_gateway) ping 192.168.0.1 failed.\n***** LOCAL_FAIL !!!!!! *****\n"}},
        {1,
         wlan,
         "0",
         "10.1.2.0  0.0.0.0  255.0.0.0\n",
         {2},
         {"Default gateway not found.\nQuiting try pinging default gateway.\n***** LOCAL_FAIL !!!!!! "
          "*****\n"}},
        {1, "lo        Link encap:Local Loopback\n", "0", route, {2}, {"Device \"wlan0\" does NOT exist.\n"}},
        {5, wlan, "0", route, {}, {}},
    };
    std::vector<int> sent;
    for (const Row &row : rows) {
        desk.set_tool("ifconfig", "stdout", row.ifconfig);
        desk.set_tool("ping", "exit", row.ping_exit);
        desk.set_tool("netstat", "stdout", row.netstat);
        const size_t from = desk.log().size();
        desk.call("notify_Z55_connection_status", {row.status});
        for (const char *text : row.texts) EXPECT_GT(desk.count_in_log(text, from), 0) << text;
        sent.insert(sent.end(), row.sent.begin(), row.sent.end());
        EXPECT_EQ(desk.sdk("GET", "/cloud_status")["values"], json(sent));
    }
    EXPECT_EQ(desk.tool_calls("ping").at(0)["args"], (json{"-c1", "-s1", "192.168.0.1"}));
    EXPECT_EQ(desk.tool_calls("netstat").at(0)["args"], json{"-rn"});
    const AgentSize before = agent_size(desk);
    for (int i = 0; i < 20; i++) desk.call("notify_Z55_connection_status", {1});
    expect_same_size(desk, before);
}
