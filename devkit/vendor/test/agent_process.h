// Runs the fake agent with the stand-ins and talks to their JSON interface. Each test has its own, in a
// folder of its own.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <functional>
#include <map>
#include <string>

#include "json_http.h"

using desk::json;
using desk::JsonReply;

// Asks again and again until `condition` holds; false after a minute.
bool eventually(const std::function<bool()> &condition);

// All that a shell command prints, errors included.
std::string output_of(const std::string &command);

// A folder that is removed at the end.
class ScratchFolder {
  public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder &) = delete;
    ScratchFolder &operator=(const ScratchFolder &) = delete;
    std::string path(const std::string &name) const {
        return path_ + "/" + name;
    }

  private:
    std::string path_;
};

class AgentProcess {
  public:
    explicit AgentProcess(std::map<std::string, std::string> environment = {});
    // Ends the agent; the test fails when it did not end well (a sanitizer's report is not well).
    ~AgentProcess();
    AgentProcess(const AgentProcess &) = delete;
    AgentProcess &operator=(const AgentProcess &) = delete;

    JsonReply ask(const std::string &method, const std::string &target, const json &body = nullptr);
    // The body of a reply that must be 200.
    json get(const std::string &target);
    json put(const std::string &target, const json &body);
    json post(const std::string &target, const json &body);
    // The only result of one call.
    json call(const std::string &name, const json &args, json order = json::object());

    int port() const {
        return port_;
    }
    pid_t pid() const {
        return pid_;
    }
    const ScratchFolder &folder() const {
        return folder_;
    }
    // Waits for the end of an agent that ends by itself; returns its wait status.
    int wait_for_end();

  private:
    json good(const std::string &method, const std::string &target, const json &body);

    ScratchFolder folder_;
    pid_t pid_ = -1;
    int port_ = 0, input_ = -1;
};
