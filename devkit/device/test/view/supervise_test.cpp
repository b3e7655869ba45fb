// The supervisor with shell scripts for an agent, in a device view.
#include <gtest/gtest.h>
#include <signal.h>

#include <ostream>
#include <string>

#include "row_names.h"
#include "view_process.h"

namespace {

struct AgentCase {
    const char *name;
    const char *options;
    const char *agent;  // the agent; its reboots so far are in $n
    const char *after;  // what is printed when the supervisor has ended
    const char *output;
    int exit_code;
};

void PrintTo(const AgentCase &row, std::ostream *out) {
    *out << row.name;
}

constexpr char kReboots[] = "cat .device/reboots";

const AgentCase kAgents[] = {
    {.name = "exit_code_ends_it",
     .options = "",
     .agent = "exit 5",
     .after = "cat .device/exits | cut -d, -f2-3",
     .output = "supervise: the agent ended with exit code 5\n\"exit\":5,\"signal\":0}\n",
     .exit_code = 5},
    {.name = "clean_exit_is_reported_too",
     .options = "",
     .agent = "exit 0",
     .after = kReboots,
     .output = "supervise: the agent ended with exit code 0\n0\n",
     .exit_code = 0},
    {.name = "signal_ends_it",
     .options = "",
     .agent = "kill -SEGV $$",
     .after = "cat .device/exits | cut -d, -f2-3",
     .output =
         "supervise: the agent was ended by signal 11 (Segmentation fault)\n\"exit\":0,\"signal\":11}\n",
     .exit_code = 139},
    {.name = "reboot_starts_it_again",
     .options = "",
     .agent = "echo run $n; [ $n = 2 ] && exit 5; exec /usr/bin/qmx_reboot reboot",
     .after = kReboots,
     .output = "run 0\nsupervise: the agent rebooted the device (1)\nrun 1\nsupervise: the agent rebooted "
               "the device "
               "(2)\n"
               "run 2\nsupervise: the agent ended with exit code 5\n2\n",
     .exit_code = 5},
    {.name = "reboot_by_another_process",
     .options = "",
     .agent = "[ $n = 1 ] && exit 5; qmx_reboot reboot; echo unreached",
     .after = kReboots,
     .output =
         "supervise: the agent rebooted the device (1)\nsupervise: the agent ended with exit code 5\n1\n",
     .exit_code = 5},
    {.name = "failing_reboot_tool_ends_it",
     .options = "",
     .agent = "echo 9 >.device/qmx_reboot.exit; exec qmx_reboot reboot",
     .after = kReboots,
     .output = "supervise: the agent ended with exit code 9\n0\n",
     .exit_code = 9},
    {.name = "log_holds_what_is_printed",
     .options = "--agent-log log",
     .agent = "echo out; echo err >&2; exit 3",
     .after = "cat log",
     .output = "out\nerr\nsupervise: the agent ended with exit code 3\nout\nerr\nsupervise: the agent ended "
               "with exit "
               "code 3\n",
     .exit_code = 3},
    {.name = "pid_and_group_are_its_own",
     .options = "",
     .agent = "[ $(cat .device/agent.pid) = $$ ] && echo mine; exit 3",
     .after = "",
     .output = "mine\nsupervise: the agent ended with exit code 3\n",
     .exit_code = 3},
    {.name = "what_it_leaves_behind_is_killed",
     .options = "",
     .agent = "sleep 1000 & echo $! >child; exit 3",
     .after = "while kill -0 $(cat child) 2>/dev/null; do sleep 0.01; done; echo gone",
     .output = "supervise: the agent ended with exit code 3\ngone\n",
     .exit_code = 3},
    {.name = "signals_are_as_usual",
     .options = "",
     .agent = "grep -e SigBlk -e SigIgn /proc/self/status | grep -o ....$; exit 3",
     .after = "",
     .output = "0000\n0000\nsupervise: the agent ended with exit code 3\n",
     .exit_code = 3},
};

class Supervise : public testing::TestWithParam<AgentCase> {};

TEST_P(Supervise, agent) {
    const AgentCase &row = GetParam();
    const std::string agent = std::string("n=$(cat .device/reboots); ") + row.agent;
    const std::string start =
        std::string(SUPERVISE) + " " + row.options + " -- sh -c '" + agent + "'; code=$?; ";
    ViewProcess view = start_view({}, {"sh", "-c", start + row.after + "\nexit $code"});
    EXPECT_EQ(view.read_to_end(), row.output);
    EXPECT_EQ(view.wait(), row.exit_code);
}

INSTANTIATE_TEST_SUITE_P(Agents, Supervise, testing::ValuesIn(kAgents), by_name);

TEST(SuperviseStop, respawned_agent_runs_until_a_signal_comes) {
    ViewProcess view = start_view({}, {SUPERVISE, "--respawn", "--", "sh", "-c",
                                       "[ -e second ] && echo again && exec sleep 1000; : >second"});
    EXPECT_EQ(view.read_line(), "supervise: the agent ended with exit code 0\n");
    EXPECT_EQ(view.read_line(), "again\n");
    view.signal(SIGTERM);
    EXPECT_EQ(view.read_to_end(), "");
    EXPECT_EQ(view.wait(), 0);
}

TEST(SuperviseStop, missing_program_is_reported) {
    ViewProcess view = start_view({}, {SUPERVISE, "--", "/nonexistent"});
    EXPECT_EQ(view.read_to_end(),
              "supervise: cannot start /nonexistent: No such file or directory\n"
              "supervise: the agent ended with exit code 127\n");
    EXPECT_EQ(view.wait(), 127);
}

}  // namespace
