// The camera's command line.
#pragma once

#include <optional>
#include <string>

struct Options {
    int cgi_port = 0, control_port = 0;
    std::string bind = "127.0.0.1";
    std::string card = "/tmp/fuse_d";
    std::string ports_file;   // empty: none
    std::string reboot_tool;  // empty: none
    double speed = 1;
};

// The options, or nothing after a message on standard error about what is wrong with them.
std::optional<Options> read_options(int argc, char **argv);
