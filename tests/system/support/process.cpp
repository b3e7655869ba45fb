#include "process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>

namespace fs = std::filesystem;

namespace {

std::vector<char *> pointers(std::vector<std::string> &texts) {
    std::vector<char *> result;
    for (std::string &text : texts) result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

std::vector<std::string> merged_environment(const std::map<std::string, std::string> &added) {
    std::vector<std::string> merged;
    for (char **entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (!added.contains(text.substr(0, text.find('=')))) merged.push_back(text);
    }
    for (const auto &[name, value] : added) merged.push_back(name + "=" + value);
    return merged;
}

long status_number(pid_t process, const std::string &name) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(name + ":")) return std::stol(line.substr(name.size() + 1));
    throw std::runtime_error("process " + std::to_string(process) + " has no " + name);
}

}  // namespace

pid_t start_process(const std::vector<std::string> &command,
                    const std::map<std::string, std::string> &environment, const std::string &output) {
    std::vector<std::string> arguments = command, variables = merged_environment(environment);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_APPEND,
                                     0644);
    posix_spawn_file_actions_adddup2(&files, STDOUT_FILENO, STDERR_FILENO);
    pid_t child = 0;
    const int error = posix_spawnp(&child, arguments[0].c_str(), &files, nullptr, pointers(arguments).data(),
                                   pointers(variables).data());
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) throw std::runtime_error("cannot start " + command[0] + ": " + std::strerror(error));
    return child;
}

int stop_process(pid_t child) {
    const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    kill(child, SIGTERM);
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > patience) kill(child, SIGKILL);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return status;
}

bool runs(pid_t child) {
    siginfo_t ended{};
    return waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           ended.si_pid == 0;
}

int open_descriptors(pid_t process) {
    const fs::directory_iterator entries("/proc/" + std::to_string(process) + "/fd");
    return static_cast<int>(std::distance(begin(entries), end(entries)));
}

int thread_count(pid_t process) {
    return static_cast<int>(status_number(process, "Threads"));
}

long mapped_kib(pid_t process) {
    return status_number(process, "VmData");
}

int count_of(const std::string &text, const std::string &whole) {
    int count = 0;
    for (size_t at = whole.find(text); at != std::string::npos; at = whole.find(text, at + text.size()))
        count++;
    return count;
}

std::string file_text(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}
