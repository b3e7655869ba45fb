// Steps of the bent wall clock while the process runs, to years that int64 nanoseconds do not reach, too.
#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/time.h>

#include <atomic>
#include <cmath>
#include <fstream>
#include <functional>
#include <ostream>
#include <string>
#include <thread>

#include "bend_test.h"
#include "row_names.h"

namespace {

constexpr double kYear = 365 * 86400.0;
constexpr double kLate = 2 * kSpeed;  // bent seconds that a loaded machine may add

TEST(WallStep, moves_the_wall_clock_alone) {
    const double wall = bent_seconds(CLOCK_REALTIME), steady = bent_seconds(CLOCK_MONOTONIC);
    const double boot = bent_seconds(CLOCK_BOOTTIME);
    const time_t whole = time(nullptr);
    step_wall_clock(-3 * kYear);
    EXPECT_NEAR(bent_seconds(CLOCK_REALTIME), wall - 3 * kYear, kLate);
    EXPECT_NEAR(static_cast<double>(time(nullptr)), static_cast<double>(whole) - 3 * kYear, kLate);
    EXPECT_GE(bent_seconds(CLOCK_MONOTONIC), steady);
    EXPECT_NEAR(bent_seconds(CLOCK_MONOTONIC), steady, kLate);
    EXPECT_NEAR(bent_seconds(CLOCK_BOOTTIME), boot, kLate);
    step_wall_clock(3 * kYear);
    EXPECT_NEAR(bent_seconds(CLOCK_REALTIME), wall, kLate);
}

TEST(WallStep, tool_steps_and_shows) {
    const double wall = bent_seconds(CLOCK_REALTIME);
    ASSERT_EQ(system(BEND_STEP " -- -86400.5"), 0);
    EXPECT_NEAR(bent_seconds(CLOCK_REALTIME), wall - 86400.5, kLate);
    EXPECT_EQ(system("test \"$(" BEND_STEP " --show)\" = -86400.500000000"), 0);
    ASSERT_EQ(system(BEND_STEP " 86400.5"), 0);
    for (const char *refused : {"soon", "1e13", "-1e13", "nan"})
        EXPECT_NE(system((std::string(BEND_STEP " -- ") + refused + " 2>/dev/null").c_str()), 0) << refused;
}

struct WaitCase {
    const char *name;
    clockid_t clock;
    std::function<int(const timespec &deadline)> wait;
};

void PrintTo(const WaitCase &row, std::ostream *out) {
    *out << row.name;
}

const WaitCase kWallWaits[] = {
    {.name = "pthread_cond_timedwait",
     .clock = CLOCK_REALTIME,
     .wait = [](const timespec &deadline) { return wait_on_condition(CLOCK_REALTIME, deadline); }},
    {.name = "sem_timedwait",
     .clock = CLOCK_REALTIME,
     .wait =
         [](const timespec &deadline) {
             sem_t semaphore;
             sem_init(&semaphore, 0, 0);
             return sem_timedwait(&semaphore, &deadline);
         }},
    {.name = "clock_nanosleep",
     .clock = CLOCK_REALTIME,
     .wait =
         [](const timespec &deadline) {
             return clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &deadline, nullptr);
         }},
};

class WallWait : public testing::TestWithParam<WaitCase> {};

TEST_P(WallWait, ends_when_the_clock_steps_past_its_deadline) {
    const timespec deadline = bent_deadline(CLOCK_REALTIME, kYear);
    std::thread stepper([] {
        sleep(3);
        step_wall_clock(2 * kYear);
    });
    const double start = real_seconds();
    GetParam().wait(deadline);
    EXPECT_LT(real_seconds() - start, 5);
    stepper.join();
    step_wall_clock(-2 * kYear);
}

TEST_P(WallWait, lasts_longer_when_the_clock_steps_back) {
    // The step must come before the deadline, however late a busy machine is: three real seconds will do.
    const double start = bent_seconds(CLOCK_MONOTONIC);
    const timespec deadline = bent_deadline(CLOCK_REALTIME, 300);
    std::thread stepper([] {
        sleep(3);
        step_wall_clock(-20);
    });
    GetParam().wait(deadline);
    EXPECT_GE(bent_seconds(CLOCK_MONOTONIC) - start, 319.9);
    stepper.join();
    step_wall_clock(20);
}

INSTANTIATE_TEST_SUITE_P(Functions, WallWait, testing::ValuesIn(kWallWaits), by_name);

TEST(WallStep, leaves_a_monotonic_wait_alone) {
    const double start = bent_seconds(CLOCK_MONOTONIC);
    const timespec deadline = bent_deadline(CLOCK_MONOTONIC, 30);
    std::thread stepper([] {
        sleep(3);
        step_wall_clock(kYear);
    });
    EXPECT_EQ(wait_on_condition(CLOCK_MONOTONIC, deadline), ETIMEDOUT);
    const double waited = bent_seconds(CLOCK_MONOTONIC) - start;
    EXPECT_GE(waited, 29.9);
    EXPECT_LT(waited, 30 + kLate);
    stepper.join();
    step_wall_clock(-kYear);
}

struct FarCase {
    const char *name;
    double second;  // since 1970
};

void PrintTo(const FarCase &row, std::ostream *out) {
    *out << row.name;
}

const FarCase kFarSeconds[] = {
    {.name = "year_1", .second = -62135596800},
    {.name = "year_1901", .second = -2177452800},
    {.name = "an_hour_before_1970", .second = -3600},
    {.name = "the_turn_of_1970", .second = -5},
    {.name = "the_last_second_of_int64_nanoseconds", .second = 9223372036 - 5},
    {.name = "the_turn_of_the_year_10000", .second = 253402300800 - 5},
    {.name = "year_30000", .second = 884541340800},
};

// The clock stands at the row's second, and back where it was after the test.
class FarWall : public testing::TestWithParam<FarCase> {
  protected:
    void SetUp() override {
        if (sizeof(time_t) < 8) GTEST_SKIP() << "time_t does not reach there";
        step = GetParam().second - std::floor(bent_seconds(CLOCK_REALTIME));
        step_wall_clock(step);
    }
    void TearDown() override {
        step_wall_clock(-step);
    }
    double step = 0;
};

// Who waits for what is left of a second takes the fraction from one: a negative fraction doubles such a
// wait.
TEST_P(FarWall, reads_whole_seconds_and_what_is_beyond) {
    const double end = real_seconds() + 0.1;
    while (real_seconds() < end) {
        timespec fine{};
        timeval coarse{};
        const time_t before = time(nullptr);
        clock_gettime(CLOCK_REALTIME, &fine);
        gettimeofday(&coarse, nullptr);
        const time_t after = time(nullptr);
        ASSERT_GE(fine.tv_nsec, 0);
        ASSERT_LT(fine.tv_nsec, 1'000'000'000);
        ASSERT_GE(coarse.tv_usec, 0);
        ASSERT_LT(coarse.tv_usec, 1'000'000);
        ASSERT_LE(before, fine.tv_sec);
        ASSERT_LE(fine.tv_sec, coarse.tv_sec);
        ASSERT_LE(coarse.tv_sec, after);
        ASSERT_NEAR(static_cast<double>(after), GetParam().second, kLate);
    }
}

TEST_P(FarWall, waits_last_their_length) {
    for (const WaitCase &row : kWallWaits) {
        const double start = bent_seconds(CLOCK_MONOTONIC);
        row.wait(bent_deadline(CLOCK_REALTIME, 10));
        const double waited = bent_seconds(CLOCK_MONOTONIC) - start;
        EXPECT_GE(waited, 9.99) << row.name;
        EXPECT_LT(waited, 10 + kLate) << row.name;
    }
}

INSTANTIATE_TEST_SUITE_P(Seconds, FarWall, testing::ValuesIn(kFarSeconds), by_name);

// A waiter that sleeps in slices must not lose a signal that falls between two of them.
TEST(WallStep, no_signal_is_lost_in_a_sliced_wait) {
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    int turn = 0;
    constexpr int kTurns = 400;
    const timespec deadline = bent_deadline(CLOCK_REALTIME, kYear);
    const auto take_turns = [&](int mine) {
        for (int i = 0; i < kTurns; ++i) {
            pthread_mutex_lock(&mutex);
            while (turn % 2 != mine) pthread_cond_timedwait(&condition, &mutex, &deadline);
            ++turn;
            pthread_mutex_unlock(&mutex);
            pthread_cond_signal(&condition);
        }
    };
    std::thread other([&] { take_turns(1); });
    take_turns(0);
    other.join();
    EXPECT_EQ(turn, 2 * kTurns);
}

TEST(WallStep, sync_is_only_recorded) {
    const auto count_lines = [] {
        std::ifstream calls("/tmp/.device/calls");
        int count = 0;
        for (std::string line; std::getline(calls, line);)
            count += line.find("\"tool\":\"sync\"") != std::string::npos;
        return count;
    };
    const int before = count_lines();
    sync();
    EXPECT_EQ(count_lines(), before + 1);
}

}  // namespace
