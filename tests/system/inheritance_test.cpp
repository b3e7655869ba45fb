// An agent that is started badly: signals that are ignored or come too early, descriptors that are closed.
// And what it does about memory, which nobody else does for it.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "desk.h"

namespace {

DeskOptions launched(const std::string &line) {
    DeskOptions options;
    options.launch = line;
    return options;
}

bool emulated_agent() {
    const char *launcher = std::getenv("VELO_AGENT_LAUNCHER");
    return launcher != nullptr && *launcher != '\0';
}

}  // namespace

// --- Signals.

TEST(Inheritance, AlarmsFromTheFirstLineOnDoNoHarm) {
    DeskOptions options;
    options.wait = DeskOptions::started;
    Desk desk(options);
    desk.wait_for_log("Try log VeloAgent init time");
    const pid_t agent = desk.agent_pid();
    std::atomic<bool> over{false};
    std::thread storm([&] {
        while (!over) {
            kill(agent, SIGALRM);
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    });
    try {
        desk.wait_until_polling();
        desk.wait_for_cycles(2);
    } catch (const std::exception &error) {
        ADD_FAILURE() << error.what();
    }
    over = true;
    storm.join();
}

TEST(Inheritance, TheSdkMayTickAsSoonAsItIsEntered) {
    DeskOptions options;
    options.environment["DESK_SDK_AT_INIT"] =
        R"([["POST","/call",{"name":"alarm_func","args":[14],"threads":4,"repeat":1000}]])";
    options.reserve = false;  // which takes longer than a tick
    Desk desk(options);
    desk.wait_for_cycles(1);
}

TEST(Inheritance, TheEndOfACommandIsSeenThoughSigchldWasIgnored) {
    Desk desk(launched("exec env --ignore-signal=CHLD \"$@\" >>/tmp/agent.log 2>>/tmp/agent.err"));
    EXPECT_EQ(desk.count_in_log("*** initial perform_NTP() OK! ***\n"), 1);
    desk.call("notify_Z55_connection_status", {1});
    EXPECT_EQ(desk.sdk("GET", "/cloud_status")["values"], json{3});
}

TEST(Inheritance, WhatWasIgnoredStaysHarmlessAndIsNotHandedOn) {
    Desk desk(launched("exec env --ignore-signal=HUP,INT,USR1 \"$@\" >>/tmp/agent.log 2>>/tmp/agent.err"));
    for (const int number : {SIGHUP, SIGINT, SIGUSR1}) kill(desk.agent_pid(), number);
    desk.wait_for_cycles(2);
    const pid_t agent = desk.agent_pid();
    try {
        desk.call("rebootOperation", json::array());
    } catch (const std::runtime_error &) {
        // The process that would have answered is gone.
    }
    wait_until("the device is rebooted", [&] { return desk.reboots() == 1; });
    const json call = desk.tool_calls("qmx_reboot").back();
    EXPECT_EQ(call["pid"], agent);
    EXPECT_EQ(std::stoul(call["SigIgn"].get<std::string>(), nullptr, 16) & 0x7fffffff, 0u);
    desk.wait_until_polling();  // the leak checker asks the agent that runs now
}

// --- Descriptors.

TEST(Inheritance, WithoutAStandardOutputNoFileGetsTheLog) {
    DeskOptions options = launched("exec \"$@\" >&- 2>&-");
    options.wait = DeskOptions::started;
    Desk desk(options);
    wait_until("it polls", [&] { return desk.requests("CameraStatus").size() >= 2; });
    for (const char *descriptor : {"1", "2"}) {
        const std::string link = "/proc/" + std::to_string(desk.agent_pid()) + "/fd/" + descriptor;
        EXPECT_EQ(std::filesystem::read_symlink(link), "/dev/null") << "nor does a connection";
    }
    EXPECT_EQ(desk.call("get_device_status", {"Sdcard"})["value"], "1");
    EXPECT_EQ(count_of("localtime [ ", file_text("/tmp/fuse_d/nimbo.log")), 1);
    EXPECT_EQ(count_of("\n", file_text("/tmp/fuse_d/nimbo.log")), 1);
    EXPECT_EQ(file_text("/tmp/FWVER.txt"), "1.0.3");
    EXPECT_EQ(file_text("/tmp/working/cookie"), " Set-Cookie: Session=1000001\n");
}

// --- Memory.

TEST(Inheritance, AnAllocationThatFailsEndsTheAgentWithOneLine) {
    if (sanitized_agent() || emulated_agent()) GTEST_SKIP() << "the limit would be somebody else's";
    Desk desk;
    desk.expect_end();
    const rlimit little{256 << 20, 256 << 20};
    ASSERT_EQ(prlimit(desk.agent_pid(), RLIMIT_AS, &little, nullptr), 0);
    try {
        desk.call("set_device_param", {{{"repeat", "x"}, {"times", 1 << 30}}, "1"});
    } catch (const std::runtime_error &) {
        // The process that would have answered is gone.
    }
    wait_until("the agent ends", [] { return file_text("/tmp/.device/exits") != ""; });
    EXPECT_EQ(json::parse(file_text("/tmp/.device/exits"))["exit"], 1);
    EXPECT_EQ(count_of("VeloAgent: out of memory\n", desk.errors()), 1);
    EXPECT_EQ(count_of("terminate called", desk.errors()), 0);
}

#if defined(__GLIBC__) && __SIZEOF_POINTER__ == 8
// glibc puts each of its threads' arenas at the start of 64 MiB of its own: a piece in use, the rest without
// access.
int thread_arenas(pid_t process) {
    constexpr unsigned long kArena = 64UL << 20;
    std::ifstream maps("/proc/" + std::to_string(process) + "/maps");
    int count = 0;
    unsigned long candidate = 0;
    for (std::string line; std::getline(maps, line);) {
        char rights[5] = "";
        unsigned long start = 0, end = 0;
        if (std::sscanf(line.c_str(), "%lx-%lx %4s", &start, &end, rights) != 3) continue;
        const std::string right = rights;
        if (right == "---p" && candidate != 0 && end == candidate + kArena) count++;
        candidate = right == "rw-p" && start % kArena == 0 ? start : 0;
    }
    return count;
}

TEST(Inheritance, ManyThreadsShareOneArena) {
    if (sanitized_agent() || emulated_agent()) GTEST_SKIP() << "the allocator is another one";
    Desk desk;
    desk.call("get_device_status", {"Battery"}, {{"threads", 32}, {"repeat", 5}});
    EXPECT_EQ(thread_arenas(desk.agent_pid()), 0) << "beside the first thread's";
}
#endif
