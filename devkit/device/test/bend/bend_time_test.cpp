// Each bent function lasts its bent length: as long as asked on the bent clock, a hundredth of it on the real
// one.
#include <errno.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <netinet/in.h>
#include <netinet/tcp.h>

#include <chrono>
#include <condition_variable>
#include <fstream>
#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>

#include "bend_test.h"
#include "row_names.h"

namespace {

int wait_on_condition(clockid_t attribute, double seconds) {
    return wait_on_condition(attribute, bent_deadline(attribute, seconds));
}

int wait_with_clock(clockid_t clock, double seconds) {
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    const timespec deadline = bent_deadline(clock, seconds);
    pthread_mutex_lock(&mutex);
    const int result = pthread_cond_clockwait(&condition, &mutex, clock, &deadline);
    pthread_mutex_unlock(&mutex);
    return result;
}

int wait_on_semaphore(clockid_t clock, double seconds) {
    sem_t semaphore;
    sem_init(&semaphore, 0, 0);
    const timespec deadline = bent_deadline(clock, seconds);
    const int result = clock == CLOCK_REALTIME ? sem_timedwait(&semaphore, &deadline)
                                               : sem_clockwait(&semaphore, clock, &deadline);
    return result == -1 ? errno : 0;
}

// The lock is held by another thread until the wait is over.
int wait_for_mutex(clockid_t clock, double seconds) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    sem_t held, over;
    sem_init(&held, 0, 0);
    sem_init(&over, 0, 0);
    std::thread holder([&] {
        pthread_mutex_lock(&mutex);
        sem_post(&held);
        sem_wait(&over);
        pthread_mutex_unlock(&mutex);
    });
    sem_wait(&held);
    const timespec deadline = bent_deadline(clock, seconds);
    const int result = clock == CLOCK_REALTIME ? pthread_mutex_timedlock(&mutex, &deadline)
                                               : pthread_mutex_clocklock(&mutex, clock, &deadline);
    sem_post(&over);
    holder.join();
    return result;
}

int sleep_until(clockid_t clock, double seconds) {
    const timespec deadline = bent_deadline(clock, seconds);
    return clock_nanosleep(clock, TIMER_ABSTIME, &deadline, nullptr);
}

timespec length(double seconds) {
    return {static_cast<time_t>(seconds), static_cast<long>((seconds - static_cast<int>(seconds)) * 1e9)};
}

timeval short_length(double seconds) {
    return {static_cast<time_t>(seconds),
            static_cast<suseconds_t>((seconds - static_cast<int>(seconds)) * 1e6)};
}

struct WaitCase {
    const char *name;
    std::function<int(double seconds)> wait;
    int result;
};

void PrintTo(const WaitCase &row, std::ostream *out) {
    *out << row.name;
}

const WaitCase kWaits[] = {
    {.name = "sleep", .wait = [](double s) { return sleep(static_cast<unsigned>(s)); }, .result = 0},
    {.name = "usleep",
     .wait = [](double s) { return usleep(static_cast<useconds_t>(s * 1e6)); },
     .result = 0},
    {.name = "nanosleep",
     .wait =
         [](double s) {
             const timespec time = length(s);
             return nanosleep(&time, nullptr);
         },
     .result = 0},
    {.name = "clock_nanosleep_relative_monotonic",
     .wait =
         [](double s) {
             const timespec time = length(s);
             return clock_nanosleep(CLOCK_MONOTONIC, 0, &time, nullptr);
         },
     .result = 0},
    {.name = "clock_nanosleep_relative_realtime",
     .wait =
         [](double s) {
             const timespec time = length(s);
             return clock_nanosleep(CLOCK_REALTIME, 0, &time, nullptr);
         },
     .result = 0},
    {.name = "clock_nanosleep_absolute_monotonic",
     .wait = [](double s) { return sleep_until(CLOCK_MONOTONIC, s); },
     .result = 0},
    {.name = "clock_nanosleep_absolute_realtime",
     .wait = [](double s) { return sleep_until(CLOCK_REALTIME, s); },
     .result = 0},
    {.name = "clock_nanosleep_absolute_boottime",
     .wait = [](double s) { return sleep_until(CLOCK_BOOTTIME, s); },
     .result = 0},
    {.name = "pthread_cond_timedwait_monotonic",
     .wait = [](double s) { return wait_on_condition(CLOCK_MONOTONIC, s); },
     .result = ETIMEDOUT},
    {.name = "pthread_cond_timedwait_realtime",
     .wait = [](double s) { return wait_on_condition(CLOCK_REALTIME, s); },
     .result = ETIMEDOUT},
    {.name = "pthread_cond_clockwait_monotonic",
     .wait = [](double s) { return wait_with_clock(CLOCK_MONOTONIC, s); },
     .result = ETIMEDOUT},
    {.name = "pthread_cond_clockwait_realtime",
     .wait = [](double s) { return wait_with_clock(CLOCK_REALTIME, s); },
     .result = ETIMEDOUT},
    {.name = "sem_timedwait",
     .wait = [](double s) { return wait_on_semaphore(CLOCK_REALTIME, s); },
     .result = ETIMEDOUT},
    {.name = "sem_clockwait",
     .wait = [](double s) { return wait_on_semaphore(CLOCK_MONOTONIC, s); },
     .result = ETIMEDOUT},
    {.name = "pthread_mutex_timedlock",
     .wait = [](double s) { return wait_for_mutex(CLOCK_REALTIME, s); },
     .result = ETIMEDOUT},
    {.name = "pthread_mutex_clocklock",
     .wait = [](double s) { return wait_for_mutex(CLOCK_MONOTONIC, s); },
     .result = ETIMEDOUT},
    {.name = "poll",
     .wait = [](double s) { return poll(nullptr, 0, static_cast<int>(s * 1000)); },
     .result = 0},
    {.name = "ppoll",
     .wait =
         [](double s) {
             const timespec time = length(s);
             return ppoll(nullptr, 0, &time, nullptr);
         },
     .result = 0},
    {.name = "select",
     .wait =
         [](double s) {
             timeval time = short_length(s);
             return select(0, nullptr, nullptr, nullptr, &time);
         },
     .result = 0},
    {.name = "pselect",
     .wait =
         [](double s) {
             const timespec time = length(s);
             return pselect(0, nullptr, nullptr, nullptr, &time, nullptr);
         },
     .result = 0},
    {.name = "epoll_wait",
     .wait =
         [](double s) {
             const int handle = epoll_create1(0);
             epoll_event event{};
             const int result = epoll_wait(handle, &event, 1, static_cast<int>(s * 1000));
             close(handle);
             return result;
         },
     .result = 0},
    {.name = "epoll_pwait",
     .wait =
         [](double s) {
             const int handle = epoll_create1(0);
             epoll_event event{};
             const int result = epoll_pwait(handle, &event, 1, static_cast<int>(s * 1000), nullptr);
             close(handle);
             return result;
         },
     .result = 0},
    {.name = "sleep_for",
     .wait =
         [](double s) {
             std::this_thread::sleep_for(std::chrono::duration<double>(s));
             return 0;
         },
     .result = 0},
    {.name = "condition_variable_wait_for",
     .wait =
         [](double s) {
             std::mutex mutex;
             std::condition_variable condition;
             std::unique_lock lock(mutex);
             return condition.wait_for(lock, std::chrono::duration<double>(s), [] { return false; }) ? 1 : 0;
         },
     .result = 0},
    {.name = "receive_timeout",
     .wait =
         [](double s) {
             int ends[2];
             socketpair(AF_UNIX, SOCK_STREAM, 0, ends);
             const timeval time = short_length(s);
             setsockopt(ends[0], SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
             char byte = 0;
             const auto received = recv(ends[0], &byte, 1, 0);
             const int error = errno;
             close(ends[0]);
             close(ends[1]);
             return received == -1 ? error : 0;
         },
     .result = EAGAIN},
};

class BentWait : public testing::TestWithParam<WaitCase> {};

TEST_P(BentWait, lasts_its_bent_length) {
    constexpr double kLength = 10;
    const double bent_start = bent_seconds(CLOCK_MONOTONIC);
    const double start = real_seconds();
    EXPECT_EQ(GetParam().wait(kLength), GetParam().result);
    const double real_length = real_seconds() - start;
    // A socket's time-out is counted in the kernel's ticks, which may end a little early.
    EXPECT_GE(bent_seconds(CLOCK_MONOTONIC) - bent_start, kLength * 0.99);
    EXPECT_GE(real_length, kLength / kSpeed * 0.99);
    EXPECT_LT(real_length, kLength / kSpeed + kLate);
}

INSTANTIATE_TEST_SUITE_P(Functions, BentWait, testing::ValuesIn(kWaits), by_name);

struct ClockCase {
    const char *name;
    std::function<double()> seconds;
    double resolution;
};

void PrintTo(const ClockCase &row, std::ostream *out) {
    *out << row.name;
}

const ClockCase kClocks[] = {
    {.name = "realtime", .seconds = [] { return bent_seconds(CLOCK_REALTIME); }, .resolution = 0},
    {.name = "realtime_coarse",
     .seconds = [] { return bent_seconds(CLOCK_REALTIME_COARSE); },
     .resolution = 0},
    {.name = "monotonic", .seconds = [] { return bent_seconds(CLOCK_MONOTONIC); }, .resolution = 0},
    {.name = "monotonic_coarse",
     .seconds = [] { return bent_seconds(CLOCK_MONOTONIC_COARSE); },
     .resolution = 0},
    {.name = "monotonic_raw", .seconds = [] { return bent_seconds(CLOCK_MONOTONIC_RAW); }, .resolution = 0},
    {.name = "boottime", .seconds = [] { return bent_seconds(CLOCK_BOOTTIME); }, .resolution = 0},
    {.name = "time", .seconds = [] { return static_cast<double>(time(nullptr)); }, .resolution = 1},
    {.name = "gettimeofday",
     .seconds =
         [] {
             timeval reading{};
             gettimeofday(&reading, nullptr);
             return static_cast<double>(reading.tv_sec) + static_cast<double>(reading.tv_usec) / 1e6;
         },
     .resolution = 0},
    {.name = "steady_clock",
     .seconds =
         [] {
             return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
                 .count();
         },
     .resolution = 0},
};

class BentClock : public testing::TestWithParam<ClockCase> {};

TEST_P(BentClock, runs_a_hundred_times_as_fast) {
    const auto &reading = GetParam().seconds;
    const double outer_start = real_seconds();
    const double bent_start = reading();
    const double inner_start = real_seconds();
    usleep(10'000'000);
    const double inner_length = real_seconds() - inner_start;
    const double bent_length = reading() - bent_start;
    const double outer_length = real_seconds() - outer_start;
    EXPECT_GE(bent_length, inner_length * kSpeed * 0.999 - GetParam().resolution);
    EXPECT_LE(bent_length, outer_length * kSpeed * 1.001 + GetParam().resolution);
}

INSTANTIATE_TEST_SUITE_P(Clocks, BentClock, testing::ValuesIn(kClocks), by_name);

TEST(BentTime, processor_time_is_not_bent) {
    const double start = real_seconds();
    const double before = bent_seconds(CLOCK_PROCESS_CPUTIME_ID);
    const clock_t clock_before = clock();
    while (real_seconds() - start < 0.05) {
    }
    EXPECT_LE(bent_seconds(CLOCK_PROCESS_CPUTIME_ID) - before, (real_seconds() - start) * 1.1 + 0.01);
    EXPECT_LE(static_cast<double>(clock() - clock_before) / CLOCKS_PER_SEC,
              (real_seconds() - start) * 1.1 + 0.01);
}

TEST(BentTime, unknown_clock_is_refused) {
    timespec reading{};
    EXPECT_EQ(clock_gettime(1000, &reading), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(BentTime, started_programs_are_not_preloaded) {
    EXPECT_EQ(getenv("LD_PRELOAD"), nullptr);
    EXPECT_EQ(system("test -z \"$LD_PRELOAD\""), 0);
}

TEST(BentSleep, select_leaves_the_bent_rest) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(write(ends[1], "x", 1), 1);
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(ends[0], &readable);
    timeval time = {3600, 0};
    EXPECT_EQ(select(ends[0] + 1, &readable, nullptr, nullptr, &time), 1);
    EXPECT_GE(time.tv_sec, 3600 - static_cast<time_t>(kLate * kSpeed));
    EXPECT_LE(time.tv_sec, 3600);
    close(ends[0]);
    close(ends[1]);
}

TEST(BentWaits, posted_semaphore_and_signalled_condition_end_a_wait) {
    std::mutex mutex;
    std::condition_variable condition;
    bool ready = false;
    sem_t semaphore;
    sem_init(&semaphore, 0, 0);
    std::thread other([&] {
        {
            const std::lock_guard lock(mutex);
            ready = true;
        }
        condition.notify_one();
        sem_post(&semaphore);
    });
    {
        std::unique_lock lock(mutex);
        EXPECT_TRUE(condition.wait_until(lock, std::chrono::system_clock::now() + std::chrono::hours(10),
                                         [&] { return ready; }));
    }
    const timespec deadline = bent_deadline(CLOCK_REALTIME, 36000);
    EXPECT_EQ(sem_timedwait(&semaphore, &deadline), 0);
    other.join();
}

struct OptionCase {
    const char *name;
    int option;
    int bent;
    int real;
};

void PrintTo(const OptionCase &row, std::ostream *out) {
    *out << row.name;
}

const OptionCase kOptions[] = {
    {.name = "keep_alive_idle", .option = TCP_KEEPIDLE, .bent = 250, .real = 3},
    {.name = "keep_alive_interval_of_a_second_at_least", .option = TCP_KEEPINTVL, .bent = 5, .real = 1},
    {.name = "user_timeout", .option = TCP_USER_TIMEOUT, .bent = 30'001, .real = 301},
    {.name = "user_timeout_that_a_busy_machine_keeps",
     .option = TCP_USER_TIMEOUT,
     .bent = 3'000,
     .real = 200},
    {.name = "user_timeout_taken_back", .option = TCP_USER_TIMEOUT, .bent = 0, .real = 0},
};

class BentSocket : public testing::TestWithParam<OptionCase> {};

TEST_P(BentSocket, has_its_times_divided) {
    const auto &[name, option, bent, real] = GetParam();
    const int handle = socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(setsockopt(handle, IPPROTO_TCP, option, &bent, sizeof bent), 0);
    int value = -1;
    socklen_t size = sizeof value;
    EXPECT_EQ(getsockopt(handle, IPPROTO_TCP, option, &value, &size), 0);
    EXPECT_EQ(value, real);
    close(handle);
}

TEST_P(BentSocket, refuses_a_time_below_zero) {
    const int handle = socket(AF_INET, SOCK_STREAM, 0), bent = -1;
    EXPECT_EQ(setsockopt(handle, IPPROTO_TCP, GetParam().option, &bent, sizeof bent), -1);
    EXPECT_EQ(errno, EINVAL);
    close(handle);
}

INSTANTIATE_TEST_SUITE_P(Options, BentSocket, testing::ValuesIn(kOptions), by_name);

}  // namespace
