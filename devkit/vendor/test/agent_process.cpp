#include "agent_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

namespace {

constexpr int kPatienceSeconds = 60;  // for one reply, under a sanitizer on a busy machine

std::vector<std::string> environment_with(std::map<std::string, std::string> more) {
    std::vector<std::string> entries;
    for (char **entry = environ; *entry != nullptr; entry++) {
        const std::string text = *entry;
        if (text.rfind("DESK_", 0) != 0) entries.push_back(text);
    }
    if (getenv("TSAN_OPTIONS") == nullptr) more["TSAN_OPTIONS"] = "atexit_sleep_ms=0";
    for (const auto &[name, value] : more) entries.push_back(name + "=" + value);
    return entries;
}

}  // namespace

bool eventually(const std::function<bool()> &condition) {
    // A bound for machines under load: the encoder works in real time.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
    }
    return true;
}

std::string output_of(const std::string &command) {
    std::string text;
    FILE *pipe = popen((command + " 2>&1").c_str(), "r");
    char piece[4096];
    while (fgets(piece, sizeof piece, pipe) != nullptr) text += piece;
    pclose(pipe);
    return text;
}

ScratchFolder::ScratchFolder() {
    std::string name = std::filesystem::temp_directory_path() / "vendor-test.XXXXXX";
    path_ = mkdtemp(name.data());
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

AgentProcess::AgentProcess(std::map<std::string, std::string> environment) {
    const std::string ports_file = folder_.path("sdk.json");
    environment["DESK_SDK_PORTS_FILE"] = ports_file;
    std::vector<std::string> entries = environment_with(std::move(environment));
    std::vector<char *> pointers;
    for (std::string &entry : entries) pointers.push_back(entry.data());
    pointers.push_back(nullptr);
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    input_ = ends[1];
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, ends[0], 0);
    char path[] = FAKE_AGENT;
    char *arguments[] = {path, nullptr};
    EXPECT_EQ(posix_spawn(&pid_, path, &files, nullptr, arguments, pointers.data()), 0);
    posix_spawn_file_actions_destroy(&files);
    close(ends[0]);
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(ports_file); }));
    const json ports = json::parse(std::ifstream(ports_file), nullptr, false);
    EXPECT_EQ(ports.value("pid", 0), pid_);
    port_ = ports.value("port", 0);
    EXPECT_TRUE(eventually([&] { return get("/variable?name=ready").at("value") == true; }));
}

AgentProcess::~AgentProcess() {
    if (pid_ <= 0) return;
    EXPECT_EQ(wait_for_end(), 0) << "the agent did not end well";
}

int AgentProcess::wait_for_end() {
    close(input_);
    int status = -1;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return status;
}

JsonReply AgentProcess::ask(const std::string &method, const std::string &target, const json &body) {
    return desk::json_call(port_, method, target, body, kPatienceSeconds);
}

json AgentProcess::good(const std::string &method, const std::string &target, const json &body) {
    const JsonReply reply = ask(method, target, body);
    EXPECT_EQ(reply.status, 200) << method << " " << target << ": " << reply.body;
    return reply.body;
}

json AgentProcess::get(const std::string &target) {
    return good("GET", target, nullptr);
}

json AgentProcess::put(const std::string &target, const json &body) {
    return good("PUT", target, body);
}

json AgentProcess::post(const std::string &target, const json &body) {
    return good("POST", target, body);
}

json AgentProcess::call(const std::string &name, const json &args, json order) {
    order["name"] = name;
    order["args"] = args;
    const json results = post("/call", order).value("results", json::array());
    EXPECT_EQ(results.size(), 1U) << name;
    return results.empty() ? json() : results.at(0);
}
