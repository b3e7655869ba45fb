// Ten thousand poll cycles: memory, threads and descriptors stay what they are.
#include <gtest/gtest.h>

#include <iostream>

#include "desk.h"

namespace {

long cycles(const Desk &desk) {
    return desk.camera_state()["counters"].value("CameraStatus", 0L);
}

// The slope of a straight line through the samples, by least squares.
double slope(const std::vector<std::pair<double, double>> &samples) {
    double x = 0, y = 0, xx = 0, xy = 0;
    for (const auto &[at, value] : samples) {
        x += at;
        y += value;
        xx += at * at;
        xy += at * value;
    }
    const double n = static_cast<double>(samples.size());
    return (n * xy - x * y) / (n * xx - x * x);
}

}  // namespace

TEST(Endurance, TenThousandCyclesLeaveTheAgentAsItWas) {
    DeskOptions options;
    options.speed = options.least_speed = 3000;
    options.conf = {{"POLL_STATUS_PERIOD_SEC", "1"},
                    {"BATTERY_PERIOD", "20"},
                    {"SDCARD_PERIOD", "200"},
                    {"NIMB_PERIOD", "20"}};
    Desk desk(options);
    desk.set_status("MotionEvent", "1");
    const long scale = sanitized_agent() ? 20 : 1;  // a sanitizer keeps up with a slower clock only
    const long warm = 2000 / scale, total = 12'000 / scale, step = 250 / scale;
    const auto wait_for = [&](long count) {
        wait_until("the next cycles", [&] { return cycles(desk) >= count; });
    };
    for (long next = step; next <= warm; next += step) wait_for(next);
    const AgentSize before = agent_size(desk);
    std::vector<std::pair<double, double>> samples;
    for (long next = warm; next <= total; next += step) {
        wait_for(next);
        samples.emplace_back(static_cast<double>(next) / 1000, heap_in_use(desk).value_or(0) / 1024);
    }
    const double growth = slope(samples);
    std::cout << "memory in use: " << samples.front().second << " KiB at first, " << samples.back().second
              << " KiB at last, slope " << growth << " KiB in 1000 cycles\n";
    RecordProperty("slope_kib_per_1000_cycles", std::to_string(growth));
    EXPECT_LT(growth, 12) << "the smallest block lost in each cycle makes 31";
    expect_same_size(desk, before);
    EXPECT_GE(desk.sdk("GET", "/alarms?since=1000000000")["total"], 10'000 / scale);
}
