// The client against a server that answers as told and keeps what it was asked. Runs in a device view.
#include "desk_fixture.h"
#include "row_names.h"

namespace {

struct RequestCase {
    const char *arguments, *request;
};

constexpr auto by_arguments = [](const auto &row) { return case_name(row.param.arguments); };

const RequestCase kRequests[] = {
    {.arguments = "camera set MotionEvent 1", .request = R"(PATCH /status {"MotionEvent":"1"})"},
    {.arguments = "camera remove Battery", .request = R"(PATCH /status {"Battery":null})"},
    {.arguments = "camera event MotionEvent", .request = R"(POST /event {"name":"MotionEvent"})"},
    {.arguments = "camera event MotionEvent 3", .request = R"(POST /event {"name":"MotionEvent","polls":3})"},
    {.arguments = "camera setting MOTION_DETECTION ENABLE ON",
     .request = R"(PATCH /settings/MOTION_DETECTION {"ENABLE":"ON"})"},
    {.arguments = "camera config photo_bytes 5000000", .request = R"(PATCH /config {"photo_bytes":5000000})"},
    {.arguments = "camera config uuid abc", .request = R"(PATCH /config {"uuid":"abc"})"},
    {.arguments = "camera state", .request = "GET /state"},
    {.arguments = "camera forget", .request = "DELETE /requests"},
    {.arguments = "camera fault CameraStatus http_status 500 3",
     .request = R"(POST /faults {"count":3,"endpoint":"CameraStatus","kind":"http_status","status":500})"},
    {.arguments = "camera fault '*' close 2",
     .request = R"(POST /faults {"count":2,"endpoint":"*","kind":"close"})"},
    {.arguments = "camera fault RemoteControl error_code value=-7 match=VIDEO_STOP",
     .request =
         R"(POST /faults {"endpoint":"RemoteControl","kind":"error_code","match":"VIDEO_STOP","value":-7})"},
    {.arguments = "camera fault CameraInfo body '{\"a\":1}'",
     .request = R"(POST /faults {"endpoint":"CameraInfo","kind":"body","text":"{\"a\":1}"})"},
    {.arguments = "camera faults", .request = "GET /faults"},
    {.arguments = "camera heal", .request = "DELETE /faults"},
    {.arguments = "camera expire", .request = "POST /session/expire"},
    {.arguments = "camera restart", .request = "POST /restart"},
    {.arguments = "camera vanish", .request = "POST /vanish"},
    {.arguments = "camera appear", .request = "POST /appear"},
    {.arguments = "camera refuse", .request = "POST /refuse"},
    {.arguments = "camera accept", .request = "POST /accept"},
    {.arguments = "watch on", .request = R"(PUT /watch {"on":true})"},
    {.arguments = "watch off", .request = R"(PUT /watch {"on":false})"},
    {.arguments = "token abc", .request = R"(PUT /token {"token":"abc"})"},
    {.arguments = "token none", .request = R"(PUT /token {"token":null})"},
    {.arguments = "capture stalled true", .request = R"(PUT /capture {"stalled":true})"},
    {.arguments = "cloud-status", .request = "GET /cloud_status"},
    {.arguments = "variable cookie", .request = "GET /variable?name=cookie"},
    {.arguments = "variable-set NTP_FAIL -1", .request = R"(PUT /variable {"name":"NTP_FAIL","value":-1})"},
    {.arguments = "send sdk DELETE /alarms", .request = "DELETE /alarms"},
    {.arguments = "send camera PATCH /status '{\"SD\":\"0\"}'", .request = R"(PATCH /status {"SD":"0"})"},
};

class DeskRequest : public Desk, public testing::WithParamInterface<RequestCase> {};

TEST_P(DeskRequest, is_sent) {
    if (std::string(GetParam().arguments).rfind("watch", 0) == 0) answer(R"({"results":[]})");
    EXPECT_EQ(run_desk(GetParam().arguments).exit_code, 0);
    EXPECT_EQ(asked(), std::string(GetParam().request) + "\n");
}

INSTANTIATE_TEST_SUITE_P(Commands, DeskRequest, testing::ValuesIn(kRequests), by_arguments);

struct ReplyCase {
    const char *arguments, *request, *reply, *output;
    int exit_code;
};

constexpr char kDone[] = R"({"results":[{"result":0}]})";
constexpr char kAlarm[] =
    R"({"total":4,"alarms":[{"seq":4,"index":1,"name":"alarm","status":13,"result":0,"time":61,"real_ms":12,"tid":3}]})";
constexpr char kRequest[] =
    R"([{"seq":7,"time_ms":12.3,"end_ms":15.2,"status":200,"method":"POST","target":"/CGI/A?B","body":"x\ny"},
        {"seq":8,"time_ms":13999.1234,"status":null,"method":"GET","target":"/","body":""}])";

const ReplyCase kReplies[] = {
    {.arguments = "alarms",
     .request = "GET /alarms",
     .reply = kAlarm,
     .output = "00:01:01  battery low  {1, \"alarm\", 13}  seq 4\n",
     .exit_code = 0},
    {.arguments = "alarms 3",
     .request = "GET /alarms?since=3",
     .reply = kAlarm,
     .output = "00:01:01  battery low  {1, \"alarm\", 13}  seq 4\n",
     .exit_code = 0},
    {.arguments = "camera requests 2",
     .request = "GET /requests?limit=2",
     .reply = kRequest,
     .output = "7  0.012 s  3 ms  200  POST /CGI/A?B  x y\n8  13.999 s  no end  no reply  GET /\n",
     .exit_code = 0},
    {.arguments = "camera state recording active",
     .request = "GET /state",
     .reply = R"({"recording":{"active":false}})",
     .output = "false\n",
     .exit_code = 0},
    {.arguments = "camera state stream",
     .request = "GET /state",
     .reply = R"({"stream":"RTP_H264_HD"})",
     .output = "RTP_H264_HD\n",
     .exit_code = 0},
    {.arguments = "state nothing",
     .request = "GET /state",
     .reply = R"({"pid":1})",
     .output = "desk: nothing is no member. There are: pid\n",
     .exit_code = 1},
    {.arguments = "read md_armed",
     .request = R"(POST /call {"args":["md_armed"],"name":"get_device_param"})",
     .reply = R"({"results":[{"result":1,"value":"1"}]})",
     .output = "1\n",
     .exit_code = 0},
    {.arguments = "status Battery",
     .request = R"(POST /call {"args":["Battery"],"name":"get_device_status"})",
     .reply = R"({"results":[{"result":5,"value":"ERROR"}]})",
     .output = "desk: status Battery: ERROR: the camera did not answer, or does not have it\n",
     .exit_code = 1},
    {.arguments = "write md_armed 1",
     .request = R"(POST /call {"args":["md_armed","1"],"name":"set_device_param"})",
     .reply = kDone,
     .output = "0: done\n",
     .exit_code = 0},
    {.arguments = "upgrade",
     .request = R"(POST /call {"args":["doOTA","1"],"name":"set_device_param"})",
     .reply = R"({"results":[{"result":-1}]})",
     .output = "desk: -1: it was not done: the camera did not answer or refused, or it cannot be done now\n",
     .exit_code = 1},
    {.arguments = "ptz 30 1",
     .request = R"(POST /call {"args":[30,1],"name":"ptz_direction_control"})",
     .reply = kDone,
     .output = "0: done\n",
     .exit_code = 0},
    {.arguments = "record start 20",
     .request = R"(POST /call {"args":[20],"name":"start_recording_video"})",
     .reply = R"({"results":[{"result":-10}]})",
     .output = "desk: -10: a recording runs already\n",
     .exit_code = 1},
    {.arguments = "record stop",
     .request = R"(POST /call {"args":[],"name":"stop_recording_video"})",
     .reply = kDone,
     .output = "0: done\n",
     .exit_code = 0},
    {.arguments = "connection 1",
     .request = R"(POST /call {"args":[1],"name":"notify_Z55_connection_status"})",
     .reply = R"({"results":[{}]})",
     .output = "done\n",
     .exit_code = 0},
    {.arguments = "call alarm_func 14",
     .request = R"(POST /call {"args":[14],"name":"alarm_func"})",
     .reply = kDone,
     .output = "result 0\n",
     .exit_code = 0},
    {.arguments = "status Temp_now_status",
     .request = R"(POST /call {"args":["Temp_now_status"],"name":"get_device_status"})",
     .reply = R"({"results":[{"result":2,"value":"24"}]})",
     .output = "24 °C\n",
     .exit_code = 0},
    {.arguments = "call alarm_func x",
     .request = R"(POST /call {"args":["x"],"name":"alarm_func"})",
     .reply = R"({"results":[{"error":"must be a number"}]})",
     .output = "desk: the SDK refuses the call: must be a number\n",
     .exit_code = 1},
    {.arguments = "ptz 42 2",
     .request = R"(POST /call {"args":[42,2],"name":"ptz_direction_control"})",
     .reply = R"({"results":[{"error":"vanished"}]})",
     .output = "desk: the SDK refuses the call: vanished\n",
     .exit_code = 1},
    {.arguments = "camera faults",
     .request = "GET /faults",
     .reply = "[]",
     .output = "none\n",
     .exit_code = 0},
    {.arguments = "camera  faults",
     .request = "GET /faults",
     .reply = R"([{"id":1,"kind":"hang"}])",
     .output = "id 1, kind hang\n",
     .exit_code = 0},
    {.arguments = "alarms --",
     .request = "GET /alarms",
     .reply = R"({"total":0,"alarms":[]})",
     .output = "none so far\n",
     .exit_code = 0},
    {.arguments = "frames",
     .request = "GET /frames",
     .reply =
         R"({"audio":2,"records":{},"video":1,"key_frames":1,"video_bytes":2500000,"audio_bytes":340,"kilobits":512.7})",
     .output =
         "video   1 frames, 1 of them key frames, 2.5 MB\naudio   2 frames, 340 bytes\nlately  513 kbit/s\n",
     .exit_code = 0},
};

class DeskReply : public Desk, public testing::WithParamInterface<ReplyCase> {};

TEST_P(DeskReply, is_printed) {
    answer(GetParam().reply);
    const Outcome result = run_desk(GetParam().arguments);
    EXPECT_EQ(asked(), std::string(GetParam().request) + "\n");
    EXPECT_EQ(result.output, GetParam().output);
    EXPECT_EQ(result.exit_code, GetParam().exit_code);
}

INSTANTIATE_TEST_SUITE_P(Commands, DeskReply, testing::ValuesIn(kReplies), by_arguments);

TEST_F(Desk, error_of_an_interface_is_told) {
    answer(R"({"error":"no such key"})", 400);
    const Outcome result = run_desk("camera set SD b");
    EXPECT_EQ(result.output, "desk: the camera answers 400: no such key\n");
    EXPECT_EQ(result.exit_code, 1);
}

TEST(DeskAlone, says_that_nothing_runs) {
    setenv("DESK_RUN", "/tmp", 1);
    const Outcome result = run_desk("alarms");
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_NE(result.output.find("nothing is running here: no port in /tmp/sdk.json"), std::string::npos);
}

TEST(DeskAlone, says_that_nobody_answers) {
    setenv("DESK_RUN", "/tmp", 1);
    std::ofstream("/tmp/sdk.json") << R"({"port":9})";
    EXPECT_EQ(run_desk("alarms").output, "desk: the SDK does not answer at port 9\n");
}

}  // namespace
