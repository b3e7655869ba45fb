// Clocks, pauses and the page cache as they really are. The linker sends the clock calls and sync here first.
#include "agent/utils/os.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <vector>

#include "read_file.h"
#include "wrapped_clocks.h"

namespace {

constexpr std::int64_t kSecond = 1'000'000'000;  // nanoseconds

struct Sleep {
    clockid_t clock;
    int flags;
    std::int64_t deadline;  // nanoseconds
    bool operator==(const Sleep &) const = default;
};

std::int64_t wall = 0, steady = 0;  // nanoseconds
std::vector<Sleep> sleeps;
int interruptions = 0;  // of the sleeps to come
bool clocks_fail = false;
std::string cache_file_at_sync;
int syncs = 0;

constexpr char kDropCaches[] = "/proc/sys/vm/drop_caches";

}  // namespace

extern "C" {

int WRAPPED_GETTIME(clockid_t clock, timespec *reading) {
    if (clocks_fail) return -1;
    const std::int64_t now = clock == CLOCK_MONOTONIC ? steady : wall;
    reading->tv_sec = static_cast<time_t>(now / kSecond);
    reading->tv_nsec = static_cast<long>(now % kSecond);
    return 0;
}

int WRAPPED_NANOSLEEP(clockid_t clock, int flags, const timespec *deadline, timespec *left) {
    sleeps.push_back({clock, flags, deadline->tv_sec * kSecond + deadline->tv_nsec});
    if (interruptions-- <= 0) return 0;
    if (flags != TIMER_ABSTIME) left->tv_nsec -= 100'000'000;
    return EINTR;
}

void __wrap_sync() {
    syncs++;
    cache_file_at_sync = read_file(kDropCaches);
}

}  // extern "C"

namespace {

class Os : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(std::filesystem::exists("/tmp/.device")) << "runs in the device view only";
        wall = 100 * kSecond;
        steady = 50 * kSecond + 700'000'000;
        sleeps.clear();
        interruptions = 0;
        clocks_fail = false;
        syncs = 0;
    }
    static std::vector<Sleep> until(std::int64_t deadline) {
        return {{CLOCK_MONOTONIC, TIMER_ABSTIME, deadline}};
    }
};

// --- Clocks and pauses.

TEST_F(Os, WallSecondsAreWholeAndGoOnAfter2038) {
    wall = 123 * kSecond + 999'999'999;
    EXPECT_EQ(wall_seconds(), 123);
    wall = std::int64_t{0x80000005} * kSecond;
    EXPECT_EQ(wall_seconds(), 0x80000005);
}

TEST_F(Os, SteadySecondsGrowByAPauseWhateverTheFractions) {
    for (const std::int64_t wall_fraction : {0, 1, 300'000'000, 999'999'999}) {
        for (const std::int64_t steady_fraction : {0, 1, 500'000'000, 999'999'999}) {
            wall = 100 * kSecond + wall_fraction;
            steady = 50 * kSecond + steady_fraction;
            const std::int64_t before = steady_seconds();
            const std::int64_t late = 40'000'000;
            const std::int64_t pause = 5 * kSecond - wall_fraction + late;
            wall += pause;
            steady += pause;
            EXPECT_EQ(steady_seconds(), before + 5) << wall_fraction << " " << steady_fraction;
        }
    }
}

TEST_F(Os, SteadySecondsAreTheMonotonicClocksToTheNearest) {
    EXPECT_EQ(steady_seconds(), 51);
    wall += 200'000'000;
    EXPECT_EQ(steady_seconds(), 51);
    wall += 1;
    EXPECT_EQ(steady_seconds(), 50);
}

TEST_F(Os, SteadySecondsDoNotFollowAStep) {
    const std::int64_t before = steady_seconds();
    wall += 365 * 86400 * kSecond;
    EXPECT_EQ(steady_seconds(), before);
}

TEST_F(Os, SleepIsTheNominalLengthOnTheMonotonicClock) {
    sleep_milliseconds(300);
    EXPECT_EQ(sleeps, until(steady + 300'000'000));
}

TEST_F(Os, NoLengthIsNoSleep) {
    sleep_milliseconds(0);
    sleep_milliseconds(-5);
    pause_seconds(0);
    EXPECT_TRUE(sleeps.empty());
}

TEST_F(Os, ALongSleepDoesNotOverflow) {
    sleep_milliseconds(2'000'000'000);
    EXPECT_EQ(sleeps, until(steady + 2'000'000 * kSecond));
}

TEST_F(Os, ASignalDoesNotChangeTheEndOfASleep) {
    interruptions = 2;
    sleep_milliseconds(300);
    const Sleep one{CLOCK_MONOTONIC, TIMER_ABSTIME, steady + 300'000'000};
    EXPECT_EQ(sleeps, (std::vector<Sleep>{one, one, one}));
}

// Whoever pauses between two tries must not spin.
TEST_F(Os, WithoutAClockASleepHasItsLengthAllTheSame) {
    clocks_fail = true;
    interruptions = 2;
    sleep_milliseconds(300);
    EXPECT_EQ(sleeps, (std::vector<Sleep>{{CLOCK_MONOTONIC, 0, 300'000'000},
                                          {CLOCK_MONOTONIC, 0, 200'000'000},
                                          {CLOCK_MONOTONIC, 0, 100'000'000}}));
    sleeps.clear();
    pause_seconds(5);
    EXPECT_EQ(sleeps, (std::vector<Sleep>{{CLOCK_MONOTONIC, 0, 5 * kSecond}}));
}

TEST_F(Os, APauseIsItsSecondsLessThePartOfTheCurrentOneGone) {
    wall += 300'000'000;
    pause_seconds(5);
    EXPECT_EQ(sleeps, until(steady + 4'700'000'000));
    sleeps.clear();
    wall = 7 * kSecond;
    pause_seconds(5);
    EXPECT_EQ(sleeps, until(steady + 5 * kSecond));
    sleeps.clear();
    pause_seconds(1'000'000);
    EXPECT_EQ(sleeps, until(steady + 1'000'000 * kSecond));
}

TEST_F(Os, TheDeadlineOfAPauseIsWhereItWouldEnd) {
    for (const std::int64_t gone : {0, 1, 300'000'000, 999'999'999}) {
        wall = 100 * kSecond + gone;
        for (const long seconds : {1L, 5L, 2'000'000'000L}) {
            const timespec deadline = pause_deadline(seconds);
            sleeps.clear();
            pause_seconds(seconds);
            EXPECT_EQ(sleeps, until(deadline.tv_sec * kSecond + deadline.tv_nsec)) << gone << " " << seconds;
        }
    }
    EXPECT_EQ(pause_deadline(5).tv_sec, 54) << "50.7 s and 4 s and a bit";
}

TEST_F(Os, APauseWithinTheSecondEndsWhereTheSecondHasGoneFar) {
    wall += 30'000'000;
    pause_within_second(100'000'000);
    EXPECT_EQ(sleeps, until(steady + 70'000'000));
    sleeps.clear();
    for (const std::int64_t gone : {100'000'000, 500'000'000, 999'999'999}) {
        wall = 100 * kSecond + gone;
        pause_within_second(100'000'000);
    }
    EXPECT_TRUE(sleeps.empty());
}

// --- The page cache: a plain file of the view.

TEST_F(Os, ThePageCacheIsDroppedAfterAllIsWrittenBack) {
    ASSERT_TRUE(std::filesystem::exists("/tmp/.device/drop_caches"));
    std::ofstream(kDropCaches) << "0";
    const auto descriptors = [] {
        const auto list = std::filesystem::directory_iterator("/proc/self/fd");
        return std::distance(begin(list), end(list));
    };
    const auto before = descriptors();
    drop_page_cache();
    EXPECT_EQ(descriptors(), before);
    EXPECT_EQ(syncs, 1);
    EXPECT_EQ(cache_file_at_sync, "0");
    EXPECT_EQ(read_file(kDropCaches), "1");
}

}  // namespace
