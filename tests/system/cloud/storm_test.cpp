// Everything at once: sixteen SDK threads with all handlers, polling, NTP, and a camera that misbehaves at
// random.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <map>
#include <random>
#include <thread>

#include "wire.h"

namespace {

// Handler and arguments, and whether the answer must be right while the camera behaves.
struct Call {
    const char *name;
    json arguments;
};

const std::vector<Call> kCalls = {
    {"get_device_param", {"md_armed"}},
    {"get_device_param", {"td_up"}},
    {"get_device_param", {"pd_setting"}},
    {"get_device_param", {"high_definition"}},
    {"get_device_param", {nullptr}},
    {"get_device_status", {"Battery"}},
    {"get_device_status", {"Sdsize"}},
    {"get_device_status", {"sdcardquota"}},
    {"get_device_status", {"firmware_ver"}},
    {"set_device_param", {"md_sensitivity", "8"}},
    {"set_device_param", {"td_armed", "1"}},
    {"set_device_param", {"pd_setting", "12"}},
    {"set_device_param", {"sdcard_armed", "1"}},
    {"set_device_param", {"md_armed", "7"}},
    {"set_device_param", {"save_param", ""}},
    {"ptz_direction_control", {30, 1}},
    {"ptz_direction_control", {42, 3}},
    {"ptz_direction_control", {44, 9}},
    {"ptz_direction_control", {45, 2}},
    {"ptz_direction_control", {3, 0}},
    {"get_camera_snapshot", {1}},
    {"get_camera_snapshot", {0}},
    {"notify_Z55_connection_status", {1}},
    {"device_play_audio", {{{"sequence", 0}, {"data_base64", "AAECAwQFBgcICQ=="}}}},
    {"start_recording_video", {5}},
    {"stop_recording_video", json::array()},
    {"c_request_audio", {0, 0}},
    {"get_record_start_time", {32}},
    {"read_conf_value", {"hostIP", "/tmp/working/VeloAgent.conf"}},
    {"get_session_key", json::array()},
};

const char *const kKinds[] = {"error_code", "http_status", "http10", "close",   "reset",
                              "truncate",   "garbage",     "pieces", "oversize"};

void misbehave_at_random(const Desk &desk, std::mt19937 &random) {
    json order = {
        {"endpoint", "*"}, {"kind", kKinds[random() % std::size(kKinds)]}, {"count", 1 + random() % 3}};
    if (order["kind"] == "error_code") order["value"] = random() % 2 == 0 ? -1 : -2;
    desk.fault(order);
    if (random() % 10 == 0) desk.camera("POST", "/session/expire");
}

// Waits until no thread started by a handler is left and returns the size.
AgentSize settled_size(const Desk &desk, int threads) {
    wait_until("the handlers' threads have ended", [&] { return thread_count(desk.agent_pid()) <= threads; });
    return agent_size(desk);
}

void run_storm(const Desk &desk, int rounds, bool with_faults) {
    std::atomic<bool> over{false};
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 16; i++) {
        threads.emplace_back([&, i] {
            std::mt19937 random(i);
            for (int n = 0; n < rounds; n++) {
                const Call &call = kCalls[random() % kCalls.size()];
                desk.call(call.name, call.arguments, {{"save", "/tmp/picture"}});
            }
        });
    }
    std::thread trouble([&] {
        std::mt19937 random(4711);
        while (with_faults && !over) {
            misbehave_at_random(desk, random);
            std::this_thread::sleep_for(std::chrono::milliseconds(40));
        }
    });
    for (std::thread &thread : threads) thread.join();
    over = true;
    trouble.join();
    desk.clear_faults();
}

}  // namespace

TEST(Storm, AllHandlersAtOnceOnAMisbehavingCameraLeaveTheAgentWell) {
    DeskOptions options;
    options.speed = sanitized_agent() ? 20 : 100;
    options.conf = {{"POLL_STATUS_PERIOD_SEC", "2"}, {"POOL_NTP_PERIOD_SEC", "10"}};
    Desk desk(options);
    const int threads = agent_size(desk).threads;
    run_storm(desk, 6, true);  // what is allocated once is allocated now
    desk.call("stop_recording_video", json::array());
    const AgentSize before = settled_size(desk, threads);
    run_storm(desk, sanitized_agent() ? 6 : 14, true);
    desk.call("stop_recording_video", json::array());
    settled_size(desk, threads);
    expect_same_size(desk, before);
    EXPECT_EQ(desk.reboots(), 0);

    desk.wait_for_cycles(2);
    desk.camera("PATCH", "/settings/MOTION_DETECTION", {{"ENABLE", "ON"}, {"SENSITIVITY", "4"}});
    desk.set_status("Battery", "66");
    EXPECT_EQ(desk.call("get_device_status", {"Battery"}), (json{{"result", 2}, {"value", "66"}}));
    EXPECT_EQ(desk.call("get_device_param", {"md_armed"}), (json{{"result", 1}, {"value", "1"}}));
    EXPECT_LE(desk.camera_state()["max_concurrent"], 2) << "only the main thread's login goes past the queue";
}

// Sixteen threads post different documents: each arrives whole, as often as it was posted.
TEST(Storm, TheBytesThatACallerFormattedAreTheBytesSent) {
    DeskOptions options;
    options.speed = 100;
    Desk desk(options);
    const long since = desk.last_request();
    std::vector<std::thread> threads;
    for (int i = 0; i < 16; i++) {
        threads.emplace_back([&, i] {
            const int volume = static_cast<int>(std::pow(10, i % 8)) + i;  // of different lengths
            desk.sdk("POST", "/call",
                     {{"name", "ptz_direction_control"}, {"args", {44, volume}}, {"repeat", 10}});
        });
    }
    for (std::thread &thread : threads) thread.join();
    std::map<std::string, int> sent;
    for (const std::string &command : commands(desk, since))
        if (command.starts_with("POST")) sent[command]++;
    EXPECT_EQ(sent.size(), 16u);
    for (int i = 0; i < 16; i++) {
        const std::string volume = std::to_string(static_cast<int>(std::pow(10, i % 8)) + i);
        const std::string document =
            "<RemoteControl><Action>LULLABY</Action><Volume>" + volume + "</Volume></RemoteControl>";
        EXPECT_EQ(sent[post("RemoteControl", document)], 10) << volume;
    }
    for (const json &request : desk.requests("RemoteControl", since))
        EXPECT_TRUE(request["cookie"].get<std::string>().starts_with("Session=")) << request["cookie"];
}
