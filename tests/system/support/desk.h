// A whole device for one test: the simulated camera, the real agent under bent time, and both control
// interfaces. A test runs in a device view of its own, so one Desk at a time owns /tmp.
//
// What is run can be chosen from outside, so that the same tests serve an agent of another architecture:
//   VELO_AGENT            the agent's binary
//   VELO_AGENT_LAUNCHER   what runs it, e.g. "qemu-arm -L /usr/arm-linux-gnueabihf"
//   VELO_BEND             the time-bending preload of its architecture
//   VELO_SPEED_LIMIT      the highest speed that this way of running keeps up with
//   LD_LIBRARY_PATH       where it finds its libraries
//
// A Desk belongs to the test's thread; only camera(), sdk() and call() may be used from others.
#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "json_client.h"
#include "process.h"
#include "wait.h"

struct DeskOptions {
    double speed = 50;  // bent seconds per second of the agent; a busy machine gets slower ones (least_speed)
    // The test wants so much even where the machine is too busy for the agent's time-outs, which are bent
    // with it: it does not mind transfers that fail.
    double least_speed = 0;
    std::map<std::string, std::optional<std::string>> conf;  // configuration overrides; none removes the key
    std::map<std::string, std::string> environment;          // the agent's, beside the test's own
    json camera_config = nullptr;                            // what the camera is configured with beforehand
    bool reserve = true;  // the reserve file lies on the SD card already (writing it takes its time)
    // The shell line that becomes the agent ("$@"); empty: output to the files that log() and errors() read.
    std::string launch;
    enum { not_started, started, polling } wait = polling;  // what the constructor waits for
};

class Desk {
  public:
    // Starts camera and agent. `polling`: the cloud thread has said "vq_ipca_init return" and a poll cycle is
    // over. `started`: the agent's process runs. `not_started`: only the camera runs.
    explicit Desk(DeskOptions options = {});
    // Stops everything. Fails the test when the agent ended by itself, or a sanitizer or the leak checker
    // reported; prints the tail of the agent's log when the test has failed.
    ~Desk();
    Desk(const Desk &) = delete;
    Desk &operator=(const Desk &) = delete;

    void start_agent();
    void stop_agent();
    // Waits until the agent that runs now, also after a reboot that has been counted, polls.
    void wait_until_polling();
    // From now on the agent's end is no failure.
    void expect_end() {
        end_expected_ = true;
    }

    // The camera's control interface (devkit/camera/README.md). Throws where it answers an error.
    json camera(const std::string &method, const std::string &path, const json &body = nullptr) const;
    void set_status(const std::string &name, const std::string &value) const;
    // Orders a misbehaviour and returns its id.
    int fault(const json &order) const;
    void clear_faults() const;
    // The record of requests after `since`, oldest first, of one endpoint where one is named.
    std::vector<json> requests(const std::string &endpoint = "", long since = 0) const;
    long last_request() const;  // its seq; 0 before the first
    json camera_state() const {
        return camera("GET", "/state");
    }

    // The SDK stand-in's interface (devkit/vendor/README.md). Throws while the agent is not up.
    json sdk(const std::string &method, const std::string &path, const json &body = nullptr) const;
    // Calls a handler once and returns its result; `more` is merged into the order.
    json call(const std::string &name, const json &arguments, const json &more = nullptr) const;
    // The status codes of the alarms with a seq above `since`.
    std::vector<int> alarms(long since = 0) const;
    long last_alarm() const;  // its seq; 0 before the first

    // The agent's standard output so far, over all its starts, and its standard error.
    const std::string &log();
    std::string errors() const;
    // Waits until `text` stands in the log at or after `from`; returns the position behind it. Lines of other
    // threads may stand between its lines.
    size_t wait_for_log(const std::string &text, size_t from = 0);
    // The same for several texts, one behind the other.
    size_t wait_for_logs(const std::vector<std::string> &texts, size_t from = 0);
    // How often `text` stands in the log at or after `from`.
    int count_in_log(const std::string &text, size_t from = 0);
    // Waits for the end of `cycles` more poll cycles that begin after now.
    void wait_for_cycles(int cycles);

    pid_t agent_pid() const;
    int reboots() const;
    // The calls of the device tools, oldest first; of one tool where one is named.
    std::vector<json> tool_calls(const std::string &tool = "") const;
    // Sets how a device tool answers: `what` is "stdout", "exit", "delay" or "step".
    void set_tool(const std::string &tool, const std::string &what, const std::string &value) const;
    void step_wall_clock(double seconds) const;

    std::string conf_value(const std::string &key) const;
    void write_conf(const std::map<std::string, std::optional<std::string>> &changes);

    int camera_port() const {
        return cgi_port_;
    }
    double speed() const {
        return options_.speed;
    }
    // Real seconds that a call may cost beside the time that it waits, on a machine as busy as at the start.
    double call_cost() const {
        return 0.25 * busyness_;
    }

  private:
    void start_camera();
    std::vector<std::string> agent_command() const;
    std::map<std::string, std::string> agent_environment() const;
    int sdk_port() const;
    void check_leaks() const;
    void report_sanitizers() const;
    void print_tail();

    DeskOptions options_;
    double busyness_;  // tasks for each core, at least 1
    std::map<std::string, std::optional<std::string>> conf_;
    pid_t camera_pid_ = -1;
    pid_t supervisor_ = -1;
    int cgi_port_ = 0, control_port_ = 0;
    bool end_expected_ = false;
    // Beyond the reboots counted, that the log told of before the supervisor was started.
    int former_starts_ = 0;
    std::string log_;
};

// Whether the agent is built with a sanitizer: its memory figures then say nothing.
bool sanitized_agent();

// Bytes that the agent has allocated and not freed, at a quiet moment: the least of some readings, since a
// transfer that is under way holds its own. Unlike resident memory, which tells what the busiest moment took,
// this tells what is kept. None where nobody can tell: a sanitizer has an allocator of its own.
std::optional<double> heap_in_use(const Desk &desk);

// Descriptors, threads and memory of the agent, to be compared after a trial.
struct AgentSize {
    int descriptors;
    int threads;
    std::optional<double> heap;  // bytes in use
    long mapped_kib;  // writable memory of its own: heap, and the stacks of threads that nobody joined
};
AgentSize agent_size(const Desk &desk);

// Waits until the agent has its former descriptors and threads, and as much memory as before and `slack_kib`.
// Transfers, ports and connections of the control interfaces come and go, hence the waiting.
void expect_same_size(const Desk &desk, const AgentSize &before, long slack_kib = 64);
