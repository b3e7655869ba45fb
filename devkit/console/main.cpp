// desk_console: the desk in a browser. Runs in the device view beside the camera and the agent, on 127.0.0.1
// only, until SIGTERM or SIGINT.
#include <httplib.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <thread>

#include "device.h"
#include "log_tail.h"
#include "server.h"
#include "watcher.h"

namespace {

constexpr int kThreads = 64;                // each stream holds one
constexpr time_t kSlowViewerSeconds = 600;  // one that takes no byte for so long is let go
constexpr size_t kLongestBody = 32 * 1024 * 1024;

struct Options {
    std::string run, web, scenarios, log, log_reference, tap, port_file;
    int port = 8055;
};

int usage() {
    fputs(
        "usage: desk_console --run DIR --web DIR --scenarios DIR --log FILE --log-reference FILE --tap FILE\n"
        "                    [--port N] [--port-file FILE]\n",
        stderr);
    return 2;
}

bool read_options(int count, char **arguments, Options &wanted) {
    const std::pair<const char *, std::string Options::*> texts[] = {
        {"--run", &Options::run},
        {"--web", &Options::web},
        {"--log", &Options::log},
        {"--log-reference", &Options::log_reference},
        {"--tap", &Options::tap},
        {"--port-file", &Options::port_file},
        {"--scenarios", &Options::scenarios}};
    if (count % 2 == 0) return false;
    for (int i = 1; i + 1 < count; i += 2) {
        bool known = strcmp(arguments[i], "--port") == 0;
        if (known) wanted.port = atoi(arguments[i + 1]);
        for (const auto &[name, member] : texts) {
            if (strcmp(arguments[i], name) != 0) continue;
            wanted.*member = arguments[i + 1];
            known = true;
        }
        if (!known) return false;
    }
    return !wanted.run.empty() && !wanted.web.empty();
}

// The wanted port, or any where it is busy.
int bind_port(httplib::Server &server, int wanted) {
    // No SO_REUSEPORT, which the library sets where nothing is said: a second console would share the first
    // one's port.
    server.set_socket_options([](socket_t socket) {
        const int on = 1;
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    });
    if (wanted > 0 && server.bind_to_port("127.0.0.1", wanted)) return wanted;
    return server.bind_to_any_port("127.0.0.1");
}

void tell_port(const std::string &file, int port) {
    if (file.empty()) return;
    const std::string beside = file + ".new";
    std::ofstream(beside) << "{\"port\":" << port << ",\"pid\":" << getpid() << "}\n";
    std::rename(beside.c_str(), file.c_str());
}

std::string read_all(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    return text.empty() ? "[]" : text;
}

std::string carry_out(const Backend &behind, const std::string &to, const json &request);

}  // namespace

int main(int count, char **arguments) {
    Options wanted;
    if (!read_options(count, arguments, wanted)) return usage();
    signal(SIGPIPE, SIG_IGN);
    for (const int each : {SIGTERM, SIGINT}) signal(each, [](int) { _exit(0); });
    // They live as long as the program: its threads never end.
    auto &server = *new httplib::Server;
    auto &behind = *new Backend(wanted.run);
    auto &page = *new Hub;
    for (const char *list : {"log", "alarms", "requests", "samples", "marks"})
        page.add(list, json::array(), 1);
    auto &pictures = *new Live(behind, page, wanted.tap);
    auto &scripts = *new Scenarios(
        wanted.scenarios, page,
        [&behind](const std::string &to, const json &request) { return carry_out(behind, to, request); });
    server.new_task_queue = [] { return new httplib::ThreadPool(kThreads); };
    server.set_write_timeout(kSlowViewerSeconds);
    server.set_keep_alive_max_count(10000);
    server.set_payload_max_length(kLongestBody);
    server.set_tcp_nodelay(true);
    const int port = bind_port(server, wanted.port);
    if (port <= 0) {
        fputs("desk_console: there is no port to listen at\n", stderr);
        return 1;
    }
    add_routes(server, {behind, page, pictures, scripts, wanted.web, read_all(wanted.log_reference)}, port);
    std::thread([&] { follow_log(wanted.log, page); }).detach();
    std::thread([&] { Watcher(behind, page).watch(); }).detach();
    std::thread([&] { pictures.read_frames(); }).detach();
    std::thread([&] { pictures.keep_watching(); }).detach();
    tell_port(wanted.port_file, port);
    return server.listen_after_bind() ? 0 : 1;
}

namespace {

// A step of a scenario: a request to one of the two interfaces, or to this program's own device.
std::string carry_out(const Backend &behind, const std::string &to, const json &request) {
    if (!request.is_array() || request.size() < 2) return "a request is [method, path, body]";
    const std::string body = request.size() > 2 ? json_text(request[2]) : "";
    const std::string path = request[1];
    if (to == "device") return order_device(path, request.size() > 2 ? request[2] : json::object());
    const Answer got = behind.send(to == "sdk" ? Side::sdk : Side::camera, request[0], path, body, 60);
    return got.status / 100 == 2 ? "" : path + ": " + got.body;
}

}  // namespace
