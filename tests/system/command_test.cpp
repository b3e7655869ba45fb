// Programs that the agent starts: what they inherit, what becomes of the agent while they hang, and what
// their answers may do.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "desk.h"
#include "row_names.h"

namespace fs = std::filesystem;

namespace {

// In the place of one of the host's own tools.
void put_program(const std::string &name, const std::string &script) {
    const std::string path = "/usr/bin/" + name;
    std::ofstream(path + ".new") << "#!/bin/sh\n" << script << "\n";
    fs::permissions(path + ".new", fs::perms{0755});
    fs::rename(path + ".new", path);
}

// Longer than any test takes, and unlike anybody else's.
constexpr char kHang[] = "sleep 47110815";

int hung_programs() {
    int count = 0;
    for (const auto &entry : fs::directory_iterator("/proc")) {
        const std::string command = file_text(entry.path() / "cmdline");
        if (command == std::string("sleep\0"
                                   "47110815\0",
                                   15))
            count++;
    }
    return count;
}

void expect_no_hung_program() {
    wait_until("what hung is gone", [] { return hung_programs() == 0; });
}

void start_call(const Desk &desk, const std::string &name, const json &arguments) {
    desk.sdk("POST", "/call", {{"name", name}, {"args", arguments}, {"async", true}});
}

}  // namespace

TEST(Command, ADfThatHangsHoldsThePollUpForAMinute) {
    DeskOptions options;
    options.conf = {{"SDCARD_PERIOD", "20"}};
    Desk desk(options);
    put_program("df", kHang);
    const size_t from = desk.log().size();
    desk.set_status("MotionEvent", "1");
    const size_t over = desk.wait_for_log(" get_SDspace_percent percent=100\n", from);
    expect_no_hung_program();
    desk.wait_for_log("SendAlarmData!! index:1, name:alarm, status: 1 ", over);
    desk.wait_for_cycles(2);
}

TEST(Command, ADfThatHangsIsNoAnswerToTheCloud) {
    DeskOptions options;
    options.conf = {{"SDCARD_PERIOD", "1000000"}};
    Desk desk(options);
    put_program("df", std::string("echo /dev/card 29000 1 1 /tmp/fuse_d; ") + kHang);
    EXPECT_EQ(desk.call("get_device_status", {"Sdsize"}), (json{{"result", 6}, {"value", "Sdsize"}}));
    EXPECT_EQ(desk.call("get_device_status", {"sdcardquota"}),
              (json{{"result", 11}, {"value", "sdcardquota"}}));
    expect_no_hung_program();
}

TEST(Command, AnNtpdateThatHangsHoldsTheStartUpForAMinute) {
    DeskOptions options;
    options.wait = DeskOptions::not_started;
    Desk desk(options);
    desk.set_tool("ntpdate", "delay", "47110815");
    desk.start_agent();
    desk.wait_for_log("fail to NTP calibration, system() return: 9\n");
    desk.wait_until_polling();
    desk.wait_for_log("fail to NTP calibration, system() return: 9\n",
                      desk.wait_for_log("NTP_poll polling\n"));
}

TEST(Command, APingThatRunsHoldsNoSocketOfTheAgents) {
    Desk desk;
    desk.fault({{"endpoint", "CameraSetting"}, {"kind", "hang"}});
    start_call(desk, "get_device_param", {"md_armed"});
    wait_until("a request is under way", [&] { return !desk.requests("CameraSetting").empty(); });
    desk.set_tool("ping", "delay", "47110815");
    start_call(desk, "notify_Z55_connection_status", {1});
    wait_until("ping runs", [&] { return !desk.tool_calls("ping").empty(); });
    const pid_t ping = desk.tool_calls("ping").at(0)["pid"];
    for (const auto &descriptor : fs::directory_iterator("/proc/" + std::to_string(ping) + "/fd")) {
        std::error_code gone;  // what the tool itself has closed meanwhile
        const std::string target = fs::read_symlink(descriptor, gone).string();
        EXPECT_FALSE(target.starts_with("socket:") || target.starts_with("anon_inode:")) << target;
    }
    desk.clear_faults();
}

// --- Answers.

struct RoutingRow {
    const char *name, *line;
};

class RoutingTable : public testing::TestWithParam<RoutingRow> {};

TEST_P(RoutingTable, IsNoCommand) {
    Desk desk;
    desk.set_tool("netstat", "stdout", GetParam().line);
    desk.call("notify_Z55_connection_status", {1});
    EXPECT_EQ(desk.tool_calls("ping").size(), 0u);
    EXPECT_FALSE(fs::exists("/tmp/owned"));
    EXPECT_EQ(desk.sdk("GET", "/cloud_status")["values"], json{2});
    EXPECT_EQ(desk.count_in_log("Default gateway not found.\n"), 1);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, RoutingTable,
    testing::Values(RoutingRow{.name = "command between", .line = "0.0.0.0 1;touch /tmp/owned;.2.3.4\n"},
                    RoutingRow{.name = "command within", .line = "0.0.0.0 1$(touch /tmp/owned).2.3.4\n"},
                    RoutingRow{.name = "number too long", .line = "0.0.0.0 1.2.3.4444\n"}),
    by_name);

TEST(Command, NoOutputFollowsAPlantedLink) {
    DeskOptions options;
    options.wait = DeskOptions::not_started;
    Desk desk(options);
    const std::vector<std::string> files = {"gateway.txt", "total", "space", "space_percent"};
    for (const std::string &file : files) {
        std::ofstream("/tmp/victim_of_" + file) << "mine";
        fs::create_symlink("/tmp/victim_of_" + file, "/tmp/" + file);
    }
    desk.start_agent();
    desk.wait_until_polling();
    desk.call("notify_Z55_connection_status", {1});
    desk.call("get_device_status", {"Sdsize"});
    desk.call("get_device_status", {"sdcardquota"});
    for (const std::string &file : files) {
        EXPECT_EQ(file_text("/tmp/victim_of_" + file), "mine");
        EXPECT_TRUE(fs::is_regular_file(fs::symlink_status("/tmp/" + file))) << file;
        EXPECT_NE(file_text("/tmp/" + file), "");
    }
}
