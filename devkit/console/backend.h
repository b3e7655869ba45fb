// The two JSON interfaces behind the page: the camera's control interface and the SDK stand-in inside the
// agent. Their ports stand in files of the run folder and are looked up at each request, because an agent
// that restarts has another.
#pragma once

#include <optional>
#include <string>

#include "json.h"

enum class Side { camera, sdk };

struct Answer {
    int status;  // 502 where nobody answers, with {"error": ...} as the body
    std::string body, type;
};

class Backend {
  public:
    explicit Backend(std::string run_folder) : run_(std::move(run_folder)) {}

    // Blocks as long as the handler takes, at most `seconds`.
    Answer send(Side to, const std::string &method, const std::string &path, const std::string &body = "",
                int seconds = 3600) const;
    // The parsed body of an answer of 2xx; nothing for any other. Waits 5 seconds at most.
    std::optional<json> ask(Side to, const std::string &method, const std::string &path,
                            const json &body = nullptr) const;
    // The agent's process as the stand-in sees it; 0 while there is none.
    int agent_pid() const;
    const std::string &folder() const {
        return run_;
    }

  private:
    json ports(Side of) const;

    std::string run_;
};
