// How long each handler holds the thread that calls it while the camera is slow, silent or lost: its own
// requests, each within its limit, and its own pauses. What it measures stands in docs/INTEGRATION.md; what
// other requests ahead of it in the queue take comes on top.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>

#include "desk.h"
#include "row_names.h"

namespace {

// Seconds of the agent's time.
constexpr double kSlowReply = 20;
constexpr double kSilence = 600;  // after which a transfer without a byte ends
constexpr double kConnect = 2;
constexpr double kUnacknowledged = 30;  // after which a transfer ends whose bytes nobody acknowledges
// A login's connection attempt, which has no limit of its own, ends when it would be repeated next: after 31
// s, here later, because the kernel's first repetition comes after a second that cannot be bent.
constexpr double kAttempt = 60;

struct Handler {
    const char *name;
    const char *call;
    json arguments;
    // The requests that it makes: with a camera that answers, and with one that does not.
    int answered, unanswered;
    double pauses = 0;             // seconds that it sleeps where the camera answers
    bool recording = false;        // a recording runs beforehand
    double lost_limit = kConnect;  // per request
};

const Handler kHandlers[] = {
    {.name = "StatusRead",
     .call = "get_device_status",
     .arguments = {"Battery"},
     .answered = 1,
     .unanswered = 1},
    {.name = "ParameterRead",
     .call = "get_device_param",
     .arguments = {"md_armed"},
     .answered = 1,
     .unanswered = 1},
    {.name = "ParameterWrite",
     .call = "set_device_param",
     .arguments = {"md_armed", "1"},
     .answered = 2,
     .unanswered = 1},
    {.name = "UpgradeOrder",
     .call = "set_device_param",
     .arguments = {"doOTA", "1"},
     .answered = 6,
     .unanswered = 6},
    {.name = "NightLight",
     .call = "ptz_direction_control",
     .arguments = {30, 1},
     .answered = 1,
     .unanswered = 1},
    {.name = "Lullaby",
     .call = "ptz_direction_control",
     .arguments = {40, 1},
     .answered = 2,
     .unanswered = 1},
    {.name = "Resolution",
     .call = "ptz_direction_control",
     .arguments = {45, 2},
     .answered = 0,
     .unanswered = 0},
    {.name = "Photo",
     .call = "get_camera_snapshot",
     .arguments = {0},
     .answered = 3,
     .unanswered = 1,
     .pauses = 3},
    {.name = "Thumbnail", .call = "get_camera_snapshot", .arguments = {1}, .answered = 0, .unanswered = 0},
    {.name = "RecordingStart",
     .call = "start_recording_video",
     .arguments = {0},
     .answered = 2,
     .unanswered = 1,
     .pauses = 2},
    {.name = "RecordingStop",
     .call = "stop_recording_video",
     .arguments = json::array(),
     .answered = 2,
     .unanswered = 1,
     .pauses = 5,
     .recording = true},
    {.name = "Login",
     .call = "login",
     .arguments = json::array(),
     .answered = 1,
     .unanswered = 1,
     .lost_limit = kAttempt},
    {.name = "TalkBackFrame",
     .call = "device_play_audio",
     .arguments = {{{"sequence", 1}, {"data_base64", "AAAA"}}},
     .answered = 0,
     .unanswered = 0},
};

void PrintTo(const Handler &handler, std::ostream *out) {
    *out << handler.name;
}

class Blocking : public testing::TestWithParam<Handler> {
  protected:
    static DeskOptions desk_of(double speed) {
        DeskOptions options;
        options.speed = speed;
        // One poll at the start and no more: the queue is the handler's own.
        options.conf = {{"POLL_STATUS_PERIOD_SEC", "10000000"}, {"POOL_NTP_PERIOD_SEC", "10000000"}};
        options.camera_config = {{"photo_delay_ms", 0}};
        return options;
    }
    // Seconds of the agent's time that the call takes.
    static double seconds_of(const Desk &desk) {
        const auto start = std::chrono::steady_clock::now();
        desk.call(GetParam().call, GetParam().arguments);
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() * desk.speed();
    }
    static void prepare(const Desk &desk) {
        desk.set_status("Adaptor", "0");  // an upgrade is refused after its checks
        if (GetParam().recording) desk.call("start_recording_video", {0});
    }
    static void expect_within(const char *state, double seconds, double limit, const Desk &desk) {
        std::printf("%-15s %-7s %8.1f s, limit %.0f s\n", GetParam().name, state, seconds, limit);
        EXPECT_LE(seconds, limit * 1.1 + desk.call_cost() * desk.speed()) << state;
    }
};

}  // namespace

TEST_P(Blocking, WithASlowCamera) {
    constexpr double kSpeed = 100;
    Desk desk(desk_of(kSpeed));
    prepare(desk);
    desk.fault({{"kind", "delay"}, {"ms", kSlowReply * 1000 / kSpeed}});
    // The pause between requests reaches at most the next tenth of a second.
    expect_within("slow", seconds_of(desk), GetParam().answered * (kSlowReply + 0.1) + GetParam().pauses,
                  desk);
}

TEST_P(Blocking, WithASilentCamera) {
    DeskOptions options = desk_of(1000);
    options.least_speed = 200;  // which is 18 s for six requests
    Desk desk(options);
    prepare(desk);
    desk.fault({{"kind", "hang"}});
    expect_within("silent", seconds_of(desk), GetParam().unanswered * (kSilence + 1), desk);
}

TEST_P(Blocking, WithALostCamera) {
    constexpr double kSpeed = 50;
    Desk desk(desk_of(kSpeed));
    prepare(desk);
    desk.camera("POST", "/vanish");
    expect_within("lost", seconds_of(desk), GetParam().unanswered * (GetParam().lost_limit + 0.1), desk);
}

// Of the handlers that ask the camera.
class BlockingMidway : public Blocking {};

// The camera goes while the first request is under way, with bytes of it unacknowledged or a reply awaited.
TEST_P(BlockingMidway, WithACameraThatIsLostMidway) {
    constexpr double kSpeed = 10;  // probes of a silent connection cannot be bent below a second each
    Desk desk(desk_of(kSpeed));
    prepare(desk);
    desk.fault({{"kind", "hang"}});
    desk.sdk("POST", "/call", {{"name", GetParam().call}, {"args", GetParam().arguments}, {"async", true}});
    wait_until("its request is under way", [&] { return desk.camera_state()["in_progress"] == 1; });
    desk.camera("POST", "/vanish");
    // From here: on a busy machine the camera may have been there for probes of the silent connection till
    // now.
    const auto start = std::chrono::steady_clock::now();
    wait_until("the call ends", [&] { return desk.sdk("GET", "/calls")["running"] == 0; });
    const std::chrono::duration<double> real = std::chrono::steady_clock::now() - start;
    const double others = (GetParam().unanswered - 1) * (GetParam().lost_limit + 0.1);
    expect_within("midway", real.count() * desk.speed(), kUnacknowledged + 10 + others, desk);
}

std::vector<Handler> handlers_that_ask() {
    std::vector<Handler> asking;
    for (const Handler &handler : kHandlers) {
        if (handler.unanswered > 0) asking.push_back(handler);
    }
    return asking;
}

INSTANTIATE_TEST_SUITE_P(Handlers, Blocking, testing::ValuesIn(kHandlers), by_name);
INSTANTIATE_TEST_SUITE_P(Handlers, BlockingMidway, testing::ValuesIn(handlers_that_ask()), by_name);
