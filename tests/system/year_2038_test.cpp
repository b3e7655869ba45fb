// The second at which a signed 32-bit time turns negative, 2038-01-19 03:14:08 UTC, passes while the agent
// runs.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>

#include "poll_log.h"

namespace {

constexpr std::int64_t kTurn = 2147483648;

// What the agent last printed of its wall clock: on a 32-bit target the lower half, with a sign.
std::uint32_t last_seconds(Desk &desk) {
    const std::string text = "curr tv_sec:";
    const size_t at = desk.log().rfind(text);
    if (at == std::string::npos) return 0;
    return static_cast<std::uint32_t>(std::strtoll(desk.log().c_str() + at + text.size(), nullptr, 10));
}

void step_to(Desk &desk, std::int64_t seconds) {
    desk.step_wall_clock(static_cast<double>(seconds - last_seconds(desk)));
}

}  // namespace

TEST(Year2038, ThePollGoesOnAtItsPeriods) {
    DeskOptions options;
    options.speed = 40;
    options.conf = {{"POLL_STATUS_PERIOD_SEC", "10"}, {"BATTERY_PERIOD", "60"}, {"NIMB_PERIOD", "60"}};
    Desk desk(options);
    step_to(desk, kTurn - 100);
    wait_until("the clock is about to turn", [&] { return last_seconds(desk) > kTurn - 1000; });
    EXPECT_LT(last_seconds(desk), kTurn);
    wait_until("the clock has turned", [&] { return last_seconds(desk) >= kTurn; });
    desk.wait_for_cycles(7);

    expect_asked_at_period(poll_cycles(desk), "Battery", 60, 10, 5);
    expect_no_pause_skipped(desk);
}

TEST(Year2038, ARecordingIsLoggedUnderItsYear) {
    DeskOptions options;
    options.speed = 20;
    Desk desk(options);
    step_to(desk, kTurn + 86400);
    EXPECT_EQ(desk.call("start_recording_video", {5})["result"], 0);
    wait_until("it is logged",
               [] { return file_text("/tmp/fuse_d/recording.log").find('\n') != std::string::npos; });
    EXPECT_EQ(file_text("/tmp/fuse_d/recording.log").substr(0, 8), "20380120");
}
