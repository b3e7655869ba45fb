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
using desk::json_reply;

// Asks again and again until `condition` holds; false after a minute.
bool eventually(const std::function<bool()> &condition);

// All that a shell command prints, errors included.
std::string output_of(const std::string &command);

// A folder that is removed at the end.
class scratch_folder {
  public:
    scratch_folder();
    ~scratch_folder();
    scratch_folder(const scratch_folder &) = delete;
    scratch_folder &operator=(const scratch_folder &) = delete;
    std::string path(const std::string &name) const {
        return path_ + "/" + name;
    }

  private:
    std::string path_;
};

class agent_process {
  public:
    explicit agent_process(std::map<std::string, std::string> environment = {});
    // Ends the agent; the test fails when it did not end well (a sanitizer's report is not well).
    ~agent_process();
    agent_process(const agent_process &) = delete;
    agent_process &operator=(const agent_process &) = delete;

    json_reply ask(const std::string &method, const std::string &target, const json &body = nullptr);
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
    const scratch_folder &folder() const {
        return folder_;
    }
    // Waits for the end of an agent that ends by itself; returns its wait status.
    int wait_for_end();

  private:
    json good(const std::string &method, const std::string &target, const json &body);

    scratch_folder folder_;
    pid_t pid_ = -1;
    int port_ = 0, input_ = -1;
};
