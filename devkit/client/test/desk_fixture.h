// A server that answers as told and keeps what it was asked, and the client run against it.
#ifndef DEVKIT_CLIENT_TEST_DESK_FIXTURE_H
#define DEVKIT_CLIENT_TEST_DESK_FIXTURE_H

#include <gtest/gtest.h>
#include <httplib.h>
#include <sys/wait.h>
#include <nlohmann/json.hpp>

#include <condition_variable>
#include <fstream>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

struct Outcome {
    std::string output;
    int exit_code;
};

inline Outcome run_shell(const std::string &command) {
    setenv("TZ", "UTC", 1);
    std::FILE *pipe = popen((command + " 2>&1").c_str(), "r");
    Outcome result;
    for (int character = std::fgetc(pipe); character != EOF; character = std::fgetc(pipe)) {
        result.output += static_cast<char>(character);
    }
    result.exit_code = WEXITSTATUS(pclose(pipe));
    return result;
}

inline Outcome run_desk(const std::string &arguments) {
    return run_shell(DESK " " + arguments);
}

class Desk : public testing::Test {
  protected:
    Desk() {
        const auto keep = [this](const httplib::Request &request, httplib::Response &response) {
            const std::lock_guard lock(mutex_);
            asked_ += request.method + " " + request.target +
                      (request.body.empty() ? "" : " " + request.body) + "\n";
            arrived_.notify_all();
            response.status = status_;
            response.set_content(reply_, "application/json");
        };
        server_.Get(".*", keep).Put(".*", keep).Post(".*", keep).Patch(".*", keep).Delete(".*", keep);
        port_ = server_.bind_to_any_port("127.0.0.1");
        listener_ = std::thread([this] { server_.listen_after_bind(); });
        std::ofstream("/tmp/camera.json") << "{\"cgi\":1,\"control\":" << port_ << ",\"pid\":2}";
        std::ofstream("/tmp/console.json") << "{\"port\":" << port_ << ",\"pid\":2}";
        start_agent(2);
        setenv("DESK_RUN", "/tmp", 1);
        while (!server_.is_running()) std::this_thread::yield();
    }

    ~Desk() override {
        server_.stop();
        listener_.join();
    }

    // What the client is told of a start of the agent.
    void start_agent(int pid) {
        std::ofstream("/tmp/sdk.json") << "{\"port\":" << port_ << ",\"pid\":" << pid << "}";
    }

    // What the client has asked, a line each.
    std::string asked() {
        const std::lock_guard lock(mutex_);
        return asked_;
    }

    // Waits until the client has asked this once more, so that what it answers from now on is news to it.
    void wait_until_asked(const std::string &line) {
        std::unique_lock lock(mutex_);
        const size_t from = asked_.size();
        arrived_.wait(lock, [&] { return asked_.find(line + "\n", from) != std::string::npos; });
    }

    void answer(const std::string &reply, int status = 200) {
        const std::lock_guard lock(mutex_);
        reply_ = reply;
        status_ = status;
    }

  private:
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::string asked_;
    std::string reply_ = "{}";
    int status_ = 200, port_ = 0;
    httplib::Server server_;
    std::thread listener_;
};

#endif
