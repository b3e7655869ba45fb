// Alarms and interval timers come after their bent length, and a sleep that one interrupts tells what was
// left.
#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

#include "bend_test.h"

namespace {

std::atomic<int> alarms;

void count_alarm(int) {
    alarms++;
}

void count_and_rearm(int) {
    alarms++;
    alarm(1);
}

void handle_alarm(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigaction(SIGALRM, &action, nullptr);
    alarms = 0;
}

// Polls on bent pauses; the real limit is what a loaded machine may take.
void wait_for_alarms(int count) {
    const double start = real_seconds();
    while (alarms < count && real_seconds() - start < kLate) usleep(10'000);
}

TEST(BentAlarm, ten_seconds_take_a_tenth_of_one) {
    handle_alarm(count_alarm);
    const double start = real_seconds();
    EXPECT_EQ(alarm(10), 0U);
    wait_for_alarms(1);
    const double real_length = real_seconds() - start;
    EXPECT_EQ(alarms, 1);
    EXPECT_GE(real_length, 0.0999);
    EXPECT_LT(real_length, 0.1 + kLate);
}

TEST(BentAlarm, tick_rearms_itself_from_its_handler) {
    handle_alarm(count_and_rearm);
    const double start = real_seconds();
    alarm(1);
    wait_for_alarms(20);
    EXPECT_GE(alarms, 20);
    EXPECT_GE(real_seconds() - start, 0.1999);
    alarm(0);
}

TEST(BentAlarm, remaining_seconds_are_scaled_back) {
    EXPECT_EQ(alarm(500), 0U);
    const unsigned left = alarm(0);
    EXPECT_LE(left, 500U);
    EXPECT_GE(left, 500U - static_cast<unsigned>(kLate * kSpeed));
    EXPECT_EQ(alarm(0), 0U);
}

TEST(BentAlarm, interval_timer_is_divided_and_scaled_back) {
    handle_alarm(count_alarm);
    const itimerval every_second = {{1, 0}, {1, 0}};
    const double start = real_seconds();
    ASSERT_EQ(setitimer(ITIMER_REAL, &every_second, nullptr), 0);
    itimerval value{};
    getitimer(ITIMER_REAL, &value);
    EXPECT_EQ(value.it_interval.tv_sec, 1);
    wait_for_alarms(10);
    EXPECT_GE(alarms, 10);
    EXPECT_GE(real_seconds() - start, 0.0999);
    const itimerval none{};
    setitimer(ITIMER_REAL, &none, &value);
    EXPECT_EQ(value.it_interval.tv_sec, 1);
}

TEST(BentAlarm, shortest_interval_still_ticks) {
    handle_alarm(count_alarm);
    const itimerval once = {{0, 0}, {0, 1}};
    ASSERT_EQ(setitimer(ITIMER_REAL, &once, nullptr), 0);
    wait_for_alarms(1);
    EXPECT_EQ(alarms, 1);
}

TEST(BentSleep, interrupted_sleep_tells_the_bent_rest) {
    handle_alarm(count_alarm);
    const timespec hour = {3600, 0};
    timespec left{};
    alarm(10);
    EXPECT_EQ(nanosleep(&hour, &left), -1);
    EXPECT_LE(left.tv_sec, 3590);
    EXPECT_GE(left.tv_sec, 3590 - static_cast<time_t>(kLate * kSpeed));
    alarm(10);
    const unsigned rest = sleep(3600);
    EXPECT_LE(rest, 3590U);
    EXPECT_GE(rest, 3590U - static_cast<unsigned>(kLate * kSpeed));
    alarm(10);
    EXPECT_EQ(clock_nanosleep(CLOCK_MONOTONIC, 0, &hour, &left), EINTR);
    EXPECT_LE(left.tv_sec, 3590);
    const timespec deadline = bent_deadline(CLOCK_MONOTONIC, 3600);
    alarm(10);
    EXPECT_EQ(clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr), EINTR);
}

TEST(BentSleep, may_be_longer_than_nanoseconds_count) {
    if (sizeof(time_t) < 8) GTEST_SKIP() << "time_t does not reach there";
    handle_alarm(count_alarm);
    const timespec millennium = {static_cast<time_t>(10'000'000'000), 0};
    alarm(10);
    EXPECT_EQ(nanosleep(&millennium, nullptr), -1);
    EXPECT_EQ(errno, EINTR);
}

}  // namespace
