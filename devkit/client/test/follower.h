// A client that runs beside the test.
#ifndef DEVKIT_CLIENT_TEST_FOLLOWER_H
#define DEVKIT_CLIENT_TEST_FOLLOWER_H

#include <csignal>

#include "desk_fixture.h"

// A client that runs until the test has seen enough.
class Follower {
  public:
    explicit Follower(const std::string &arguments) {
        setenv("TZ", "UTC", 1);
        int ends[2];
        if (pipe(ends) != 0) abort();
        child_ = fork();
        if (child_ == 0) {
            dup2(ends[1], STDOUT_FILENO);
            dup2(ends[1], STDERR_FILENO);
            close(ends[0]);
            close(ends[1]);
            execl("/bin/sh", "sh", "-c", ("exec " DESK " " + arguments).c_str(), nullptr);
            _exit(127);
        }
        close(ends[1]);
        output_ = fdopen(ends[0], "r");
    }
    Follower(const Follower &) = delete;
    Follower &operator=(const Follower &) = delete;

    ~Follower() {
        if (child_ > 0) kill(child_, SIGKILL);
        if (output_ != nullptr) fclose(output_);
        if (child_ > 0) waitpid(child_, nullptr, 0);
    }

    // Blocks for the next line.
    std::string line() {
        char text[4096];
        if (std::fgets(text, sizeof text, output_) == nullptr) return "the end";
        text[strcspn(text, "\n")] = '\0';
        return text;
    }

    // Presses Ctrl-C.
    void interrupt() {
        if (child_ > 0) kill(child_, SIGINT);
    }

    // The exit code once nobody reads any more.
    int end_of_reading() {
        fclose(output_);
        output_ = nullptr;
        int status = 0;
        waitpid(child_, &status, 0);
        child_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

  private:
    pid_t child_;
    std::FILE *output_ = nullptr;
};

#endif
