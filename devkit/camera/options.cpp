#include "options.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace {

bool read_port(const std::string &text, int &port) {
    char *end = nullptr;
    const long number = std::strtol(text.c_str(), &end, 10);
    port = static_cast<int>(number);
    return !text.empty() && *end == '\0' && number >= 0 && number <= 65535;
}

bool read_speed(const std::string &text, double &speed) {
    char *end = nullptr;
    speed = std::strtod(text.c_str(), &end);
    return !text.empty() && *end == '\0' && std::isfinite(speed) && speed > 0;
}

bool set_option(Options &chosen, const std::string &name, const std::string &value) {
    if (name == "--cgi-port") return read_port(value, chosen.cgi_port);
    if (name == "--control-port") return read_port(value, chosen.control_port);
    if (name == "--speed") return read_speed(value, chosen.speed);
    struct {
        const char *name;
        std::string &value;
    } const texts[] = {{"--bind", chosen.bind},
                       {"--sd", chosen.card},
                       {"--ports-file", chosen.ports_file},
                       {"--reboot-tool", chosen.reboot_tool}};
    for (const auto &text : texts)
        if (name == text.name) {
            text.value = value;
            return !value.empty();
        }
    return false;
}

}  // namespace

std::optional<Options> read_options(int argc, char **argv) {
    Options chosen;
    for (int i = 1; i < argc; i += 2) {
        if (i + 1 < argc && set_option(chosen, argv[i], argv[i + 1])) continue;
        std::fprintf(stderr,
                     "camera: cannot use %s %s\n"
                     "camera [--cgi-port N] [--control-port N] [--bind ADDR] [--sd DIR] [--ports-file FILE] "
                     "[--speed X] "
                     "[--reboot-tool PATH]\n",
                     argv[i], i + 1 < argc ? argv[i + 1] : "");
        return std::nullopt;
    }
    return chosen;
}
