// The support's own promises that other tests lean on.
#include <gtest/gtest.h>

#include "agent/utils/os.h"
#include "agent_test.h"

namespace {

TEST(Support, OpenNumbersMatchPositiveNumbersOnly) {
    EXPECT_EQ(with_open_numbers("line 107.", "line <N>."), "line <N>.");
    EXPECT_EQ(with_open_numbers("line 0.", "line <N>."), "line 0.");
    EXPECT_EQ(with_open_numbers("line x.", "line <N>."), "line x.");
    EXPECT_EQ(with_open_numbers("line 7", "line <N>"), "line <N>");
    EXPECT_EQ(with_open_numbers("more", ""), "more");
    EXPECT_NE(with_open_numbers("line 107", "line <N>."), "line <N>.");
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
    EXPECT_EQ(rounds, 3);
    EXPECT_EQ(fake_os::pauses(), (Texts{"2 s", "2 s", "2 s"}));
    EXPECT_EQ(wall_seconds(), fake_os::kStart + 6);
    EXPECT_EQ(steady_seconds(), fake_os::kSteadyStart + 6);
    EXPECT_FALSE(fake_os::run_until_pause(1, [] {}));
}

}  // namespace
