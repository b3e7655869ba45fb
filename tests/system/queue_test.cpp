// The job queue as the camera sees it: one transfer at a time, polls before commands, at most 80 waiting.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <thread>

#include "desk.h"

namespace fs = std::filesystem;

TEST(Queue, AStormOfSixteenThreadsIsServedOneByOneAndEachGetsItsOwnAnswer) {
    DeskOptions options;
    options.conf = {{"POLL_STATUS_PERIOD_SEC", "1"}};
    Desk desk(options);
    // Handler, name, and the answer that is nobody else's.
    const std::vector<std::array<std::string, 3>> calls = {
        {"get_device_status", "Battery", "81"},       {"get_device_status", "Temp_now_status", "-7"},
        {"get_device_status", "LullabySong", "82"},   {"get_device_status", "firmware_newver", "8.3"},
        {"get_device_param", "md_sensitivity", "84"}, {"get_device_param", "sd_sensitivity", "85"},
        {"get_device_param", "td_up", "86"},          {"get_device_param", "td_down", "87"},
    };
    desk.camera(
        "PATCH", "/status",
        {{"Battery", "81"}, {"Temperature", "-7"}, {"LullabySong", "82"}, {"NewFirmwareVersion", "8.3"}});
    desk.camera("PATCH", "/settings/MOTION_DETECTION", {{"SENSITIVITY", "84"}});
    desk.camera("PATCH", "/settings/AUDIO_DETECTION", {{"SENSITIVITY", "85"}});
    desk.camera("PATCH", "/settings/TEMPERATURE_ALERT", {{"MAX", "86"}, {"MIN", "87"}});
    const AgentSize before = agent_size(desk);
    desk.camera("DELETE", "/requests");

    std::atomic<int> wrong{0}, answers{0};
    const auto storm = [&] {
        std::vector<std::thread> threads;
        for (size_t i = 0; i < 16; i++) {
            threads.emplace_back([&, i] {
                const auto &[name, what, value] = calls[i % calls.size()];
                const json results =
                    desk.sdk("POST", "/call", {{"name", name}, {"args", {what}}, {"repeat", 12}});
                for (const json &result : results["results"]) {
                    answers++;
                    if (result["value"] != value) wrong++;
                }
            });
        }
        for (std::thread &thread : threads) thread.join();
    };
    const auto polls = [&] {
        const auto requests = desk.requests("CameraStatus");
        return std::count_if(requests.begin(), requests.end(), [](const json &request) {
            return request["target"].get<std::string>().find("Notification") != std::string::npos;
        });
    };
    int storms = 0;
    do {  // on a busy machine the df of a poll may last for a storm
        storm();
    } while (++storms < 50 && polls() == 0);
    EXPECT_GT(polls(), 0) << "polling went on";
    EXPECT_EQ(answers, storms * 16 * 12);
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(desk.camera_state()["max_concurrent"], 1);
    desk.wait_for_cycles(2);
    expect_same_size(desk, before);
}

TEST(Queue, ThePollGoesBeforeWaitingCommandsAndTheEightyFirstIsRefused) {
    Desk desk;
    const int hold = desk.fault({{"endpoint", "CameraSetting"}, {"kind", "hang"}});
    const size_t from = desk.log().size();
    const long since = desk.last_request();
    const auto call = [&](int threads) {
        desk.sdk(
            "POST", "/call",
            {{"name", "get_device_param"}, {"args", {"md_armed"}}, {"threads", threads}, {"async", true}});
    };
    call(1);
    wait_until("it is under way", [&] { return desk.camera("GET", "/faults").at(0)["hits"] == 1; });
    call(81);  // 80 wait; for whichever comes last there is no place
    desk.wait_for_log(
        "curl_queue_push_back: FULL\ncurlmgr_enqueue_job failed. The queue is full. res = -1.\n", from);
    const json refused = desk.call("get_device_param", {"md_armed"});
    EXPECT_EQ(refused, (json{{"result", 5}, {"value", "ERROR"}}));
    EXPECT_EQ(desk.count_in_log("curl_queue_push_back: FULL\n", from), 2);
    // The poll's queue still takes its job.
    const size_t polled =
        desk.wait_for_log("*** (poll) curl_perform starts ***\ncurlmgr_perform_curl called\n", from);
    desk.camera("DELETE", "/faults/" + std::to_string(hold));
    desk.wait_for_log("default size: 1\n", polled);
    wait_until("all calls are answered", [&] { return desk.sdk("GET", "/calls")["running"] == 0; });
    const auto served = desk.requests("", since);
    std::vector<std::string> order;
    for (const json &request : served) order.push_back(request["endpoint"]);
    const auto first_setting = std::find(order.begin(), order.end(), "CameraSetting");
    ASSERT_NE(first_setting, order.end());
    EXPECT_EQ(*(first_setting + 1), "CameraStatus") << "the poll overtakes 80 waiting commands";
    EXPECT_EQ(std::count(order.begin(), order.end(), "CameraSetting"), 81);
    EXPECT_EQ(desk.camera_state()["max_concurrent"], 1);
}

namespace {

// The socket's inode of each connection to this port of 127.0.0.1.
std::vector<std::string> inodes_of_connections_to(int port) {
    char remote[20];
    std::snprintf(remote, sizeof remote, "0100007F:%04X", port);
    std::vector<std::string> inodes;
    std::istringstream lines(file_text("/proc/net/tcp"));
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        const std::vector<std::string> columns{std::istream_iterator<std::string>(words), {}};
        if (columns.size() > 9 && columns[2] == remote) inodes.push_back(columns[9]);
    }
    return inodes;
}

// The flags of the descriptor that is this socket in the process; 0 where it has none.
int descriptor_flags(pid_t process, const std::string &inode) {
    const std::string proc = "/proc/" + std::to_string(process);
    for (const auto &entry : fs::directory_iterator(proc + "/fd")) {
        std::error_code gone;
        if (fs::read_symlink(entry, gone) != "socket:[" + inode + "]") continue;
        const std::string info = file_text(proc + "/fdinfo/" + entry.path().filename().string());
        return std::stoi(info.substr(info.find("flags:") + 6), nullptr, 8);
    }
    return 0;
}

}  // namespace

// A camera that serves one connection would wait for the end of every program that holds the last one's
// socket.
TEST(Queue, TheSocketOfATransferIsInheritedByNoChild) {
    Desk desk;
    desk.fault({{"endpoint", "CameraStatus"}, {"kind", "hang"}});
    wait_until("a poll is under way", [&] { return desk.camera_state()["in_progress"] == 1; });
    int sockets = 0;
    for (const std::string &inode : inodes_of_connections_to(desk.camera_port())) {
        const int flags = descriptor_flags(desk.agent_pid(), inode);
        if (flags == 0) continue;
        sockets++;
        EXPECT_NE(flags & O_CLOEXEC, 0);
    }
    EXPECT_EQ(sockets, 1);
    desk.clear_faults();
}

TEST(Queue, FailureRateIsTruncatedAndZeroWithoutFailures) {
    Desk desk;
    desk.wait_for_log("curlmgr_enqueue_job OK. res = 0, good=4 NG=0 fail_rate = 0\n ");
    EXPECT_EQ(desk.count_in_log("NG=1"), 0);
    desk.fault({{"endpoint", "CameraStatus"}, {"kind", "reset"}, {"count", 1}});
    const size_t failed = desk.wait_for_log("curlmgr_enqueue_job OK. res = 56, good=");
    const std::string counts = desk.log().substr(failed, 80);
    int good = 0, bad = 0, rate = -1;
    ASSERT_EQ(std::sscanf(counts.c_str(), "%d NG=%d fail_rate = %d\n ", &good, &bad, &rate), 3) << counts;
    EXPECT_EQ(bad, 1);
    EXPECT_EQ(rate, 100 / (good + 1));
}
