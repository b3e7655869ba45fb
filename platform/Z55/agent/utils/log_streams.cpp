#include "log_streams.h"

#include <cstdio>

void write_log_by_lines() {
    static constinit char error_line[1024] = {};  // not every C library gives this stream room of its own
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    std::setvbuf(stderr, error_line, _IOLBF, sizeof error_line);
}
