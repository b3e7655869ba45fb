#include "log_tail.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>

#include "clocks.h"

namespace {

constexpr int kLookAgainMs = 500;      // where no notice comes
constexpr size_t kLongestLine = 2000;  // characters that are kept of it

struct Reading {
    int fd = -1;
    off_t at = 0;
    std::string part;   // a line whose end has not come
    double number = 0;  // of the last line; grows for ever
};

void take_line(Reading &log, std::string text, double now, json &lines) {
    if (!text.empty() && text.back() == '\r') text.pop_back();
    text.resize(std::min(text.size(), kLongestLine));
    lines.push_back({{"n", ++log.number}, {"t", std::round(now * 10) / 10}, {"text", text}});
}

void take_bytes(Reading &log, const char *bytes, size_t count, json &lines) {
    const double now = wall_ms();
    log.part.append(bytes, count);
    size_t begin = 0;
    for (size_t end; (end = log.part.find('\n', begin)) != std::string::npos; begin = end + 1)
        take_line(log, log.part.substr(begin, end - begin), now, lines);
    log.part.erase(0, begin);
}

void read_on(Reading &log, Hub &page) {
    struct stat status {};
    if (fstat(log.fd, &status) == 0 && status.st_size < log.at) log.at = 0;
    char bytes[65536];
    json lines = json::array();
    for (ssize_t n; (n = pread(log.fd, bytes, sizeof bytes, log.at)) > 0; log.at += n)
        take_bytes(log, bytes, static_cast<size_t>(n), lines);
    page.add("log", lines, kEptLogLines);
}

}  // namespace

void follow_log(const std::string &path, Hub &page) {
    Reading log;
    const int notices = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    for (;;) {
        if (log.fd < 0 && (log.fd = open(path.c_str(), O_RDONLY | O_CLOEXEC)) >= 0)
            inotify_add_watch(notices, path.c_str(), IN_MODIFY);
        if (log.fd >= 0) read_on(log, page);
        pollfd ready{notices, POLLIN, 0};
        poll(&ready, 1, kLookAgainMs);
        char ignored[4096];
        while (read(notices, ignored, sizeof ignored) > 0) {
        }
    }
}
