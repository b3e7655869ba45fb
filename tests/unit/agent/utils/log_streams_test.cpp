#include "agent/utils/log_streams.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "agent_test.h"

namespace {

// What a process passes to the system for `stream`, whose descriptor is `number`: a text for each call.
Texts calls_of(FILE *stream, int number, void (*print)(FILE *)) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0) return {"no socket pair"};
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], number);
        write_log_by_lines();
        print(stream);
        raise(SIGKILL);  // what was not written by now is lost; a sanitizer would write it before an exit
    }
    close(ends[1]);
    Texts calls;
    char text[100];
    for (ssize_t count; (count = read(ends[0], text, sizeof text)) > 0;)
        calls.emplace_back(text, static_cast<size_t>(count));
    close(ends[0]);
    waitpid(child, nullptr, 0);
    return calls;
}

void print_in_pieces(FILE *stream) {
    std::fputs("* ", stream);
    std::fputs("Trying", stream);
    std::fprintf(stream, " port %d\n", 80);
    std::fputs("\n*** begin ***\n", stream);
    std::fputs("half a line", stream);
}

TEST(LogStreams, WriteEachLineAsSoonAsItIsWhole) {
    const Texts calls = {"* Trying port 80\n", "\n*** begin ***\n"};
    EXPECT_EQ(calls_of(stdout, STDOUT_FILENO, print_in_pieces), calls);
    EXPECT_EQ(calls_of(stderr, STDERR_FILENO, print_in_pieces), calls);
}

}  // namespace
