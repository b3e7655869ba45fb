// The support's own promises that other tests lean on.
#include <gtest/gtest.h>

#include "agent/utils/os.h"
#include "agent_test.h"

namespace {

TEST(Support, OpenNumbersMatchPositiveNumbersOnly) {
    EXPECT_EQ("line <N>.", with_open_numbers("line <N>.", "line 107."));
    EXPECT_EQ("line 0.", with_open_numbers("line <N>.", "line 0."));
    EXPECT_EQ("line x.", with_open_numbers("line <N>.", "line x."));
    EXPECT_EQ("line <N>", with_open_numbers("line <N>", "line 7"));
    EXPECT_EQ("more", with_open_numbers("", "more"));
    EXPECT_NE("line <N>.", with_open_numbers("line <N>.", "line 107"));
}

TEST(Support, AnEndlessLoopIsParkedAtItsPause) {
    fake_os::reset();
    int rounds = 0;
    EXPECT_TRUE(fake_os::run_until_pause(3, [&rounds] {
        for (;;) {
            rounds++;
            pause_seconds(2);
        }
    }));
    EXPECT_EQ(3, rounds);
    EXPECT_EQ((Texts{"2 s", "2 s", "2 s"}), fake_os::pauses());
    EXPECT_EQ(fake_os::kStart + 6, wall_seconds());
    EXPECT_EQ(fake_os::kSteadyStart + 6, steady_seconds());
    EXPECT_FALSE(fake_os::run_until_pause(1, [] {}));
}

}  // namespace
