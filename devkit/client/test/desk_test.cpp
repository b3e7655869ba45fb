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

namespace {

struct outcome {
    std::string output;
    int exit_code;
};

outcome run_desk(const std::string &arguments) {
    std::FILE *pipe = popen((DESK " " + arguments + " 2>&1").c_str(), "r");
    outcome result;
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

struct request_case {
    const char *arguments, *request;
};

void PrintTo(const request_case &row, std::ostream *out) {
    *out << row.arguments;
}

const request_case kRequests[] = {
    {"camera set MotionEvent 1", R"(PATCH /status {"MotionEvent":"1"})"},
    {"camera remove Battery", R"(PATCH /status {"Battery":null})"},
    {"camera event MotionEvent", R"(POST /event {"name":"MotionEvent"})"},
    {"camera event MotionEvent 3", R"(POST /event {"name":"MotionEvent","polls":3})"},
    {"camera setting MOTION_DETECTION ENABLE ON", R"(PATCH /settings/MOTION_DETECTION {"ENABLE":"ON"})"},
    {"camera config photo_bytes 5000000", R"(PATCH /config {"photo_bytes":5000000})"},
    {"camera config uuid abc", R"(PATCH /config {"uuid":"abc"})"},
    {"camera state", "GET /state"},
    {"camera forget", "DELETE /requests"},
    {"camera fault CameraStatus http_status 500 3",
     R"(POST /faults {"count":3,"endpoint":"CameraStatus","kind":"http_status","status":500})"},
    {"camera fault '*' close 2", R"(POST /faults {"count":2,"endpoint":"*","kind":"close"})"},
    {"camera fault RemoteControl error_code value=-7 match=VIDEO_STOP",
     R"(POST /faults {"endpoint":"RemoteControl","kind":"error_code","match":"VIDEO_STOP","value":-7})"},
    {"camera fault CameraInfo body '{\"a\":1}'",
     R"(POST /faults {"endpoint":"CameraInfo","kind":"body","text":"{\"a\":1}"})"},
    {"camera faults", "GET /faults"},
    {"camera heal", "DELETE /faults"},
    {"camera expire", "POST /session/expire"},
    {"camera restart", "POST /restart"},
    {"camera vanish", "POST /vanish"},
    {"camera appear", "POST /appear"},
    {"camera refuse", "POST /refuse"},
    {"camera accept", "POST /accept"},
    {"watch on", R"(PUT /watch {"on":true})"},
    {"watch off", R"(PUT /watch {"on":false})"},
    {"token abc", R"(PUT /token {"token":"abc"})"},
    {"token none", R"(PUT /token {"token":null})"},
    {"capture stalled true", R"(PUT /capture {"stalled":true})"},
    {"cloud-status", "GET /cloud_status"},
    {"variable cookie", "GET /variable?name=cookie"},
    {"variable-set NTP_FAIL -1", R"(PUT /variable {"name":"NTP_FAIL","value":-1})"},
    {"send sdk DELETE /alarms", "DELETE /alarms"},
    {"send camera PATCH /status '{\"SD\":\"0\"}'", R"(PATCH /status {"SD":"0"})"},
};

class DeskRequest : public Desk, public testing::WithParamInterface<request_case> {};

TEST_P(DeskRequest, is_sent) {
    if (std::string(GetParam().arguments).rfind("watch", 0) == 0) answer(R"({"results":[]})");
    EXPECT_EQ(run_desk(GetParam().arguments).exit_code, 0);
    EXPECT_EQ(asked(), std::string(GetParam().request) + "\n");
}

INSTANTIATE_TEST_SUITE_P(Commands, DeskRequest, testing::ValuesIn(kRequests));

struct reply_case {
    const char *arguments, *request, *reply, *output;
    int exit_code;
};

void PrintTo(const reply_case &row, std::ostream *out) {
    *out << row.arguments;
}

constexpr char kDone[] = R"({"results":[{"result":0}]})";
constexpr char kAlarm[] =
    R"({"total":4,"alarms":[{"seq":4,"index":1,"name":"alarm","status":13,"result":0,"real_ms":12,"tid":3}]})";
constexpr char kRequest[] =
    R"([{"seq":7,"time_ms":12,"status":200,"method":"POST","target":"/CGI/A?B","body":"x\ny"},
        {"seq":8,"time_ms":13,"status":null,"method":"GET","target":"/","body":""}])";

const reply_case kReplies[] = {
    {"alarms", "GET /alarms", kAlarm, "{1, \"alarm\", 13}  seq 4, result 0, 12 ms\n", 0},
    {"alarms 3", "GET /alarms?since=3", kAlarm, "{1, \"alarm\", 13}  seq 4, result 0, 12 ms\n", 0},
    {"camera requests 2", "GET /requests?limit=2", kRequest,
     "7  12 ms  200  POST /CGI/A?B  x y\n8  13 ms  null  GET /\n", 0},
    {"camera state recording active", "GET /state", R"({"recording":{"active":false}})", "false\n", 0},
    {"camera state stream", "GET /state", R"({"stream":"RTP_H264_HD"})", "RTP_H264_HD\n", 0},
    {"state nothing", "GET /state", R"({"pid":1})", "desk: there is no nothing\n", 1},
    {"read md_armed", R"(POST /call {"args":["md_armed"],"name":"get_device_param"})",
     R"({"results":[{"result":1,"value":"1"}]})", "1\n", 0},
    {"status x", R"(POST /call {"args":["x"],"name":"get_device_status"})",
     R"({"results":[{"result":5,"value":"ERROR"}]})", "ERROR\n", 1},
    {"write md_armed 1", R"(POST /call {"args":["md_armed","1"],"name":"set_device_param"})", kDone,
     "result 0\n", 0},
    {"upgrade", R"(POST /call {"args":["doOTA","1"],"name":"set_device_param"})",
     R"({"results":[{"result":-1}]})", "result -1\n", 1},
    {"ptz 30 1", R"(POST /call {"args":[30,1],"name":"ptz_direction_control"})", kDone, "result 0\n", 0},
    {"record start 20", R"(POST /call {"args":[20],"name":"start_recording_video"})",
     R"({"results":[{"result":-10}]})", "result -10\n", 1},
    {"record stop", R"(POST /call {"args":[],"name":"stop_recording_video"})", kDone, "result 0\n", 0},
    {"connection 1", R"(POST /call {"args":[1],"name":"notify_Z55_connection_status"})",
     R"({"results":[{}]})", "", 0},
    {"call alarm_func 14", R"(POST /call {"args":[14],"name":"alarm_func"})", kDone, "{\"result\":0}\n", 0},
    {"frames", "GET /frames", R"({"audio":2,"records":{},"video":1})",
     "{\n  \"audio\": 2,\n  \"video\": 1\n}\n", 0},
};

class DeskReply : public Desk, public testing::WithParamInterface<reply_case> {};

TEST_P(DeskReply, is_printed) {
    answer(GetParam().reply);
    const outcome result = run_desk(GetParam().arguments);
    EXPECT_EQ(asked(), std::string(GetParam().request) + "\n");
    EXPECT_EQ(result.output, GetParam().output);
    EXPECT_EQ(result.exit_code, GetParam().exit_code);
}

INSTANTIATE_TEST_SUITE_P(Commands, DeskReply, testing::ValuesIn(kReplies));

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
    const outcome result = run_desk("camera set a b");
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
    const outcome result = run_desk("alarms");
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
    const outcome help = run_desk("help");
    EXPECT_EQ(help.exit_code, 0);
    EXPECT_NE(help.output.find("camera requests [N]"), std::string::npos);
}

}  // namespace
