// Scenarios: a script of troubles in a JSON file, that ends with the questions a person should ask and the
// desk's answers.
//   {"title", "about", "steps": [{"after": seconds, "say": text, "to": "camera"|"sdk"|"device", "request":
//   [method, path, body]}],
//    "questions": [{"ask": text, "count": what, "at_least": n, "at_most": n}]}
// What is counted, from the beginning on: alarms, alarms:STATUS, logins, reboots, requests, log:TEXT.
#pragma once

#include <atomic>
#include <functional>
#include <string>

#include "hub.h"

class Scenarios {
  public:
    // `order` carries a step's request out and answers "" or what is wrong; it may block.
    using CarryOut = std::function<std::string(const std::string &to, const json &request)>;

    Scenarios(std::string folder, Hub &page, CarryOut order)
        : folder_(std::move(folder)), page_(page), order_(std::move(order)) {}
    // [{name, title, about, seconds}] of the folder.
    json list() const;
    // Starts one on a thread of its own; "" or what is wrong: no such name, or one runs.
    std::string start(const std::string &name);
    // The one that runs ends after its present step.
    void stop() {
        stopping_ = true;
    }

  private:
    json load(const std::string &name) const;
    void run(const json &script);
    bool pause(double seconds) const;
    void show(const json &script, size_t step, const json &answers) const;
    json answers(const json &script, const json &before) const;

    std::string folder_;
    Hub &page_;
    CarryOut order_;
    std::atomic<bool> running_{false}, stopping_{false};
};
