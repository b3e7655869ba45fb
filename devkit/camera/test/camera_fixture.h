// Runs the camera program with ports and a card of its own for each test, and talks to it: raw bytes to the
// CGI, JSON to the control.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

using json = nlohmann::ordered_json;

// A TCP connection to the camera as a test sees it; closed by its destructor.
class RawConnection {
  public:
    explicit RawConnection(int port);
    ~RawConnection();
    RawConnection(const RawConnection &) = delete;
    RawConnection &operator=(const RawConnection &) = delete;

    void send(const std::string &bytes);
    // What arrives until the stream ends; `error` is then errno of the end (0 for FIN). Fails the test after
    // ten seconds.
    std::string read_to_end();
    // One piece as recv gives it.
    std::string read_some();
    int error = 0;
    int fd;
};

class CameraTest : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    // Starts a second camera program with these arguments and returns its exit code.
    static int run_camera(const std::vector<std::string> &arguments);

    json control(const std::string &method, const std::string &path, const json &body = nullptr,
                 int expected_status = 200);
    std::string control_bytes(const std::string &path);
    json state() {
        return control("GET", "/state");
    }

    // The text of a request as it goes over the wire (the connection ends after the reply); a POST when there
    // is a body.
    static std::string request_text(const std::string &target, const std::string &body,
                                    const std::string &session);
    // One request with the session key that SetUp got; the reply's body.
    std::string cgi(const std::string &target, const std::string &body = "");
    // The same, header included.
    std::string cgi_reply(const std::string &target, const std::string &body = "");
    std::string remote(const std::string &elements) {
        return cgi("/CGI/RemoteControl", "<RemoteControl>" + elements + "</RemoteControl>");
    }
    // Logs in; the key or "".
    std::string login(const std::string &password = "secret");

    std::filesystem::path folder, card;
    int cgi_port = 0, control_port = 0;
    std::string session;

  private:
    pid_t pid_ = -1;
};

// Asks until it holds; false after ten seconds.
bool eventually(const std::function<bool()> &holds);

// The body of a reply.
std::string body_of(const std::string &reply);

std::string file_text(const std::filesystem::path &path);
