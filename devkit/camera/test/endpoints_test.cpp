// Every endpoint once, with the state behind it.

#include "camera_fixture.h"

namespace {

TEST_F(CameraTest, login_gives_a_key_and_the_firmware_version) {
    control("PATCH", "/config", {{"fwver", "2.7"}});
    const std::string reply = cgi_reply("/CGI/CameraLogin?Device=Camera&Stream=Stream1", "password=secret");
    EXPECT_EQ(reply.find("HTTP/1.1 200 OK\r\n"), 0u);
    EXPECT_NE(reply.find("\r\nSet-Cookie: Session=1000002; path=/\r\n"), reply.npos);
    EXPECT_EQ(body_of(reply), "<CameraLogin><FWVER>2.7</FWVER></CameraLogin>");
}

TEST_F(CameraTest, login_refuses_a_wrong_part) {
    EXPECT_EQ(login("wrong"), "");
    const std::string reply = cgi_reply("/CGI/CameraLogin?Device=Camera&Stream=Other", "password=secret");
    EXPECT_EQ(body_of(reply), "<CameraLogin><ErrorCode>-1</ErrorCode></CameraLogin>");
    EXPECT_EQ(reply.find("Session="), reply.npos);
}

TEST_F(CameraTest, a_second_login_ends_the_first_key_only_where_asked) {
    const std::string first = session;
    login();
    EXPECT_EQ(cgi("/CGI/CameraInfo?"), "<CameraInfo><UUID>Z55-0000-0001</UUID></CameraInfo>");
    control("PATCH", "/config", {{"single_session", true}});
    const std::string last = login();
    EXPECT_EQ(cgi("/CGI/CameraInfo?"), "<CameraInfo><ErrorCode>-2</ErrorCode></CameraInfo>");
    EXPECT_EQ(state()["sessions"], json({last}));
}

TEST_F(CameraTest, an_expired_key_is_unknown_to_every_endpoint_but_the_login) {
    control("POST", "/session/expire");
    for (const std::string name : {"CameraStatus", "CameraSetting", "CameraSetup", "RemoteControl",
                                   "CameraInfo", "VideoList", "MobileAudio"})
        EXPECT_EQ(cgi("/CGI/" + name), "<" + name + "><ErrorCode>-2</ErrorCode></" + name + ">");
    EXPECT_EQ(login(), "1000002");
}

TEST_F(CameraTest, status_holds_the_keys_that_exist) {
    control("PATCH", "/status", {{"Battery", 5}, {"Temperature", nullptr}, {"Own", "x y"}});
    EXPECT_EQ(cgi("/CGI/CameraStatus?Notification&SD&Battery&Temperature&Own"),
              "<CameraStatus><Notification>0</Notification><SD>1</SD><Battery>5</Battery><Own>x "
              "y</Own></CameraStatus>");
    control("PATCH", "/config", {{"error_zero", true}});
    EXPECT_EQ(cgi("/CGI/CameraStatus?SD"), "<CameraStatus><ErrorCode>0</ErrorCode><SD>1</SD></CameraStatus>");
}

TEST_F(CameraTest, an_event_is_seen_by_so_many_queries_of_its_key) {
    control("POST", "/event", {{"name", "MotionEvent"}, {"polls", 2}});
    EXPECT_EQ(cgi("/CGI/CameraStatus?Battery"), "<CameraStatus><Battery>90</Battery></CameraStatus>");
    for (const std::string value : {"1", "1", "0", "0"})
        EXPECT_EQ(cgi("/CGI/CameraStatus?MotionEvent"),
                  "<CameraStatus><MotionEvent>" + value + "</MotionEvent></CameraStatus>");
    control("POST", "/event", {{"name", "Battery"}, {"value", "7"}, {"polls", 9}});
    control("PATCH", "/status", {{"Battery", "8"}});
    EXPECT_EQ(state()["events"], json::object()) << "a status that is set ends its event";
    control("POST", "/event", {{"polls", 1}}, 400);
}

TEST_F(CameraTest, a_setting_group_is_written_whole) {
    EXPECT_EQ(cgi("/CGI/CameraSetup",
                  "HTTP/1.1\nContent-Length: 9\n\r\n\r\n<CameraSetup><MOTION_DETECTION><ENABLE>ON</ENABLE>"
                  "<SENSITIVITY>9</SENSITIVITY></MOTION_DETECTION></CameraSetup>"),
              "<CameraSetup></CameraSetup>");
    for (const std::string group :
         {"<ENABLE>ON</ENABLE>", "<ENABLE>ON</ENABLE><SENSITIVITY>1</SENSITIVITY><MAX>1</MAX>", ""})
        EXPECT_EQ(cgi("/CGI/CameraSetup",
                      "<CameraSetup><AUDIO_DETECTION>" + group + "</AUDIO_DETECTION></CameraSetup>"),
                  "<CameraSetup><ErrorCode>-4</ErrorCode></CameraSetup>");
    EXPECT_EQ(
        cgi("/CGI/CameraSetting?MOTION_DETECTION&AUDIO_DETECTION"),
        "<CameraSetting><MOTION_DETECTION><ENABLE>ON</ENABLE><SENSITIVITY>9</SENSITIVITY></MOTION_DETECTION>"
        "<AUDIO_DETECTION><ENABLE>OFF</ENABLE><SENSITIVITY>4</SENSITIVITY></AUDIO_DETECTION></"
        "CameraSetting>");
}

TEST_F(CameraTest, settings_are_patched_from_the_control_side) {
    control("PATCH", "/settings/TEMPERATURE_ALERT", {{"MAX", 40}, {"ENABLE", nullptr}});
    EXPECT_EQ(
        cgi("/CGI/CameraSetting?TEMPERATURE_ALERT"),
        "<CameraSetting><TEMPERATURE_ALERT><MAX>40</MAX><MIN>5</MIN></TEMPERATURE_ALERT></CameraSetting>");
    EXPECT_EQ(cgi("/CGI/CameraStatus?TemperatureMax"),
              "<CameraStatus><TemperatureMax>40</TemperatureMax></CameraStatus>");
}

TEST_F(CameraTest, setup_takes_the_time_the_upgrade_switch_and_nothing_at_all) {
    EXPECT_EQ(state()["time"], nullptr);
    cgi("/CGI/CameraSetup",
        "<CameraSetup><Item><Time><Year>2026</Year><Second>7</Second></Time></Item></CameraSetup>");
    cgi("/CGI/CameraSetup", "<CameraSetup><Item><FW_UPGRADE>ON</FW_UPGRADE></Item></CameraSetup>");
    EXPECT_EQ(cgi("/CGI/CameraSetup", "HTTP/1.1\nContent-Length: 0\n\r\n\r\n"),
              "<CameraSetup></CameraSetup>");
    EXPECT_EQ(state()["time"], json({{"Year", "2026"}, {"Second", "7"}}));
    EXPECT_EQ(state()["fw_upgrade"], "ON");
}

TEST_F(CameraTest, remote_control_shows_in_the_state) {
    const struct {
        const char *elements, *status, *value;
    } rows[] = {
        {"<Action>LULLABY</Action><Setting>ON</Setting>", "LullabyPlay", "ON"},
        {"<Action>LULLABY</Action><Setting>PAUSE</Setting>", "LullabyPlay", "PAUSE"},
        {"<Action>LULLABY</Action><Setting>RESUME</Setting>", "LullabyPlay", "ON"},
        {"<Action>LULLABY</Action><Setting>OFF</Setting>", "LullabyPlay", "OFF"},
        {"<Action>LULLABY</Action><Mode>RANDOM</Mode>", "LullabyMode", "RANDOM"},
        {"<Action>LULLABY</Action><Mode>ONE</Mode><Song>6</Song>", "LullabySong", "6"},
        {"<Action>LULLABY</Action><Volume>3</Volume>", "LullabyVolume", "3"},
        {"<Action>NIGHT_LIGHT</Action><Setting>1</Setting>", "Nightlight", "1"},
    };
    for (const auto &row : rows) {
        const std::string reply = remote(row.elements);
        EXPECT_EQ(reply.find("ErrorCode"), reply.npos) << reply;
        EXPECT_EQ(state()["status"][row.status], row.value) << row.elements;
    }
    EXPECT_EQ(remote("<Action>STREAM_CHANGE</Action><STREAM>RTP_H264_HD</STREAM>"),
              "<RemoteControl><Action>STREAM_CHANGE</Action></RemoteControl>");
    EXPECT_EQ(remote("<Action>STREAM_CHANGE</Action><STREAM></STREAM>"),
              "<RemoteControl><ErrorCode>-4</ErrorCode></RemoteControl>");
    EXPECT_EQ(state()["stream"], "RTP_H264_HD");
    EXPECT_EQ(remote("<Action>DANCE</Action>"), "<RemoteControl><ErrorCode>-3</ErrorCode></RemoteControl>");
    EXPECT_EQ(cgi("/CGI/RemoteControl", "\r\n\r\n"), "<RemoteControl></RemoteControl>");
}

TEST_F(CameraTest, audio_is_kept_to_the_byte) {
    std::string wav = "RIFF";
    for (int i = 0; i < 72000; ++i) wav += static_cast<char>(i * 7);
    EXPECT_EQ(control("GET", "/audio/1", nullptr, 404), json({{"error", "no clip has come yet"}}));
    EXPECT_EQ(control("GET", "/photo-last", nullptr, 404), json({{"error", "no photo was taken yet"}}));
    remote("<Action>AUDIO_ON</Action>");
    EXPECT_EQ(cgi("/CGI/MobileAudio", wav), "<MobileAudio><Action>MOBILE_AUDIO</Action></MobileAudio>");
    EXPECT_EQ(control_bytes("/audio/1"), wav);
    EXPECT_EQ(control("GET", "/audio/2", nullptr, 404),
              json({{"error", "there is no clip 2; the newest is 1"}}));
    const json shown = state();
    EXPECT_EQ(shown["audio_clips"], 1);
    EXPECT_EQ(shown["last_audio_bytes"], 72004);
    EXPECT_EQ(shown["speaker"], true);
}

TEST_F(CameraTest, every_request_is_recorded_to_the_byte) {
    const json before = control("GET", "/requests?since=0");
    ASSERT_EQ(before.size(), 1u);  // the login of the set-up
    EXPECT_EQ(before[0]["target"], "/CGI/CameraLogin?Device=Camera&Stream=Stream1");
    cgi("/CGI/CameraSetup?a=b", std::string("a\0\xE9\n", 4));
    const json record = control("GET", "/requests?since=1");
    ASSERT_EQ(record.size(), 1u);
    const json &last = record[0];
    EXPECT_EQ(last["seq"], 2);
    EXPECT_EQ(last["method"], "POST");
    EXPECT_EQ(last["target"], "/CGI/CameraSetup?a=b");
    EXPECT_EQ(last["endpoint"], "CameraSetup");
    EXPECT_EQ(last["cookie"], "Session=" + session);
    EXPECT_EQ(last["headers"]["Content-Length"], "4");
    EXPECT_EQ(last["body"], std::string("a\0\xC3\xA9\n", 5));
    EXPECT_EQ(last["body_base64"], "YQDpCg==");
    EXPECT_EQ(last["status"], 200);
    EXPECT_EQ(last["reply"].get<std::string>().rfind("HTTP/1.1 200 OK\r\n", 0), 0u);
    EXPECT_EQ(last["fault"], nullptr);
    EXPECT_GE(last["end_ms"], last["time_ms"]);
    cgi("/CGI/CameraInfo?");
    EXPECT_EQ(control("GET", "/requests?endpoint=CameraSetup").size(), 1u);
    EXPECT_EQ(control("GET", "/requests?limit=1")[0]["seq"], 3);
    control("DELETE", "/requests");
    EXPECT_EQ(control("GET", "/requests"), json::array());
    EXPECT_EQ(state()["requests_total"], 3);
    EXPECT_EQ(state()["counters"], json({{"CameraInfo", 1}, {"CameraLogin", 1}, {"CameraSetup", 1}}));
}

TEST_F(CameraTest, what_the_control_side_does_not_know_is_refused) {
    control("PATCH", "/config", {{"passwort", "x"}}, 400);
    control("PATCH", "/config", {{"photo_bytes", "many"}}, 400);
    control("PATCH", "/config", {{"photo_bytes", -1}}, 400);
    control("PATCH", "/config", {{"upgrade", {{"outcome", "magic"}}}}, 400);
    control("PATCH", "/status", {{"Battery", json::array()}}, 400);
    control("POST", "/faults", {{"kind", "sulk"}}, 400);
    control("POST", "/faults", {{"kind", "delay"}, {"millis", 5}}, 400);
    control("DELETE", "/faults/7", nullptr, 400);
    EXPECT_EQ(state()["config"]["upgrade"]["outcome"], "success");
}

}  // namespace
