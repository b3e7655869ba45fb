// Scenarios: a script of troubles in a JSON file, that ends with the questions a person should ask and the
// desk's answers.
//   {"title", "about",
//    "steps": [{"after": seconds, "say": text, "to": "camera"|"sdk"|"device", "request": [method, path,
//    body],
//               "until": {"count": what, "at_least": n, "within": seconds}}],
//    "questions": [{"ask": text, "count": what, "at_least": n, "at_most": n}]}
// A step ends when what it is to bring about ("until") has come, counted since before its order, or is
// overdue. What is counted: alarms, alarms:STATUS, logins, reboots, restarts, requests, log:TEXT.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "hub.h"

class Scenarios {
  public:
    // `order` carries a step's request out and answers "" or what is wrong; it may block.
    using CarryOut = std::function<std::string(const std::string &to, const json &request)>;

    Scenarios(std::string folder, Hub &page, CarryOut order)
        : folder_(std::move(folder)), page_(page), order_(std::move(order)) {}
    // [{name, title, about, seconds (at most)}] of the folder.
    json list() const;
    // Starts one on a thread of its own; "" or what is wrong: no such name, or one runs.
    std::string start(const std::string &name);
    // The one that runs ends with its present step, at once where that waits.
    void stop() {
        stopping_ = true;
    }

  private:
    json load(const std::string &name) const;
    void run(const json &script);
    std::string take(const json &step) const;
    bool wait(double seconds, const std::function<bool()> &holds) const;
    void pause(double seconds) const;
    std::string wait_for(const json &expected, const json &before) const;
    void show(const json &script, const json &said, const json &answers) const;
    json answers(const json &script, const json &before) const;

    std::string folder_;
    Hub &page_;
    CarryOut order_;
    std::atomic<bool> running_{false}, stopping_{false};
    std::mutex starting_;  // guards runner_
    std::thread runner_;   // of the one that runs or ran last
};
