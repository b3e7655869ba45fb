// The simulated camera: puts the parts together, tells where they listen, and waits for the signal to end.

#include <signal.h>
#include <spawn.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "camera.h"
#include "cgi_server.h"
#include "control.h"
#include "faults.h"
#include "journal.h"
#include "options.h"

namespace {

// Signals that end the program are taken by sigwait in main; blocked before the first thread starts, so in
// all of them.
sigset_t block_ending_signals() {
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGTERM);
    sigaddset(&ending, SIGINT);
    pthread_sigmask(SIG_BLOCK, &ending, nullptr);
    signal(SIGPIPE, SIG_IGN);
    signal(SIGCHLD, SIG_IGN);  // the reboot tool is not waited for
    return ending;
}

// Starts "TOOL reboot" with the signals and descriptors of a program started by hand.
void start_reboot_tool(std::string tool) {
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addclosefrom_np(&files, 3);
    std::string argument = "reboot";
    char *arguments[] = {tool.data(), argument.data(), nullptr};
    pid_t child = 0;
    const int error = posix_spawn(&child, tool.c_str(), &files, &attributes, arguments, environ);
    if (error != 0) std::fprintf(stderr, "camera: cannot start %s: %s\n", tool.c_str(), std::strerror(error));
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
}

bool write_ports_file(const std::string &name, int cgi, int control) {
    const json ports = {{"cgi", cgi}, {"control", control}, {"pid", getpid()}};
    const std::string temporary = name + "." + std::to_string(getpid());
    std::ofstream file(temporary);
    file << ports.dump() << "\n";
    file.close();
    if (file && rename(temporary.c_str(), name.c_str()) == 0) return true;
    std::fprintf(stderr, "camera: cannot write %s\n", name.c_str());
    unlink(temporary.c_str());
    return false;
}

int busy_port(const char *which, const Options &chosen, int port) {
    std::fprintf(stderr, "camera: the %s port %s:%d cannot be had: %s\n", which, chosen.bind.c_str(), port,
                 std::strerror(errno));
    return 2;
}

int run_camera(const Options &chosen, const sigset_t &ending) {
    Camera cam(chosen.speed);
    FaultList faults;
    Journal log;
    CgiServer cgi(cam, faults, log);
    cam.card = chosen.card;
    cam.drop_connections = [&cgi] { cgi.drop_connections(); };
    cam.run_reboot_tool = [&chosen] {
        if (!chosen.reboot_tool.empty()) start_reboot_tool(chosen.reboot_tool);
    };
    ControlServer control(cam, faults, log, cgi);
    if (!cgi.start(chosen.bind, chosen.cgi_port)) return busy_port("CGI", chosen, chosen.cgi_port);
    if (!control.start(chosen.bind, chosen.control_port))
        return busy_port("control", chosen, chosen.control_port);
    if (!chosen.ports_file.empty() && !write_ports_file(chosen.ports_file, cgi.port(), control.port()))
        return 1;
    std::printf("camera: CGI http://%s:%d/CGI/ control http://%s:%d/ card %s\n", chosen.bind.c_str(),
                cgi.port(), chosen.bind.c_str(), control.port(), chosen.card.c_str());
    std::fflush(stdout);
    int signal_number = 0;
    sigwait(&ending, &signal_number);
    if (!chosen.ports_file.empty()) unlink(chosen.ports_file.c_str());
    cam.timer.stop();  // its tasks use the servers, which end first
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    const auto chosen = read_options(argc, argv);
    if (!chosen) return 1;
    return run_camera(*chosen, block_ending_signals());
}
