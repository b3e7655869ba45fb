// From a program's start to its first connection.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "agent/utils/conf_file.h"
#include "bench.h"

extern char **environ;

namespace {

int listen_on_loopback(int &port) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(listener, reinterpret_cast<sockaddr *>(&address), size) != 0 || listen(listener, 8) != 0)
        std::abort();
    getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size);
    port = ntohs(address.sin_port);
    return listener;
}

void start(const std::string &program, const std::string &argument, int listener) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (const int stream : {1, 2})
        posix_spawn_file_actions_addopen(&actions, stream, "/dev/null", O_WRONLY, 0);
    char *arguments[] = {const_cast<char *>(program.c_str()), const_cast<char *>(argument.c_str()), nullptr};
    pid_t child = 0;
    if (posix_spawn(&child, program.c_str(), &actions, nullptr, arguments, environ) != 0) std::abort();
    const int peer = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    close(peer);
    posix_spawn_file_actions_destroy(&actions);
}

}  // namespace

void add_start_rows(std::vector<Row> &rows) {
    static int port = 0;
    static const int listener = listen_on_loopback(port);
    const std::string host = "127.0.0.1:" + std::to_string(port);
    const auto configure = [host] {
        FILE *conf = std::fopen(kConfPath, "we");
        if (conf == nullptr) std::abort();
        std::fprintf(conf, "hostIP=%s\nDEVICE=Camera\nSTREAM=Stream1\nPASSWORD=secret\nSESSION_KEY=\n",
                     host.c_str());
        std::fclose(conf);
    };
    const std::string agent = build_folder() + "/VeloAgent", bare = build_folder() + "/bench/bare_start";
    rows.push_back({"start to first connection",
                    {{"product", [agent] { start(agent, "", listener); }, configure},
                     {"bare program", [bare, host] { start(bare, "http://" + host, listener); }}},
                    1,
                    60});
}
