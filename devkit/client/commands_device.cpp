// What is watched, the device itself, and this program's own commands.
#include "actions.h"
#include "commands.h"
#include "follow.h"
#include "help.h"
#include "show.h"

namespace {

constexpr Side kSdk = Side::sdk;

constexpr Command kWatchCommands[] = {
    {"alarms", "[SINCE]", "--follow", "the alarms, or those after a sequence number; then as they come",
     "alarms --follow", kSdk, nullptr, "", "", nullptr, show_alarms},
    {"events", "", "--follow", "what changes at camera and agent, from now on; or how it stands",
     "events --follow", kSdk, nullptr, "", "", nullptr, show_events},
    {"log", "", "--follow --module MODULE --grep TEXT",
     "the agent's log; or its last lines, then each with its time", "log --follow --module polling", kSdk,
     nullptr, "", "", nullptr, show_log},
};

constexpr Command kDeviceCommands[] = {
    {"state", "[MEMBER...]", "", "everything the SDK knows, or one member", "state capture started", kSdk,
     "GET", "/state", "", show_member},
    {"capture", "PROPERTY VALUE", "", "sets a property of the capture library", "capture stalled true", kSdk,
     "PUT", "/capture", R"({"$1":"#2"})"},
    {"reboot", "", "", "reboots the device", "reboot", kSdk, nullptr, "", "", nullptr, reboot_device},
    {"call", "HANDLER [ARGUMENT...]", "", "calls any exported handler, with any values",
     "call set_device_param md_armed 7", kSdk, nullptr, "", "", nullptr, call_handler},
    {"variable", "VARIABLE", "", "reads an exported variable", "variable hostIP", kSdk, "GET",
     "/variable?name=$1", "", show_variable},
    {"variable-set", "VARIABLE NUMBER", "", "sets an exported number", "variable-set NTP_FAIL -1", kSdk,
     "PUT", "/variable", R"({"name":"$1","value":"#2"})"},
    {"cat", "PATH", "", "prints a file of the device", "cat /tmp/working/VeloAgent.conf", kSdk, nullptr, "",
     "", nullptr, print_file},
    {"ls", "PATH", "", "lists a folder of the device", "ls /tmp/fuse_d", kSdk, nullptr, "", "", nullptr,
     list_folder},
    {"send", "camera|sdk METHOD PATH [JSON]", "", "any other request of the two interfaces",
     "send camera PATCH /status '{\"NewKey\":\"1\"}'", kSdk, nullptr, "", "", nullptr, send_plain},
};

constexpr Command kOwnCommands[] = {
    {"help", "[COMMAND...]", "", "the commands, those of a group, or one of them", "help camera", kSdk,
     nullptr, "", "", nullptr, print_help},
    {"complete", "[WORD...]", "", "what may stand in the place of the last word; for the shells",
     "complete status Ba", kSdk, nullptr, "", "", nullptr, print_candidates},
};

}  // namespace

std::span<const Command> watch_commands() {
    return kWatchCommands;
}

std::span<const Command> device_commands() {
    return kDeviceCommands;
}

std::span<const Command> own_commands() {
    return kOwnCommands;
}
