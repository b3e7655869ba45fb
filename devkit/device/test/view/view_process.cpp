#include "view_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int kPatienceMilliseconds = 30'000;

}  // namespace

ViewProcess::~ViewProcess() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    close(output_);
}

bool ViewProcess::read_byte(char &byte) const {
    pollfd file = {output_, POLLIN, 0};
    if (poll(&file, 1, kPatienceMilliseconds) == 0) {
        ADD_FAILURE() << "the view is silent";
        return false;
    }
    return read(output_, &byte, 1) == 1;
}

std::string ViewProcess::read_line() {
    std::string line;
    for (char byte = 0; byte != '\n' && read_byte(byte);) line += byte;
    return line;
}

std::string ViewProcess::read_to_end() {
    std::string text;
    for (char byte = 0; read_byte(byte);) text += byte;
    return text;
}

void ViewProcess::signal(int number) const {
    if (pid_ > 0) kill(pid_, number);
}

int ViewProcess::wait() {
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

bool ViewProcess::has_ended_within(int milliseconds) const {
    const int handle = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
    pollfd file = {handle, POLLIN, 0};
    const bool ended = poll(&file, 1, milliseconds) > 0;
    close(handle);
    return ended;
}

ViewProcess start_view(const std::vector<std::string> &options, const std::vector<std::string> &command) {
    std::vector<std::string> words = {DEVICE_VIEW};
    words.insert(words.end(), options.begin(), options.end());
    words.emplace_back("--");
    words.insert(words.end(), command.begin(), command.end());
    std::vector<char *> arguments;
    for (std::string &word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);

    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    pid_t pid = -1;
    EXPECT_EQ(posix_spawn(&pid, DEVICE_VIEW, &actions, nullptr, arguments.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    return {pid, ends[0]};
}
