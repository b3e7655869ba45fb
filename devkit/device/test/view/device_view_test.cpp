// The device view and its tools as a command inside sees them. These tests run outside any view.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "row_names.h"
#include "view_process.h"

namespace {

struct ScriptCase {
    const char *name;
    std::vector<std::string> options;
    const char *script;
    const char *output;
    int exit_code = 0;
};

void PrintTo(const ScriptCase &row, std::ostream *out) {
    *out << row.name;
}

const ScriptCase kScripts[] = {
    {.name = "exit_code_is_passed_on", .options = {}, .script = "exit 7", .output = "", .exit_code = 7},
    {.name = "signal_is_told",
     .options = {},
     .script = "kill -SEGV $$",
     .output = "",
     .exit_code = 128 + SIGSEGV},
    {.name = "current_folder", .options = {}, .script = "pwd; echo $PWD", .output = "/tmp\n/tmp\n"},
    {.name = "environment_is_kept", .options = {}, .script = "echo $VIEW_TEST", .output = "kept\n"},
    {.name = "working_folder_is_empty", .options = {}, .script = "ls -A /tmp/working", .output = ""},
    {.name = "card_is_a_file_system",
     .options = {},
     .script = "df /tmp/fuse_d | awk 'NR==2 {print $2, $6}'",
     .output = "524288 /tmp/fuse_d\n"},
    {.name = "card_size",
     .options = {"--sd-megabytes", "20"},
     .script = "df -m 2>/dev/null | grep /tmp/fuse_d | awk '{print $2}'",
     .output = "20\n"},
    {.name = "card_has_its_media_folder",
     .options = {},
     .script = "ls -d /tmp/fuse_d/DCIM/100MEDIA",
     .output = "/tmp/fuse_d/DCIM/100MEDIA\n"},
    {.name = "page_cache_is_not_the_hosts",
     .options = {},
     .script = "echo 1 >/proc/sys/vm/drop_caches; cat /tmp/.device/drop_caches",
     .output = "1\n"},
    {.name = "own_processes",
     .options = {},
     .script = "test $$ -lt 10 && ls -d /proc/1/ns",
     .output = "/proc/1/ns\n"},
    {.name = "own_network",
     .options = {},
     .script = "grep -c : /proc/net/dev; grep -o lo: /proc/net/dev",
     .output = "1\nlo:\n"},
    {.name = "tools_can_be_removed",
     .options = {},
     .script = "rm /usr/bin/qmx_reboot; test -e /usr/bin/qmx_reboot || echo gone",
     .output = "gone\n"},

    {.name = "hardware_address",
     .options = {},
     .script = "line=$(ifconfig|grep HW); echo ${line##*HWaddr} | tr -d :",
     .output = "A1B2C3D4E5F6\n"},
    {.name = "default_route",
     .options = {},
     .script = "netstat -rn | grep ^0.0.0.0 | awk '{print $2}'",
     .output = "192.168.0.1\n"},
    {.name = "ping_succeeds",
     .options = {},
     .script = "ping -c1 -s1 10.0.0.1 | head -1",
     .output = "PING 10.0.0.1: 1 data bytes\n"},
    {.name = "reboot_tool_succeeds",
     .options = {},
     .script = "/usr/bin/qmx_reboot reboot; echo $?",
     .output = "0\n"},
    {.name = "tool_answers_as_told",
     .options = {},
     .script = "cd .device; echo none >netstat.stdout; echo 3 >netstat.exit; netstat; echo $?",
     .output = "none\n3\n"},
    {.name = "silent_tool", .options = {}, .script = ": >.device/ifconfig.stdout; ifconfig", .output = ""},
    {.name = "failing_clock_tool",
     .options = {},
     .script = "echo 1 >.device/ntpdate.exit; ntpdate x >/dev/null; echo $?",
     .output = "1\n"},
    {.name = "calls_are_kept",
     .options = {},
     .script = "ping 'a\"b\\c' >/dev/null; ntpdate pool >/dev/null; cut -d, -f1-2 .device/calls",
     .output = "{\"tool\":\"ping\",\"args\":[\"a\\\"b\\\\c\"]\n{\"tool\":\"ntpdate\",\"args\":[\"pool\"]\n"},
    {.name = "calls_tell_the_signal_mask",
     .options = {},
     .script =
         "trap '' USR1; ping x >/dev/null; grep -o '\"SigIgn\":\"[^\"]*\"' .device/calls | grep -o '02..\"'",
     .output = "0200\"\n"},
    {.name = "clock_tool_steps_the_bent_clock",
     .options = {},
     .script =
         "export BEND_FILE=/tmp/bend; echo -86400 >.device/ntpdate.step; ntpdate pool >/dev/null; bend-step "
         "--show",
     .output = "-86400.000000000\n"},
    {.name = "failing_clock_tool_steps_nothing",
     .options = {},
     .script =
         "export BEND_FILE=/tmp/bend; echo 5 >.device/ntpdate.step; echo 1 >.device/ntpdate.exit; ntpdate x "
         ">/dev/null; "
         "bend-step --show",
     .output = "0.000000000\n"},
};

class View : public testing::TestWithParam<ScriptCase> {};

TEST_P(View, script_in_it) {
    setenv("VIEW_TEST", "kept", 1);
    ViewProcess view = start_view(GetParam().options, {"sh", "-c", GetParam().script});
    EXPECT_EQ(view.read_to_end(), GetParam().output);
    EXPECT_EQ(view.wait(), GetParam().exit_code);
}

INSTANTIATE_TEST_SUITE_P(Scripts, View, testing::ValuesIn(kScripts), by_name);

TEST(ViewStart, unknown_option_and_command_are_refused) {
    EXPECT_EQ(start_view({"--wings"}, {"true"}).wait(), 125);
    EXPECT_EQ(start_view({"--net", "public"}, {"true"}).wait(), 125);
    EXPECT_EQ(start_view({}, {"/nonexistent"}).wait(), 127);
}

TEST(ViewStart, no_descriptor_is_added) {
    constexpr char kList[] = "ls /proc/self/fd | wc -l";
    std::FILE *outside = popen(kList, "r");
    char count[16] = "";
    EXPECT_NE(std::fgets(count, sizeof count, outside), nullptr);
    pclose(outside);
    EXPECT_EQ(start_view({}, {"sh", "-c", kList}).read_to_end(), count);
}

TEST(ViewStart, host_folder_is_hidden_unless_it_is_bound) {
    char folder[] = "/tmp/device_view_test.XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const std::string look = std::string("test -d ") + folder;
    EXPECT_EQ(start_view({}, {"sh", "-c", look}).wait(), 1);
    EXPECT_EQ(start_view({"--bind", folder}, {"sh", "-c", look}).wait(), 0);
    rmdir(folder);
}

TEST(ViewStart, host_network_is_there_when_asked_for) {
    std::ifstream devices("/proc/self/net/dev");
    const std::string host{std::istreambuf_iterator<char>(devices), {}};
    ViewProcess view = start_view({"--net", "host"}, {"sh", "-c", "cut -d: -f1 /proc/net/dev | grep -v '|'"});
    std::istringstream names(view.read_to_end());
    for (std::string name; names >> name;) EXPECT_NE(host.find(name + ":"), std::string::npos) << name;
    EXPECT_EQ(view.wait(), 0);
}

TEST(ViewStart, files_can_be_seen_from_outside) {
    char file[] = "/tmp/device_view_test.XXXXXX";
    close(mkstemp(file));
    ViewProcess view =
        start_view({"--pid-file", file}, {"sh", "-c", "echo hello >/tmp/word; echo ready; sleep 1000"});
    view.read_line();
    std::string pid, word;
    std::ifstream(file) >> pid;
    std::ifstream("/proc/" + pid + "/root/tmp/word") >> word;
    EXPECT_EQ(word, "hello");
    unlink(file);
}

// All of these hold the output open as long as one process of the view lives.
constexpr char kStubborn[] =
    "trap '' TERM; (trap '' TERM INT; echo ready; [ ! -e go ] || echo >go; sleep 1000; sleep 1000) & ";

TEST(ViewEnd, ends_with_its_command) {
    ViewProcess view =
        start_view({}, {"sh", "-c", std::string("mkfifo go; ") + kStubborn + "read line <go; exit 4"});
    EXPECT_EQ(view.read_to_end(), "ready\n");
    EXPECT_EQ(view.wait(), 4);
}

TEST(ViewEnd, stop_signal_reaches_the_command) {
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        ViewProcess view =
            start_view({}, {"sh", "-c", "trap 'echo stopped; exit 5' TERM; echo ready; sleep 1000 & wait"});
        EXPECT_EQ(view.read_line(), "ready\n");
        view.signal(number);
        EXPECT_EQ(view.read_to_end(), "stopped\n");
        EXPECT_EQ(view.wait(), 5);
    }
}

TEST(ViewEnd, second_stop_signal_kills_at_once) {
    ViewProcess view = start_view({}, {"sh", "-c", std::string(kStubborn) + "wait; sleep 1000"});
    view.read_line();
    view.signal(SIGTERM);
    view.signal(SIGINT);
    view.read_to_end();
    EXPECT_EQ(view.wait(), 128 + SIGKILL);
}

TEST(ViewEnd, dies_with_its_launcher) {
    ViewProcess view = start_view({}, {"sh", "-c", std::string(kStubborn) + "sleep 1000"});
    EXPECT_EQ(view.read_line(), "ready\n");
    view.signal(SIGKILL);
    EXPECT_EQ(view.read_to_end(), "");
}

TEST(ViewEnd, kept_view_stands_until_it_is_stopped) {
    ViewProcess view = start_view({"--keep"}, {"sh", "-c", std::string(kStubborn) + "exit 6"});
    view.read_line();
    EXPECT_FALSE(view.has_ended_within(200));
    view.signal(SIGTERM);
    EXPECT_EQ(view.wait(), 6);
}

}  // namespace
