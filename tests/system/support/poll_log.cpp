#include "poll_log.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

constexpr std::uint32_t kLongestCycle = 3600;  // seconds; more, and the clock was stepped

bool asks(const PollCycle &cycle, const std::string &key) {
    return ("&" + cycle.keys + "&").find("&" + key + "&") != std::string::npos;
}

}  // namespace

std::vector<PollCycle> poll_cycles(Desk &desk) {
    const std::string keys_text = "*** keys_str = \"Notification&", quota_text = "*** (nimb_poll) ",
                      second_text = "curr tv_sec:";
    const std::string &log = desk.log();
    std::vector<PollCycle> cycles;
    for (size_t at = log.find(quota_text); at != std::string::npos; at = log.find(quota_text, at + 1)) {
        const size_t keys = log.rfind(keys_text, at) + keys_text.size();
        const size_t second = log.find(second_text, at);
        if (second == std::string::npos || log.find('\n', second) == std::string::npos) break;  // half a line
        const bool quota = log.compare(at + quota_text.size(), 2, "OK") == 0;
        cycles.push_back(
            {static_cast<std::uint32_t>(std::strtoll(log.c_str() + second + second_text.size(), nullptr, 10)),
             log.substr(keys, log.find('"', keys) - keys) + (quota ? "&Nimb" : "")});
    }
    return cycles;
}

void expect_asked_at_period(const std::vector<PollCycle> &cycles, const std::string &key, long period,
                            long step_seconds, long slack) {
    ASSERT_FALSE(cycles.empty());
    EXPECT_TRUE(asks(cycles[0], key));
    long passed = 0;
    for (size_t i = 1; i < cycles.size(); i++) {
        const std::uint32_t length = cycles[i].second - cycles[i - 1].second;
        passed += length <= kLongestCycle ? static_cast<long>(length) : step_seconds;
        const bool asked = asks(cycles[i], key);
        if (passed < period - slack || passed >= period + slack) {
            EXPECT_EQ(asked, passed >= period)
                << key << " in cycle " << i << ", " << passed << " s after the last";
        }
        if (asked) passed = 0;
    }
}

void expect_no_pause_skipped(const Desk &desk) {
    const auto polls = desk.requests("CameraStatus");
    for (size_t i = 1; i < polls.size(); i++) {
        const double pause =
            (polls[i]["time_ms"].get<double>() - polls[i - 1]["time_ms"].get<double>()) * desk.speed();
        EXPECT_GT(pause, 5000) << "before poll " << i;
    }
}
