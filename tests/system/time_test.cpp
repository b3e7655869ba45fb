// Clocks that step and a tick that interrupts: neither may show.
#include <gtest/gtest.h>

#include <signal.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <thread>

#include "poll_log.h"

namespace {

constexpr double kYear = 365.25 * 86400;

long voluntary_switches(pid_t thread) {
    std::ifstream status("/proc/" + std::to_string(thread) + "/task/" + std::to_string(thread) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("voluntary_ctxt_switches:")) return std::stol(line.substr(24));
    return -1;
}

// The ignored signals of a tool's call, but for the two that the C library keeps to itself.
unsigned long ignored_signals(const json &call) {
    return std::stoul(call["SigIgn"].get<std::string>(), nullptr, 16) &
           0x7fffffff;  // libraries keep real-time ones
}

}  // namespace

// The wall clock moves under the poll by years: every period stays what it was.
TEST(Time, StepsOfTheWallClockChangeNoPeriod) {
    DeskOptions options;
    options.speed = 40;
    options.conf = {{"POLL_STATUS_PERIOD_SEC", "10"}, {"BATTERY_PERIOD", "60"}, {"SDCARD_PERIOD", "100000"}};
    Desk desk(options);
    const double steps[] = {3 * kYear, -7 * kYear, -86400, 3600, 10 * kYear};
    for (const double step : steps) {
        const size_t cycles = poll_cycles(desk).size();
        desk.step_wall_clock(std::floor(step));
        wait_until("the polls go on", [&] { return poll_cycles(desk).size() >= cycles + 3; });
    }
    expect_asked_at_period(poll_cycles(desk), "Battery", 60, 10, 5);
    expect_no_pause_skipped(desk);
}

// A login that waits for its next try while the clock jumps back a decade.
TEST(Time, AStepBackDoesNotHoldUpTheNextLogin) {
    DeskOptions options;
    options.conf = {{"PASSWORD", "wrong"}};
    options.wait = DeskOptions::started;
    Desk desk(options);
    desk.wait_for_log("login failed, waiting for next try");
    for (int i = 0; i < 3; i++) {
        const size_t from = desk.log().size();
        desk.step_wall_clock(-3 * kYear);
        desk.wait_for_log("login failed, waiting for next try", from);
    }
    desk.write_conf({{"PASSWORD", "secret"}});
    desk.wait_until_polling();
}

TEST(Time, TheFirstSynchronisationMayMoveTheClockByYears) {
    for (const char *step : {"94608000", "-630720000"}) {
        DeskOptions options;
        options.wait = DeskOptions::not_started;
        Desk desk(options);
        desk.set_tool("ntpdate", "step", step);
        desk.start_agent();
        desk.wait_until_polling();
        desk.wait_for_cycles(2);
        EXPECT_EQ(desk.tool_calls("ntpdate").at(0)["args"], json::array({"pool.ntp.org"}));
        std::filesystem::remove("/tmp/agent.log");
    }
}

// Not in the tsan preset: its runtime keeps a signal back until the pause is over.
TEST(Time, TheTickWakesTheMainThreadAndItsPauseGoesOn) {
    DeskOptions options;
    options.conf = {{"POLL_STATUS_PERIOD_SEC", "5000"}};
    Desk desk(options);
    const pid_t agent = desk.agent_pid();
    const long before = voluntary_switches(agent);
    const size_t from = desk.log().size();
    wait_until("thirty ticks", [&] { return voluntary_switches(agent) >= before + 30; });
    EXPECT_EQ(desk.log().substr(from).find("finish sleeping"), std::string::npos);
}

TEST(Time, TheTickIsTheMainThreadsAlone) {
    Desk desk;
    const std::string tasks = "/proc/" + std::to_string(desk.agent_pid()) + "/task";
    int threads = 0;
    for (const auto &task : std::filesystem::directory_iterator(tasks)) {
        const std::string status = file_text(task.path() / "status");
        const size_t at = status.find("SigBlk:\t");
        if (at == std::string::npos) continue;  // the stand-in's threads come and go
        threads++;
        const unsigned long blocked = std::stoul(status.substr(at + 8, 16), nullptr, 16);
        const bool main_thread = task.path().filename() == std::to_string(desk.agent_pid());
        EXPECT_EQ((blocked >> (SIGALRM - 1) & 1) == 0, main_thread) << task.path();
    }
    EXPECT_GE(threads, 4) << "main, cloud, queue, clock";
}

// A tick every millisecond of the machine's clock while everything that can be interrupted runs. The test
// ticks: bent time that made the agent's own tick as fast would leave it two milliseconds to connect.
TEST(Time, TheTickInterruptsNothing) {
    DeskOptions options;
    options.conf = {{"POLL_STATUS_PERIOD_SEC", "1"}};
    Desk desk(options);
    std::atomic<bool> over{false};
    std::thread ticks([&over, agent = desk.agent_pid()] {
        while (!over) {
            kill(agent, SIGALRM);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    desk.set_tool("ping", "delay", "0.1");
    desk.fault({{"endpoint", "CameraSetting"}, {"kind", "drip"}, {"bytes", 8}, {"ms", 5}});
    for (int i = 0; i < 5; i++) {
        EXPECT_EQ(desk.call("get_device_status", {"Battery"}), (json{{"result", 2}, {"value", "90"}}));
        EXPECT_EQ(desk.call("set_device_param", {"pd_setting", std::to_string(20 + i)})["result"], 0);
        EXPECT_EQ(desk.call("notify_Z55_connection_status", {1}), json::object());
    }
    over = true;
    ticks.join();
    EXPECT_EQ(desk.sdk("GET", "/cloud_status")["values"], json(std::vector<int>(5, 3)));
    EXPECT_EQ(desk.count_in_log("res !=CURLE_OK"), 0);
    EXPECT_EQ(desk.conf_value("BATTERY_LOW"), "24");
}

// An alarm that runs or is pending survives into the program that replaces the agent, and so would a blocked
// signal. The tick comes every tenth of a millisecond here, to be caught at every point of the replacement.
TEST(Time, TheRebootToolInheritsNeitherTickNorMask) {
    DeskOptions options;
    options.speed = options.least_speed = 10'000;
    Desk desk(options);
    desk.set_tool("qmx_reboot", "delay", "0.02");
    for (int reboots = 1; reboots <= 8; reboots++) {
        const pid_t agent = desk.agent_pid();
        try {
            desk.call("rebootOperation", json::array());
        } catch (const std::runtime_error &) {
            // The process that would have answered is gone.
        }
        wait_until("the device is rebooted", [&] { return desk.reboots() == reboots; });
        const json call = desk.tool_calls("qmx_reboot").back();
        EXPECT_EQ(call["args"], json::array({"reboot"}));
        EXPECT_EQ(call["pid"], agent) << "the tool takes the agent's place";
        EXPECT_EQ(call["SigBlk"], "0000000000000000");
        EXPECT_EQ(ignored_signals(call), 0u);
        wait_until("the agent is started again", [&] { return desk.agent_pid() != agent; });
        desk.wait_until_polling();
    }
}

TEST(Time, EveryToolGetsAnEmptyMask) {
    Desk desk;
    desk.call("notify_Z55_connection_status", {1});
    for (const char *tool : {"ntpdate", "ifconfig", "netstat", "ping"}) {
        const auto calls = desk.tool_calls(tool);
        ASSERT_FALSE(calls.empty()) << tool;
        for (const json &call : calls) {
            EXPECT_EQ(call["SigBlk"], "0000000000000000") << call;
            EXPECT_EQ(ignored_signals(call), 0u) << call;
        }
    }
}
