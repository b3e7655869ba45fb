// What the agent's log tells of its poll cycles. Bent time makes every delay of the test machine many times
// as long, so a period is judged by the agent's own clock, never by the machine's.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "desk.h"

struct PollCycle {
    std::uint32_t second;  // the agent's wall clock, its lower half
    std::string keys;      // what was asked, joined by "&"; "Nimb" is the cloud storage's quota
};

// The cycles that were answered so far, oldest first.
std::vector<PollCycle> poll_cycles(Desk &desk);

// Expects `key` in the first cycle, and then in each that begins `period` seconds or more after the last one
// with it, and in no other. Where the wall clock was stepped between two cycles, `step_seconds` count as
// passed, and what is within `slack` seconds of the period is not judged.
void expect_asked_at_period(const std::vector<PollCycle> &cycles, const std::string &key, long period,
                            long step_seconds = 0, long slack = 0);

// Expects the pause between cycles (10 s, less the part of a second gone) before each poll that the camera
// saw. Half of it will do: the camera notes the time of a request when its own thread comes to it.
void expect_no_pause_skipped(const Desk &desk);
