// Each kind of misbehaviour as it shows on the wire.

#include <cerrno>
#include <chrono>

#include "camera_fixture.h"

namespace {

const std::string kBattery = "/CGI/CameraStatus?Battery";
const std::string kBatteryBody = "<CameraStatus><Battery>90</Battery></CameraStatus>";

class FaultsTest : public CameraTest {
  protected:
    // Orders a misbehaviour for the next request and returns that request's whole reply.
    std::string reply_with(json fault) {
        fault["count"] = 1;
        control("POST", "/faults", fault);
        return cgi_reply(kBattery);
    }
};

TEST_F(FaultsTest, replies_that_only_say_something_else) {
    const struct {
        json fault;
        std::string first_line, part;
    } rows[] = {
        {{{"kind", "error_code"}, {"value", -9}},
         "HTTP/1.1 200 OK\r\n",
         "<CameraStatus><ErrorCode>-9</ErrorCode></CameraStatus>"},
        {{{"kind", "http_status"}, {"status", 503}}, "HTTP/1.1 503 Service Unavailable\r\n", "status 503"},
        {{{"kind", "redirect"}, {"location", "/CGI/Other?x"}},
         "HTTP/1.1 302 Found\r\n",
         "\r\nLocation: /CGI/Other?x\r\n"},
        {{{"kind", "http10"}}, "HTTP/1.0 200 OK\r\n", kBatteryBody},
        {{{"kind", "body"}, {"text", "<A>b</A>"}},
         "HTTP/1.1 200 OK\r\n",
         "Content-Length: 8\r\nConnection: close\r\n\r\n<A>b</A>"},
        {{{"kind", "body"}, {"text", "HTTP/1.1 abc\r\n\r\n"}, {"raw", true}}, "HTTP/1.1 abc\r\n\r\n", ""},
    };
    for (const auto &row : rows) {
        const std::string reply = reply_with(row.fault);
        EXPECT_TRUE(reply.starts_with(row.first_line)) << row.fault << reply;
        EXPECT_NE(reply.find(row.part), reply.npos) << row.fault << reply;
        EXPECT_EQ(cgi(kBattery), kBatteryBody) << "the fault outlives its count";
    }
}

TEST_F(FaultsTest, delay_holds_the_reply_back) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(body_of(reply_with({{"kind", "delay"}, {"ms", 60}})), kBatteryBody);
    EXPECT_EQ(body_of(reply_with({{"kind", "body"}, {"text", "x"}, {"delay_ms", 60}})), "x");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(120));
}

TEST_F(FaultsTest, close_and_reset_send_no_byte) {
    const struct {
        const char *kind;
        int error;
    } rows[] = {{"close", 0}, {"reset", ECONNRESET}};
    for (const auto &row : rows) {
        control("POST", "/faults", {{"kind", row.kind}, {"count", 1}});
        RawConnection connection(cgi_port);
        connection.send(request_text(kBattery, "", session));
        EXPECT_EQ(connection.read_to_end(), "");
        EXPECT_EQ(connection.error, row.error) << row.kind;
    }
    EXPECT_EQ(control("GET", "/requests?limit=1")[0]["status"], nullptr);
}

TEST_F(FaultsTest, close_leaves_the_effect_where_asked) {
    for (const bool after : {false, true}) {
        control("POST", "/faults", {{"kind", "close"}, {"after", after}, {"count", 1}});
        RawConnection connection(cgi_port);
        connection.send(request_text("/CGI/RemoteControl",
                                     "<RemoteControl><Action>AUDIO_ON</Action></RemoteControl>", session));
        EXPECT_EQ(connection.read_to_end(), "");
        EXPECT_EQ(state()["speaker"], after);
    }
}

TEST_F(FaultsTest, truncate_sends_less_than_announced) {
    const std::string reply = reply_with({{"kind", "truncate"}, {"bytes", 14}});
    EXPECT_NE(reply.find("Content-Length: " + std::to_string(kBatteryBody.size()) + "\r\n"), reply.npos);
    EXPECT_EQ(body_of(reply), "<CameraStatus>");
}

TEST_F(FaultsTest, drip_sends_byte_by_byte) {
    const auto start = std::chrono::steady_clock::now();
    const std::string reply = reply_with({{"kind", "drip"}, {"bytes", 20}, {"ms", 5}});
    EXPECT_EQ(body_of(reply), kBatteryBody);
    const auto gaps = static_cast<int>((reply.size() - 1) / 20);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(5 * gaps));
}

TEST_F(FaultsTest, pieces_arrive_one_by_one) {
    control("POST", "/faults", {{"kind", "pieces"}, {"pieces", 3}, {"ms", 150}});
    RawConnection connection(cgi_port);
    connection.send(request_text(kBattery, "", session));
    std::string body = body_of(connection.read_some());
    EXPECT_EQ(body.size(), 16u);
    for (std::string more = connection.read_some(); !more.empty(); more = connection.read_some())
        body += more;
    EXPECT_EQ(body, kBatteryBody);
}

TEST_F(FaultsTest, pieces_may_be_chunks) {
    const std::string reply = reply_with({{"kind", "pieces"}, {"chunked", true}, {"ms", 1}});
    EXPECT_NE(reply.find("\r\nTransfer-Encoding: chunked\r\n"), reply.npos);
    EXPECT_EQ(body_of(reply),
              "19\r\n<CameraStatus><Battery>90\r\n19\r\n</Battery></CameraStatus>\r\n0\r\n\r\n");
}

TEST_F(FaultsTest, oversize_appends_blanks) {
    const std::string body = body_of(reply_with({{"kind", "oversize"}, {"bytes", 200000}}));
    EXPECT_EQ(body, kBatteryBody + std::string(200000 - kBatteryBody.size(), ' '));
}

TEST_F(FaultsTest, garbage_is_no_text) {
    const std::string body = body_of(reply_with({{"kind", "garbage"}, {"bytes", 300}}));
    EXPECT_EQ(body.size(), 300u);
    EXPECT_NE(body.find('\0'), body.npos);
    const std::string raw = reply_with({{"kind", "garbage"}, {"raw", true}});
    EXPECT_EQ(raw.size(), 256u);
    EXPECT_EQ(raw.find("HTTP"), raw.npos);
}

TEST_F(FaultsTest, hang_ends_when_it_is_cleared_or_the_peer_goes) {
    const int id = control("POST", "/faults", {{"kind", "hang"}})["id"];
    {
        RawConnection leaving(cgi_port);
        leaving.send(request_text(kBattery, "", session));
        EXPECT_TRUE(eventually([&] { return state()["in_progress"] == 1; }));
    }
    EXPECT_TRUE(eventually([&] { return state()["connections"] == 0; }));
    RawConnection waiting(cgi_port);
    waiting.send(request_text(kBattery, "", session));
    EXPECT_TRUE(eventually([&] { return state()["in_progress"] == 1; }));
    control("DELETE", "/faults/" + std::to_string(id));
    EXPECT_EQ(body_of(waiting.read_to_end()), kBatteryBody);
    EXPECT_EQ(control("GET", "/faults"), json::array());
}

TEST_F(FaultsTest, a_fault_takes_the_requests_that_it_is_meant_for) {
    control("POST", "/faults",
            {{"endpoint", "CameraStatus"},
             {"match", "Battery"},
             {"kind", "error_code"},
             {"skip", 1},
             {"every", 2},
             {"count", 2}});
    EXPECT_EQ(cgi("/CGI/CameraInfo?Battery"), "<CameraInfo><UUID>Z55-0000-0001</UUID></CameraInfo>");
    EXPECT_EQ(cgi("/CGI/CameraStatus?SD"), "<CameraStatus><SD>1</SD></CameraStatus>");
    std::string taken;
    for (int i = 0; i < 8; ++i) taken += cgi(kBattery) == kBatteryBody ? "." : "x";
    EXPECT_EQ(taken, "..x.x...");
    EXPECT_EQ(control("GET", "/faults")[0]["hits"], 2);
}

TEST_F(FaultsTest, the_body_is_matched_too) {
    control("POST", "/faults", {{"match", "VIDEO_STOP"}, {"kind", "error_code"}, {"value", -7}});
    EXPECT_EQ(remote("<Action>AUDIO_ON</Action>"),
              "<RemoteControl><Action>AUDIO_ON</Action></RemoteControl>");
    EXPECT_EQ(remote("<Action>VIDEO_STOP</Action>"),
              "<RemoteControl><ErrorCode>-7</ErrorCode></RemoteControl>");
    EXPECT_EQ(control("GET", "/requests?limit=1")[0]["fault"], "error_code");
}

}  // namespace
