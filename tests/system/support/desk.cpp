#include "desk.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <thread>

#include "conf_text.h"

namespace fs = std::filesystem;

namespace {

constexpr char kConfiguration[] = "/tmp/working/VeloAgent.conf";
constexpr char kCameraPorts[] = "/tmp/camera.json";
constexpr char kSdkPorts[] = "/tmp/sdk.json";
constexpr char kAgentLog[] = "/tmp/agent.log";
constexpr char kFirstLine[] = "Try log VeloAgent init time...........\n";
constexpr char kAgentErrors[] = "/tmp/agent.err";
constexpr char kSanitizerReports[] = "/tmp/sanitizer";  // with ".PID" appended
constexpr char kState[] = "/tmp/.device/";
constexpr size_t kTailBytes = 6000;
constexpr long kKeptStacksKib = 96 * 1024;  // the C library keeps some for the next threads

std::string from_environment(const char *name, const std::string &otherwise) {
    const char *value = std::getenv(name);
    return value != nullptr && *value != '\0' ? value : otherwise;
}

std::vector<std::string> words(const std::string &text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

std::string device_program(const char *name) {
    return std::string(DESK_DEVICE_DIR) + "/" + name;
}

// What the agent is built with shows in the runtime that it starts.
enum class Sanitizer { none, address, thread };
Sanitizer agent_sanitizer() {
    static const Sanitizer found = [] {
        const std::string binary = file_text(from_environment("VELO_AGENT", DESK_AGENT));
        if (binary.find("__asan_init") != std::string::npos) return Sanitizer::address;
        return binary.find("__tsan_init") != std::string::npos ? Sanitizer::thread : Sanitizer::none;
    }();
    return found;
}

// Tasks that want to run, to each core: now, or over the last minute where that was more.
double tasks_per_core() {
    double last_minute = 0, waiting = 0, skipped = 0;
    std::ifstream("/proc/loadavg") >> last_minute >> skipped >> skipped >> waiting;
    return std::max(last_minute, waiting) / static_cast<double>(std::thread::hardware_concurrency());
}

// The agent's shortest time-out, two seconds to connect, is bent with everything else. On a machine where a
// task waits for its turn it must stay longer than a wait can be.
double speed_limit(const DeskOptions &options, double tasks) {
    constexpr double kLeisurely = 50;
    const double built_for =
        std::stod(from_environment("VELO_SPEED_LIMIT", sanitized_agent() ? "20" : "10000"));
    if (tasks <= 1) return built_for;
    return std::min(built_for, std::max(kLeisurely / tasks, options.least_speed));
}

// The end of the lines of `text`, one behind the other in `log` at or after `from`; npos when one is missing.
size_t end_of_lines(const std::string &log, const std::string &text, size_t from) {
    for (size_t start = 0; start < text.size() && from != std::string::npos;) {
        const size_t words = std::min(text.find_first_not_of('\n', start), text.size() - 1);
        const size_t size = std::min(text.find('\n', words), text.size() - 1) + 1 - start;
        const size_t found = log.find(text.substr(start, size), from);
        from = found == std::string::npos ? found : found + size;
        start += size;
    }
    return from;
}

std::string tail(const std::string &text) {
    return text.size() > kTailBytes ? text.substr(text.size() - kTailBytes) : text;
}

}  // namespace

bool sanitized_agent() {
    return agent_sanitizer() != Sanitizer::none;
}

Desk::Desk(DeskOptions options) : options_(std::move(options)), busyness_(std::max(tasks_per_core(), 1.0)) {
    options_.speed = std::min(options_.speed, speed_limit(options_, busyness_));
    start_camera();
    conf_ = default_conf("127.0.0.1:" + std::to_string(cgi_port_));
    write_conf(options_.conf);
    if (options_.reserve) std::ofstream("/tmp/fuse_d/.ota.tmp") << "reserved";
    set_tool("ntpdate", "stdout", "");  // the agent's log is then the agent's own alone
    if (options_.wait != DeskOptions::not_started) start_agent();
    try {
        if (options_.wait == DeskOptions::polling) wait_until_polling();
    } catch (const std::exception &) {
        print_tail();
        throw;
    }
}

Desk::~Desk() {
    try {
        if (supervisor_ > 0) {
            if (!end_expected_ && !runs(supervisor_)) ADD_FAILURE() << "the agent has ended by itself";
            if (runs(supervisor_)) check_leaks();
            stop_agent();
        }
        report_sanitizers();
        if (testing::Test::HasFailure() || std::uncaught_exceptions() > 0) print_tail();
    } catch (const std::exception &error) {
        ADD_FAILURE() << error.what();
    }
    stop_process(camera_pid_);
}

void Desk::start_camera() {
    std::ostringstream speed;
    speed << options_.speed;
    camera_pid_ = start_process(
        {DESK_CAMERA, "--ports-file", kCameraPorts, "--speed", speed.str(), "--sd", "/tmp/fuse_d"}, {},
        "/tmp/camera.log");
    wait_until("the camera listens", [] { return fs::exists(kCameraPorts); });
    const json ports = json::parse(file_text(kCameraPorts));
    cgi_port_ = ports["cgi"];
    control_port_ = ports["control"];
    if (!options_.camera_config.is_null()) camera("PATCH", "/config", options_.camera_config);
}

// The shell gives standard output and standard error a file each (what was printed is there at once, and
// libcurl's chatter does not stand between the lines of the log) and then becomes the agent, whose pid is
// thereby the supervised one.
std::vector<std::string> Desk::agent_command() const {
    const std::string agent = from_environment("VELO_AGENT", DESK_AGENT);
    const std::string bend = from_environment("VELO_BEND", DESK_BEND);
    const std::string libraries = from_environment("LD_LIBRARY_PATH", "");
    const std::vector<std::string> launcher = words(from_environment("VELO_AGENT_LAUNCHER", ""));
    const std::string usual_launch = std::string("exec \"$@\" >>") + kAgentLog + " 2>>" + kAgentErrors;
    const std::string launch = options_.launch.empty() ? usual_launch : options_.launch;
    std::vector<std::string> command = {device_program("supervise"), "--", "/bin/sh", "-c", launch, "sh"};
    if (launcher.empty()) {
        command.insert(command.end(), {"/usr/bin/env", "LD_PRELOAD=" + bend});
    } else {
        command.insert(command.end(), launcher.begin(), launcher.end());
        command.insert(command.end(), {"-E", "LD_PRELOAD=" + bend});
        if (!libraries.empty()) command.insert(command.end(), {"-E", "LD_LIBRARY_PATH=" + libraries});
    }
    command.push_back(agent);
    return command;
}

std::map<std::string, std::string> Desk::agent_environment() const {
    std::ostringstream speed;
    speed << options_.speed;
    const std::string reports = std::string("log_path=") + kSanitizerReports;
    std::map<std::string, std::string> environment = {
        {"BEND_SPEED", speed.str()},
        {"BEND_FILE", std::string(kState) + "bend"},
        {"DESK_SDK_PORTS_FILE", kSdkPorts},
        {"GLIBC_TUNABLES", "glibc.malloc.tcache_count=0"},  // what threads put by would count as in use
        {"DESK_CAMERA_CONTROL", "http://127.0.0.1:" + std::to_string(control_port_)},
        {"ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=1:exitcode=86:" + reports},
        {"UBSAN_OPTIONS", "print_stacktrace=1:" + reports},
        {"TSAN_OPTIONS", "halt_on_error=0:exitcode=86:second_deadlock_stack=1:" + reports},
    };
    for (const auto &[name, value] : options_.environment) environment[name] = value;
    return environment;
}

void Desk::start_agent() {
    fs::remove(kSdkPorts);
    former_starts_ = count_in_log(kFirstLine) - reboots();
    supervisor_ = start_process(agent_command(), agent_environment(), "/dev/null");
}

void Desk::stop_agent() {
    if (supervisor_ > 0) stop_process(supervisor_);
    supervisor_ = -1;
}

void Desk::wait_until_polling() {
    wait_until("the agent has begun",
               [this] { return count_in_log(kFirstLine) > former_starts_ + reboots(); });
    const size_t start = log().rfind(kFirstLine);
    wait_for_log("vq_ipca_init return\n", start);
    wait_for_log("*** (Polling) end of a time.", start);
    // Capture is prepared last; only then has the cloud thread nothing left to start.
    wait_until("capture is prepared", [this] { return sdk("GET", "/capture")["initialised"] == true; });
}

json Desk::camera(const std::string &method, const std::string &path, const json &body) const {
    return json_request(control_port_, method, path, body);
}

void Desk::set_status(const std::string &name, const std::string &value) const {
    camera("PATCH", "/status", {{name, value}});
}

int Desk::fault(const json &order) const {
    return camera("POST", "/faults", order)["id"];
}

void Desk::clear_faults() const {
    camera("DELETE", "/faults");
}

std::vector<json> Desk::requests(const std::string &endpoint, long since) const {
    std::string path = "/requests?since=" + std::to_string(since);
    if (!endpoint.empty()) path += "&endpoint=" + endpoint;
    return camera("GET", path).get<std::vector<json>>();
}

long Desk::last_request() const {
    return camera_state()["requests_total"];
}

int Desk::sdk_port() const {
    const std::string ports = file_text(kSdkPorts);
    if (ports.empty()) throw std::runtime_error("the agent has not entered vq_ipca_init yet");
    return json::parse(ports)["port"];
}

json Desk::sdk(const std::string &method, const std::string &path, const json &body) const {
    return json_request(sdk_port(), method, path, body);
}

json Desk::call(const std::string &name, const json &arguments, const json &more) const {
    json order = {{"name", name}, {"args", arguments}};
    if (!more.is_null()) order.update(more);
    return sdk("POST", "/call", order).at("results").at(0);
}

std::vector<int> Desk::alarms(long since) const {
    std::vector<int> codes;
    const json kept = sdk("GET", "/alarms?since=" + std::to_string(since));
    for (const json &alarm : kept["alarms"]) codes.push_back(alarm["status"]);
    return codes;
}

long Desk::last_alarm() const {
    return sdk("GET", "/alarms?since=1000000000")["total"];
}

const std::string &Desk::log() {
    std::ifstream file(kAgentLog, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(log_.size()));
    if (file) log_.append(std::istreambuf_iterator<char>(file), {});
    return log_;
}

std::string Desk::errors() const {
    return file_text(kAgentErrors);
}

size_t Desk::wait_for_log(const std::string &text, size_t from) {
    size_t end = std::string::npos;
    wait_until("the log says \"" + text + "\"", [&] {
        end = end_of_lines(log(), text, from);
        if (end == std::string::npos && !end_expected_ && !runs(supervisor_))
            throw std::runtime_error("the agent has ended");
        return end != std::string::npos;
    });
    return end;
}

size_t Desk::wait_for_logs(const std::vector<std::string> &texts, size_t from) {
    for (const std::string &text : texts) from = wait_for_log(text, from);
    return from;
}

int Desk::count_in_log(const std::string &text, size_t from) {
    int count = 0;
    const std::string &whole = log();
    for (size_t at = end_of_lines(whole, text, from); at != std::string::npos;
         at = end_of_lines(whole, text, at))
        count++;
    return count;
}

void Desk::wait_for_cycles(int cycles) {
    size_t from = log().size();
    for (int i = 0; i < cycles; i++) {
        from = wait_for_log("*** (polling) beginning of a time ***", from);
        from = wait_for_log("*** (Polling) end of a time.", from);
    }
}

pid_t Desk::agent_pid() const {
    return std::stoi(file_text(std::string(kState) + "agent.pid"));
}

int Desk::reboots() const {
    return std::atoi(file_text(std::string(kState) + "reboots").c_str());
}

std::vector<json> Desk::tool_calls(const std::string &tool) const {
    std::ifstream file(std::string(kState) + "calls");
    std::vector<json> calls;
    for (std::string line; std::getline(file, line);) {
        if (file.eof()) break;  // a line that is still being written
        json call = json::parse(line);
        if (tool.empty() || call["tool"] == tool) calls.push_back(std::move(call));
    }
    return calls;
}

void Desk::set_tool(const std::string &tool, const std::string &what, const std::string &value) const {
    const std::string path = kState + tool + "." + what;
    std::ofstream(path + ".new") << value;
    fs::rename(path + ".new", path);  // a tool never reads half an answer
}

void Desk::step_wall_clock(double seconds) const {
    const std::map<std::string, std::string> file = {{"BEND_FILE", std::string(kState) + "bend"}};
    const pid_t step =
        start_process({device_program("bend-step"), "--", std::to_string(seconds)}, file, "/tmp/step.log");
    wait_until("the wall clock is stepped", [step] { return !runs(step); });
    if (stop_process(step) != 0) throw std::runtime_error("bend-step: " + file_text("/tmp/step.log"));
}

std::string Desk::conf_value(const std::string &key) const {
    return conf_text_value(file_text(kConfiguration), key);
}

void Desk::write_conf(const std::map<std::string, std::optional<std::string>> &changes) {
    for (const auto &[key, value] : changes) conf_[key] = value;
    std::ofstream(std::string(kConfiguration) + ".new") << conf_text(conf_);
    fs::rename(std::string(kConfiguration) + ".new", kConfiguration);
}

// The leak checker is an exported function of the sanitized agent's own runtime.
void Desk::check_leaks() const {
    if (agent_sanitizer() != Sanitizer::address || !fs::exists(kSdkPorts)) return;
    call("__lsan_do_recoverable_leak_check", json::array(), {{"kind", "login"}, {"via", "dlsym"}});
}

void Desk::report_sanitizers() const {
    for (const auto &file : fs::directory_iterator("/tmp")) {
        if (!file.path().string().starts_with(std::string(kSanitizerReports) + ".")) continue;
        ADD_FAILURE() << file.path() << ":\n" << file_text(file.path()).substr(0, 20000);
    }
}

void Desk::print_tail() {
    std::cout << "---- the agent's log ends with:\n"
              << tail(log()) << "\n---- its standard error with:\n"
              << tail(errors()) << "\n----\n";
}

std::optional<double> heap_in_use(const Desk &desk) {
    if (sanitized_agent()) return std::nullopt;
    std::optional<double> least;
    for (int i = 0; i < 8; i++) {
        const json now = desk.sdk("GET", "/heap")["in_use"];
        if (now.is_null()) return std::nullopt;
        least = std::min(least.value_or(now), now.get<double>());
    }
    return least;
}

AgentSize agent_size(const Desk &desk) {
    const pid_t agent = desk.agent_pid();
    return {open_descriptors(agent), thread_count(agent), heap_in_use(desk), mapped_kib(agent)};
}

void expect_same_size(const Desk &desk, const AgentSize &before, long slack_kib) {
    AgentSize now{};
    const auto is_same = [&] {
        now = agent_size(desk);
        const bool same_heap =
            !before.heap || !now.heap || *now.heap <= *before.heap + static_cast<double>(slack_kib) * 1024;
        return now.descriptors <= before.descriptors && now.threads <= before.threads && same_heap;
    };
    try {
        wait_until("the agent is what it was", is_same);
    } catch (const std::runtime_error &) {
        ADD_FAILURE() << "the agent has " << now.descriptors << " descriptors instead of "
                      << before.descriptors << ", " << now.threads << " threads instead of " << before.threads
                      << ", " << now.heap.value_or(0) << " bytes of heap instead of "
                      << before.heap.value_or(0);
    }
    if (!sanitized_agent()) {
        EXPECT_LE(now.mapped_kib, before.mapped_kib + kKeptStacksKib) << "stacks of threads that ended";
    }
}
