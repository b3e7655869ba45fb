// A log that has no room: what is printed to it fails.
#ifndef UNIT_SUPPORT_FULL_LOG_H
#define UNIT_SUPPORT_FULL_LOG_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <functional>

// While it lives, each line that is printed to standard output fails with ENOSPC.
class FullLog {
  public:
    FullLog() : log_(dup(STDOUT_FILENO)), full_(open("/dev/full", O_WRONLY | O_CLOEXEC)) {
        std::fflush(stdout);
        dup2(full_, STDOUT_FILENO);
        std::setvbuf(stdout, nullptr, _IONBF, 0);
    }
    ~FullLog() {
        EXPECT_NE(std::ferror(stdout), 0) << "nothing has failed";
        dup2(log_, STDOUT_FILENO);
        std::setvbuf(stdout, nullptr, _IOLBF, 0);
        std::clearerr(stdout);
        close(log_);
        close(full_);
    }
    FullLog(const FullLog &) = delete;
    FullLog &operator=(const FullLog &) = delete;

  private:
    int log_, full_;
};

// The errno that `body` leaves on such a log.
inline int error_left_on_a_full_log(const std::function<void()> &body) {
    const FullLog full;
    body();
    return errno;
}

#endif
