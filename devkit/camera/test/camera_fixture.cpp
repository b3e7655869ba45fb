#include "camera_fixture.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <httplib.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <thread>

namespace {

constexpr std::chrono::seconds kPatience(10);

pid_t start_program(std::vector<std::string> arguments) {
    std::vector<char *> list;
    for (auto &argument : arguments) list.push_back(argument.data());
    list.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    posix_spawn(&pid, CAMERA_PROGRAM, &files, nullptr, list.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    return pid;
}

int exit_code(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

RawConnection::RawConnection(int port) : fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(static_cast<uint16_t>(port));
    peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&peer), sizeof peer) != 0) error = errno;
}

RawConnection::~RawConnection() {
    close(fd);
}

void RawConnection::send(const std::string &bytes) {
    EXPECT_EQ(::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
}

std::string RawConnection::read_some() {
    pollfd entry{fd, POLLIN, 0};
    if (poll(&entry, 1, 10000) != 1) {
        ADD_FAILURE() << "nothing arrived within ten seconds";
        return "";
    }
    std::string bytes(65536, '\0');
    const ssize_t received = recv(fd, bytes.data(), bytes.size(), 0);
    error = received < 0 ? errno : 0;
    bytes.resize(received > 0 ? static_cast<std::size_t>(received) : 0);
    return bytes;
}

std::string RawConnection::read_to_end() {
    std::string all;
    for (;;) {
        const std::string some = read_some();
        if (some.empty()) return all;
        all += some;
    }
}

void CameraTest::SetUp() {
    std::string name = testing::TempDir() + "camera-test-XXXXXX";
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    folder = name;
    card = folder / "card";
    std::filesystem::create_directory(card);
    std::ofstream(folder / "tool") << "#!/bin/sh\necho \"$@\" >>" << folder / "reboots"
                                   << "\n";
    std::filesystem::permissions(folder / "tool", std::filesystem::perms::owner_all);
    const auto ports_file = folder / "ports.json";
    pid_ = start_program({"camera", "--sd", card, "--ports-file", ports_file, "--speed", "20",
                          "--reboot-tool", folder / "tool"});
    ASSERT_TRUE(eventually([&] { return std::filesystem::exists(ports_file); }));
    const json ports = json::parse(file_text(ports_file));
    cgi_port = ports["cgi"];
    control_port = ports["control"];
    ASSERT_EQ(ports["pid"], pid_);
    session = login();
    ASSERT_NE(session, "");
}

void CameraTest::TearDown() {
    if (pid_ > 0) {
        kill(pid_, SIGTERM);
        EXPECT_EQ(exit_code(pid_), 0);
        EXPECT_FALSE(std::filesystem::exists(folder / "ports.json"));
    }
    std::filesystem::remove_all(folder);
}

int CameraTest::run_camera(const std::vector<std::string> &arguments) {
    return exit_code(start_program(arguments));
}

json CameraTest::control(const std::string &method, const std::string &path, const json &body,
                         int expected_status) {
    httplib::Client client("127.0.0.1", control_port);
    httplib::Request request;
    request.method = method;
    request.path = path;
    request.set_header("Content-Type", "application/json");
    request.body = body.is_null() ? "" : body.dump();
    const auto result = client.send(request);
    if (!result) {
        ADD_FAILURE() << method << " " << path << ": no answer";
        return nullptr;
    }
    EXPECT_EQ(result->status, expected_status) << method << " " << path << ": " << result->body;
    return json::parse(result->body, nullptr, false);
}

std::string CameraTest::control_bytes(const std::string &path) {
    const auto result = httplib::Client("127.0.0.1", control_port).Get(path);
    return result && result->status == 200 ? result->body : "";
}

std::string CameraTest::request_text(const std::string &target, const std::string &body,
                                     const std::string &session) {
    const std::string method = body.empty() ? "GET" : "POST";
    return method + " " + target + " HTTP/1.1\r\nHost: camera\r\nCookie: Session=" + session +
           "\r\nConnection: close\r\n" +
           (body.empty() ? "" : "Content-Length: " + std::to_string(body.size()) + "\r\n") + "\r\n" + body;
}

std::string CameraTest::cgi_reply(const std::string &target, const std::string &body) {
    RawConnection connection(cgi_port);
    connection.send(request_text(target, body, session));
    return connection.read_to_end();
}

std::string CameraTest::cgi(const std::string &target, const std::string &body) {
    return body_of(cgi_reply(target, body));
}

std::string CameraTest::login(const std::string &password) {
    const std::string reply =
        cgi_reply("/CGI/CameraLogin?Device=Camera&Stream=Stream1", "password=" + password);
    const std::string start = "\r\nSet-Cookie: Session=", end = "; path=/\r\n";
    const auto from = reply.find(start);
    if (from == reply.npos) return "";
    return reply.substr(from + start.size(), reply.find(end) - from - start.size());
}

bool eventually(const std::function<bool()> &holds) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!holds()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

std::string body_of(const std::string &reply) {
    const auto end = reply.find("\r\n\r\n");
    return end == reply.npos ? "no reply: " + reply : reply.substr(end + 4);
}

std::string file_text(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}
