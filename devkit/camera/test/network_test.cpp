// The network around the camera: vanishing, refusing, restarting; keep-alive and the count of requests at
// once.

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "camera_fixture.h"

namespace {

const std::string kBattery = "/CGI/CameraStatus?Battery";
const std::string kBatteryBody = "<CameraStatus><Battery>90</Battery></CameraStatus>";

class NetworkTest : public CameraTest {};

// Whether something can be read or written within the time.
bool ready(int fd, short events, int ms) {
    pollfd entry{fd, events, 0};
    return poll(&entry, 1, ms) == 1;
}

int start_connecting(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(static_cast<uint16_t>(port));
    peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr *>(&peer), sizeof peer), -1);
    EXPECT_EQ(errno, EINPROGRESS);
    return fd;
}

TEST_F(NetworkTest, nobody_connects_to_a_vanished_host) {
    control("POST", "/vanish");
    EXPECT_EQ(state()["network"], "vanished");
    const int fd = start_connecting(cgi_port);
    EXPECT_FALSE(ready(fd, POLLOUT, 300)) << "neither a handshake nor a refusal may arrive";
    control("POST", "/appear");
    EXPECT_TRUE(ready(fd, POLLOUT, 10000)) << "the repeated SYN is answered";
    close(fd);
    EXPECT_EQ(cgi(kBattery), kBatteryBody);
}

TEST_F(NetworkTest, a_closed_port_vanishes_too) {
    control("POST", "/refuse");
    control("POST", "/vanish");
    const int fd = start_connecting(cgi_port);
    EXPECT_FALSE(ready(fd, POLLOUT, 300));
    close(fd);
    control("POST", "/appear");
    EXPECT_EQ(RawConnection(cgi_port).error, ECONNREFUSED);
    control("POST", "/accept");
    EXPECT_EQ(cgi(kBattery), kBatteryBody);
}

TEST_F(NetworkTest, an_open_connection_falls_silent_and_comes_back) {
    RawConnection connection(cgi_port);
    EXPECT_TRUE(eventually([&] { return state()["connections"] == 1; }));
    control("POST", "/vanish");
    connection.send(request_text(kBattery, "", session));
    EXPECT_FALSE(ready(connection.fd, POLLIN, 200));
    tcp_info info{};
    socklen_t size = sizeof info;
    getsockopt(connection.fd, IPPROTO_TCP, TCP_INFO, &info, &size);
    EXPECT_GT(info.tcpi_unacked, 0u) << "not even an acknowledgement may arrive";
    control("POST", "/appear");
    EXPECT_EQ(body_of(connection.read_to_end()), kBatteryBody);
}

TEST_F(NetworkTest, a_reply_under_way_stops_when_the_host_vanishes) {
    control("POST", "/faults", {{"kind", "hang"}});
    RawConnection connection(cgi_port);
    connection.send(request_text(kBattery, "", session));
    EXPECT_TRUE(eventually([&] { return state()["in_progress"] == 1; }));
    control("POST", "/vanish");
    EXPECT_EQ(state()["in_progress"], 0);
    control("DELETE", "/faults");
    EXPECT_TRUE(eventually([&] { return control("GET", "/requests?limit=1")[0]["status"] == 200; }))
        << "the reply is ready to leave";
    EXPECT_FALSE(ready(connection.fd, POLLIN, 200));
    control("POST", "/restart");
    EXPECT_FALSE(ready(connection.fd, POLLIN, 100)) << "a vanished host ends no connection either";
    control("POST", "/appear");
    EXPECT_EQ(connection.read_to_end(), "");
}

TEST_F(NetworkTest, an_idle_connection_ends_with_a_restart_once_the_host_is_back) {
    RawConnection connection(cgi_port);
    EXPECT_TRUE(eventually([&] { return state()["connections"] == 1; }));
    control("POST", "/vanish");
    control("POST", "/restart");
    EXPECT_FALSE(ready(connection.fd, POLLIN, 100));
    control("POST", "/appear");
    EXPECT_EQ(connection.read_to_end(), "");
    EXPECT_TRUE(eventually([&] { return state()["connections"] == 0; }));
}

TEST_F(NetworkTest, a_closed_port_refuses_until_it_is_opened) {
    RawConnection before(cgi_port);
    EXPECT_TRUE(eventually([&] { return state()["connections"] == 1; }));
    control("POST", "/refuse");
    EXPECT_EQ(state()["network"], "refusing");
    EXPECT_EQ(RawConnection(cgi_port).error, ECONNREFUSED);
    before.send(request_text(kBattery, "", session));
    EXPECT_EQ(body_of(before.read_to_end()), kBatteryBody);
    control("POST", "/accept");
    EXPECT_EQ(state()["network"], "up");
    EXPECT_EQ(cgi(kBattery), kBatteryBody);
}

TEST_F(NetworkTest, a_restart_drops_connections_and_keys) {
    control("POST", "/faults", {{"kind", "hang"}, {"count", 1}});
    RawConnection connection(cgi_port);
    connection.send(request_text(kBattery, "", session));
    EXPECT_TRUE(eventually([&] { return state()["in_progress"] == 1; }));
    control("PATCH", "/settings/MOTION_DETECTION", {{"ENABLE", "ON"}});
    control("POST", "/restart");
    EXPECT_EQ(connection.read_to_end(), "");
    EXPECT_EQ(cgi(kBattery), "<CameraStatus><ErrorCode>-2</ErrorCode></CameraStatus>");
    EXPECT_EQ(login(), "2000002");
    EXPECT_EQ(state()["settings"]["MOTION_DETECTION"]["ENABLE"], "ON");
}

TEST_F(NetworkTest, a_connection_serves_several_requests) {
    RawConnection connection(cgi_port);
    const std::string request = "GET " + kBattery + " HTTP/1.1\r\nCookie: Session=" + session + "\r\n\r\n";
    connection.send(request);
    EXPECT_EQ(body_of(connection.read_some()), kBatteryBody);
    connection.send(request + request_text(kBattery, "", session));
    const std::string both = connection.read_to_end();
    EXPECT_EQ(both.find(kBatteryBody), both.find("\r\n\r\n") + 4);
    EXPECT_NE(both.rfind(kBatteryBody), both.find(kBatteryBody));
    EXPECT_EQ(state()["requests_total"], 4);
}

TEST_F(NetworkTest, a_body_may_wait_to_be_asked_for) {
    RawConnection connection(cgi_port);
    connection.send("POST /CGI/CameraSetup HTTP/1.1\r\nCookie: Session=" + session +
                    "\r\nExpect: 100-continue\r\nContent-Length: 3\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(connection.read_some(), "HTTP/1.1 100 Continue\r\n\r\n");
    connection.send("a");
    connection.send("bc");
    EXPECT_EQ(body_of(connection.read_to_end()), "<CameraSetup></CameraSetup>");
    EXPECT_EQ(control("GET", "/requests?limit=1")[0]["body"], "abc");
}

TEST_F(NetworkTest, what_is_not_http_is_refused) {
    for (const std::string text : {"hello\r\n\r\n", "GET / HTTP/1.1\r\nContent-Length: x\r\n\r\n",
                                   "GET / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n"}) {
        RawConnection connection(cgi_port);
        connection.send(text);
        EXPECT_TRUE(connection.read_to_end().starts_with("HTTP/1.1 400 Bad Request\r\n")) << text;
    }
}

TEST_F(NetworkTest, one_after_another_is_never_two_at_once) {
    for (int i = 0; i < 200; ++i) ASSERT_EQ(cgi(kBattery), kBatteryBody);
    EXPECT_EQ(state()["max_concurrent"], 1);
}

TEST_F(NetworkTest, an_abandoned_request_is_no_longer_in_progress) {
    control("POST", "/faults", {{"kind", "hang"}, {"count", 20}});
    for (int i = 0; i < 20; ++i) {
        RawConnection connection(cgi_port);
        connection.send(request_text(kBattery, "", session));
        ASSERT_TRUE(eventually([&] { return state()["requests_total"] == i + 2; }));
    }
    EXPECT_EQ(cgi(kBattery), kBatteryBody);
    EXPECT_EQ(state()["max_concurrent"], 1);
}

TEST_F(NetworkTest, requests_at_once_are_counted) {
    const int id = control("POST", "/faults", {{"kind", "hang"}})["id"];
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) threads.emplace_back([&] { EXPECT_EQ(cgi(kBattery), kBatteryBody); });
    EXPECT_TRUE(eventually([&] { return state()["in_progress"] == 3; }));
    control("DELETE", "/faults/" + std::to_string(id));
    for (auto &thread : threads) thread.join();
    EXPECT_EQ(state()["max_concurrent"], 3);
    control("DELETE", "/requests");
    EXPECT_EQ(state()["max_concurrent"], 0);
}

TEST_F(NetworkTest, a_busy_port_is_an_error_of_its_own) {
    EXPECT_EQ(run_camera({"camera", "--sd", card, "--cgi-port", std::to_string(cgi_port)}), 2);
    EXPECT_EQ(run_camera({"camera", "--sd", card, "--control-port", std::to_string(control_port)}), 2);
    EXPECT_EQ(run_camera({"camera", "--speed", "0"}), 1);
}

}  // namespace
