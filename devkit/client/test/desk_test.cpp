// The client against a server that answers as told and keeps what it was asked. Runs in a device view.
#include <gtest/gtest.h>
#include <httplib.h>
#include <sys/wait.h>

#include <fstream>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "row_names.h"

namespace {

struct Outcome {
    std::string output;
    int exit_code;
};

Outcome run_desk(const std::string &arguments) {
    std::FILE *pipe = popen((DESK " " + arguments + " 2>&1").c_str(), "r");
    Outcome result;
    for (int character = std::fgetc(pipe); character != EOF; character = std::fgetc(pipe)) {
        result.output += static_cast<char>(character);
    }
    result.exit_code = WEXITSTATUS(pclose(pipe));
    return result;
}

class Desk : public testing::Test {
  protected:
    Desk() {
        const auto keep = [this](const httplib::Request &request, httplib::Response &response) {
            const std::lock_guard lock(mutex_);
            asked_ += request.method + " " + request.target +
                      (request.body.empty() ? "" : " " + request.body) + "\n";
            response.status = status_;
            response.set_content(reply_, "application/json");
        };
        server_.Get(".*", keep).Put(".*", keep).Post(".*", keep).Patch(".*", keep).Delete(".*", keep);
        const int port = server_.bind_to_any_port("127.0.0.1");
        listener_ = std::thread([this] { server_.listen_after_bind(); });
        std::ofstream("/tmp/camera.json") << "{\"cgi\":1,\"control\":" << port << ",\"pid\":2}";
        std::ofstream("/tmp/sdk.json") << "{\"port\":" << port << ",\"pid\":2}";
        setenv("DESK_RUN", "/tmp", 1);
        while (!server_.is_running()) std::this_thread::yield();
    }

    ~Desk() override {
        server_.stop();
        listener_.join();
    }

    // What the client has asked, a line each.
    std::string asked() {
        const std::lock_guard lock(mutex_);
        return asked_;
    }

    void answer(const std::string &reply, int status = 200) {
        const std::lock_guard lock(mutex_);
        reply_ = reply;
        status_ = status;
    }

  private:
    std::mutex mutex_;
    std::string asked_;
    std::string reply_ = "{}";
    int status_ = 200;
    httplib::Server server_;
    std::thread listener_;
};

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
    R"({"total":4,"alarms":[{"seq":4,"index":1,"name":"alarm","status":13,"result":0,"real_ms":12,"tid":3}]})";
constexpr char kRequest[] =
    R"([{"seq":7,"time_ms":12,"status":200,"method":"POST","target":"/CGI/A?B","body":"x\ny"},
        {"seq":8,"time_ms":13,"status":null,"method":"GET","target":"/","body":""}])";

const ReplyCase kReplies[] = {
    {.arguments = "alarms",
     .request = "GET /alarms",
     .reply = kAlarm,
     .output = "{1, \"alarm\", 13}  seq 4, result 0, 12 ms\n",
     .exit_code = 0},
    {.arguments = "alarms 3",
     .request = "GET /alarms?since=3",
     .reply = kAlarm,
     .output = "{1, \"alarm\", 13}  seq 4, result 0, 12 ms\n",
     .exit_code = 0},
    {.arguments = "camera requests 2",
     .request = "GET /requests?limit=2",
     .reply = kRequest,
     .output = "7  12 ms  200  POST /CGI/A?B  x y\n8  13 ms  null  GET /\n",
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
     .output = "desk: there is no nothing\n",
     .exit_code = 1},
    {.arguments = "read md_armed",
     .request = R"(POST /call {"args":["md_armed"],"name":"get_device_param"})",
     .reply = R"({"results":[{"result":1,"value":"1"}]})",
     .output = "1\n",
     .exit_code = 0},
    {.arguments = "status x",
     .request = R"(POST /call {"args":["x"],"name":"get_device_status"})",
     .reply = R"({"results":[{"result":5,"value":"ERROR"}]})",
     .output = "ERROR\n",
     .exit_code = 1},
    {.arguments = "write md_armed 1",
     .request = R"(POST /call {"args":["md_armed","1"],"name":"set_device_param"})",
     .reply = kDone,
     .output = "result 0\n",
     .exit_code = 0},
    {.arguments = "upgrade",
     .request = R"(POST /call {"args":["doOTA","1"],"name":"set_device_param"})",
     .reply = R"({"results":[{"result":-1}]})",
     .output = "result -1\n",
     .exit_code = 1},
    {.arguments = "ptz 30 1",
     .request = R"(POST /call {"args":[30,1],"name":"ptz_direction_control"})",
     .reply = kDone,
     .output = "result 0\n",
     .exit_code = 0},
    {.arguments = "record start 20",
     .request = R"(POST /call {"args":[20],"name":"start_recording_video"})",
     .reply = R"({"results":[{"result":-10}]})",
     .output = "result -10\n",
     .exit_code = 1},
    {.arguments = "record stop",
     .request = R"(POST /call {"args":[],"name":"stop_recording_video"})",
     .reply = kDone,
     .output = "result 0\n",
     .exit_code = 0},
    {.arguments = "connection 1",
     .request = R"(POST /call {"args":[1],"name":"notify_Z55_connection_status"})",
     .reply = R"({"results":[{}]})",
     .output = "",
     .exit_code = 0},
    {.arguments = "call alarm_func 14",
     .request = R"(POST /call {"args":[14],"name":"alarm_func"})",
     .reply = kDone,
     .output = "{\"result\":0}\n",
     .exit_code = 0},
    {.arguments = "frames",
     .request = "GET /frames",
     .reply = R"({"audio":2,"records":{},"video":1})",
     .output = "{\n  \"audio\": 2,\n  \"video\": 1\n}\n",
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

std::string content(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST_F(Desk, snapshot_is_decoded_into_its_file) {
    const char *const encoded[] = {"", "/w==", "/9g=", "/9j/", "/9j/AA=="};
    const std::string bytes("\xff\xd8\xff\0", 4);
    for (size_t length = 0; length <= bytes.size(); ++length) {
        answer(std::string(R"({"results":[{"result":0,"data_base64":")") + encoded[length] + "\"}]}");
        EXPECT_EQ(run_desk("snapshot /tmp/photo.jpg 1").exit_code, 0);
        EXPECT_EQ(content("/tmp/photo.jpg"), bytes.substr(0, length));
    }
    answer(R"({"results":[{"result":-99}]})");
    EXPECT_EQ(run_desk("snapshot /tmp/photo.jpg").exit_code, 1);
}

TEST_F(Desk, talk_sends_the_samples_of_a_wav_file) {
    std::ofstream("/tmp/a.wav") << "RIFF....WAVEfmt 1234data....abcd";
    EXPECT_EQ(run_desk("talk /tmp/a.wav fast").exit_code, 0);
    EXPECT_EQ(asked(), "POST /talk {\"pace\":\"fast\",\"pcm_base64\":\"YWJjZA==\"}\n");
}

TEST_F(Desk, error_of_an_interface_is_told) {
    answer(R"({"error":"no such key"})", 400);
    const Outcome result = run_desk("camera set a b");
    EXPECT_EQ(result.output, "desk: the camera answers 400: no such key\n");
    EXPECT_EQ(result.exit_code, 1);
}

TEST_F(Desk, files_of_the_device) {
    std::ofstream("/tmp/working/a") << "line\n";
    EXPECT_EQ(run_desk("cat /tmp/working/a").output, "line\n");
    EXPECT_EQ(run_desk("ls /tmp/working").output, "a  5\n");
    EXPECT_EQ(run_desk("ls /tmp/nowhere").exit_code, 1);
    // Seen through the process that view.pid names.
    std::ofstream("/tmp/view.pid") << 1;
    EXPECT_EQ(run_desk("cat /tmp/working/a").output, "line\n");
    std::ofstream("/tmp/view.pid") << 999999;
    EXPECT_EQ(run_desk("cat /tmp/working/a").exit_code, 1);
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

TEST(DeskAlone, misuse_ends_with_2_and_help_with_0) {
    EXPECT_EQ(run_desk("camera set a").output,
              "usage: desk camera set KEY VALUE    sets a status (MotionEvent 1)\n");
    EXPECT_EQ(run_desk("camera set a").exit_code, 2);
    EXPECT_EQ(run_desk("levitate").exit_code, 2);
    const Outcome help = run_desk("help");
    EXPECT_EQ(help.exit_code, 0);
    EXPECT_NE(help.output.find("camera requests [N]"), std::string::npos);
}

}  // namespace
