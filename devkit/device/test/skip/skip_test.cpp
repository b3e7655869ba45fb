// Time that nobody needs is skipped, and no other. The program starts itself anew under the preload, with
// bend-skip beside it.
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <iterator>
#include <thread>
#include <vector>

#include "../../bend_file.h"
#include "../bend/bend_test.h"

namespace {

constexpr double kSlow = 10;    // bent seconds per second while nothing is skipped
constexpr double kHour = 3600;  // takes six minutes then
constexpr double kAtOnce = 20;  // real seconds in which a loaded machine has skipped anything
constexpr std::int64_t kNoLimit = INT64_MAX;

BendFile *shared() {
    static BendFile *const file = map_bend_file(getenv("BEND_FILE"));
    return file;
}

void limit_skipping(std::int64_t reading_ns) {
    __atomic_store_n(&shared()->skip_limit_ns, reading_ns, __ATOMIC_RELEASE);
}

// What has been skipped so far, seconds.
double skipped() {
    return static_cast<double>(__atomic_load_n(&shared()->skipped_ns, __ATOMIC_ACQUIRE)) / 1e9;
}

class Skip : public testing::Test {
  protected:
    Skip() {
        limit_skipping(kNoLimit);
    }
    ~Skip() override {
        limit_skipping(0);
    }
    // Whether so many bent seconds passed, in no time.
    void expect_skipped(double seconds) const {
        EXPECT_NEAR(bent_seconds(CLOCK_MONOTONIC) - bent_, seconds, kAtOnce * kSlow);
        EXPECT_GE(bent_seconds(CLOCK_MONOTONIC) - bent_, seconds);
        EXPECT_LT(real_seconds() - real_, kAtOnce);
    }
    // Whether nothing was skipped since.
    void expect_kept(double before) const {
        EXPECT_EQ(skipped(), before);
    }

  private:
    double bent_ = bent_seconds(CLOCK_MONOTONIC), real_ = real_seconds();
};

TEST_F(Skip, a_sleep) {
    sleep(static_cast<unsigned>(kHour));
    expect_skipped(kHour);
}

TEST_F(Skip, a_sleep_until_a_moment_of_the_wall_clock) {
    const timespec deadline = bent_deadline(CLOCK_REALTIME, kHour);
    EXPECT_EQ(clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &deadline, nullptr), 0);
    expect_skipped(kHour);
}

TEST_F(Skip, a_wait_for_a_condition) {
    std::mutex lock;
    std::condition_variable condition;
    std::unique_lock held(lock);
    EXPECT_EQ(condition.wait_for(held, std::chrono::hours(1)), std::cv_status::timeout);
    expect_skipped(kHour);
}

TEST_F(Skip, to_the_first_of_several_deadlines) {
    std::atomic<int> order{0};
    int late = 0, early = 0;
    std::thread second([&] {
        sleep(7200);
        late = ++order;
    });
    sleep(static_cast<unsigned>(kHour));
    early = ++order;
    second.join();
    EXPECT_EQ(early, 1);
    EXPECT_EQ(late, 2);
    expect_skipped(2 * kHour);
}

TEST_F(Skip, not_beyond_the_limit) {
    limit_skipping(static_cast<std::int64_t>((bent_seconds(CLOCK_MONOTONIC) + 1000) * 1e9));
    std::thread sleeper([] { sleep(static_cast<unsigned>(kHour)); });
    const double until = bent_seconds(CLOCK_MONOTONIC) + 1000;
    while (bent_seconds(CLOCK_MONOTONIC) < until) {
        const pollfd nobody{-1, POLLIN, 0};
        pollfd copy = nobody;
        poll(&copy, 0, 10);
    }
    EXPECT_LT(bent_seconds(CLOCK_MONOTONIC), until + kAtOnce * kSlow);
    limit_skipping(kNoLimit);
    sleeper.join();
}

TEST_F(Skip, a_signal_ends_a_wait_at_once) {
    std::mutex lock;
    std::condition_variable condition;
    bool told = false;
    std::thread teller([&] {
        sleep(100);
        const std::lock_guard held(lock);
        told = true;
        condition.notify_one();
    });
    std::unique_lock held(lock);
    EXPECT_TRUE(condition.wait_for(held, std::chrono::hours(1), [&] { return told; }));
    held.unlock();
    teller.join();
    expect_skipped(100);
}

TEST_F(Skip, nothing_while_a_thread_works) {
    std::thread sleeper([] { sleep(static_cast<unsigned>(kHour)); });
    limit_skipping(0);
    while (shared()->waits_begun == 0) {
    }
    const double before = skipped(), end = real_seconds() + 0.3;
    limit_skipping(kNoLimit);
    while (real_seconds() < end) {
    }
    expect_kept(before);
    sleeper.join();
}

TEST_F(Skip, nothing_while_one_waits_for_a_peer) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    std::thread sleeper([] { sleep(static_cast<unsigned>(kHour)); });
    limit_skipping(0);
    usleep(100'000);
    pollfd peer{ends[0], POLLIN, 0};
    const double before = skipped();
    std::thread allower([] {
        const double end = real_seconds() + 0.05;
        while (real_seconds() < end) {
        }
        limit_skipping(kNoLimit);
    });
    EXPECT_EQ(poll(&peer, 1, 4000), 0);
    const double after = skipped();
    allower.join();
    EXPECT_EQ(after, before);
    sleeper.join();
    close(ends[0]);
    close(ends[1]);
}

TEST_F(Skip, nothing_while_there_is_a_child) {
    limit_skipping(0);
    const pid_t child = fork();
    if (child == 0) {
        execl("/bin/sleep", "sleep", "0.3", nullptr);
        _exit(1);
    }
    const double before = skipped();
    limit_skipping(kNoLimit);
    siginfo_t end{};
    EXPECT_EQ(waitid(P_PID, static_cast<id_t>(child), &end, WEXITED | WNOWAIT), 0);
    expect_kept(before);
    waitpid(child, nullptr, 0);
    sleep(static_cast<unsigned>(kHour));
    expect_skipped(kHour);
}

// A shell in bent time that is no child of ours and has one itself, which copies from `in` to `out` until the
// end.
void start_server_with_child(const int (&in)[2], const int (&out)[2]) {
    const pid_t between = fork();
    if (between == 0) {
        if (fork() != 0) _exit(0);
        setenv("BEND_SKIP", "server", 1);
        setenv("LD_PRELOAD", BEND_LIBRARY, 1);
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        for (const int end : {in[0], in[1], out[0], out[1]}) close(end);
        execl("/bin/sh", "sh", "-c", "cat; exit", nullptr);
        _exit(1);
    }
    waitpid(between, nullptr, 0);
}

// Sleeps unseen: by a call that is not bent.
void sleep_really(long milliseconds) {
    const timespec length{0, milliseconds * 1'000'000};
    syscall(SYS_nanosleep, &length, nullptr);
}

TEST_F(Skip, nothing_while_a_server_has_a_child) {
    limit_skipping(0);
    int in[2], out[2];
    ASSERT_EQ(pipe(in), 0);
    ASSERT_EQ(pipe(out), 0);
    start_server_with_child(in, out);
    char letter = 'x';
    ASSERT_EQ(write(in[1], &letter, 1), 1);
    ASSERT_EQ(read(out[0], &letter, 1), 1);
    const double before = skipped();
    std::thread ender([&] {
        sleep_really(300);
        expect_kept(before);
        close(in[1]);
    });
    // Between two waits nothing else would hold what may be skipped.
    limit_skipping(static_cast<std::int64_t>((bent_seconds(CLOCK_MONOTONIC) + kHour) * 1e9));
    sleep(static_cast<unsigned>(kHour));
    ender.join();
    expect_skipped(kHour);
    for (const int end : {in[0], out[0], out[1]}) close(end);
}

// A sister in plain time that gives the peer a letter so many times, at no regular distance.
void start_waking(int peer, int times) {
    const pid_t between = fork();
    if (between == 0) {
        if (fork() != 0) _exit(0);
        for (int n = 0; n < times; n++) {
            const timespec pause{0, 500'000 + n * 7919L % 500'000};
            syscall(SYS_nanosleep, &pause, nullptr);
            if (send(peer, "x", 1, MSG_NOSIGNAL) != 1) break;
        }
        _exit(0);
    }
    waitpid(between, nullptr, 0);
}

// The longer bend-skip has to look at others, the more often it is overtaken.
TEST_F(Skip, nothing_once_a_peer_has_woken_somebody) {
    constexpr int kWakes = 1000;
    std::atomic<bool> over{false};
    std::thread sleeper([&] {
        while (!over) sleep(static_cast<unsigned>(kHour));
    });
    int hold[2];
    ASSERT_EQ(pipe(hold), 0);
    std::vector<std::thread> others(60);
    for (std::thread &other : others)
        other = std::thread([&] {
            char end;
            EXPECT_EQ(read(hold[0], &end, 1), 0);
        });
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    start_waking(ends[1], kWakes);
    close(ends[1]);
    int overtaken = 0, woken = 0;
    char letter;
    for (; recv(ends[0], &letter, 1, 0) == 1; woken++) {
        const double before = skipped(), end = real_seconds() + 0.0003;
        while (real_seconds() < end) {
        }
        overtaken += skipped() != before;
    }
    over = true;
    sleeper.join();
    close(hold[1]);
    for (std::thread &other : others) other.join();
    close(hold[0]);
    close(ends[0]);
    EXPECT_EQ(woken, kWakes);
    EXPECT_EQ(overtaken, 0);
}

// Who seems to sleep without having told until when may have been kept from running in the midst of a call.
TEST_F(Skip, nothing_while_nobody_sleeps_until_a_moment) {
    const double before = skipped();
    limit_skipping(static_cast<std::int64_t>((bent_seconds(CLOCK_MONOTONIC) + kHour) * 1e9));
    sleep_really(300);
    expect_kept(before);
}

// A device that starts anew: its camera and what it has begun are there, the agent is not yet.
TEST_F(Skip, nothing_while_there_are_only_servers) {
    const auto own = std::find_if(std::begin(shared()->processes), std::end(shared()->processes),
                                  [](const BendProcess &process) { return process.pid == getpid(); });
    ASSERT_NE(own, std::end(shared()->processes));
    __atomic_store_n(&own->serves, 1, __ATOMIC_RELEASE);
    const double before = skipped();
    std::thread sleeper([] { sleep(static_cast<unsigned>(kHour)); });
    sleep_really(300);
    expect_kept(before);
    __atomic_store_n(&own->serves, 0, __ATOMIC_RELEASE);
    sleeper.join();
    expect_skipped(kHour);
}

TEST_F(Skip, the_wall_clock_moves_with_the_others) {
    const double apart = bent_seconds(CLOCK_REALTIME) - bent_seconds(CLOCK_MONOTONIC);
    sleep(static_cast<unsigned>(kHour));
    EXPECT_NEAR(bent_seconds(CLOCK_REALTIME) - bent_seconds(CLOCK_MONOTONIC), apart, 1);
}

int start_bent(char **arguments) {
    char file[] = "/tmp/skip_test.XXXXXX";
    close(mkstemp(file));
    setenv("BEND_FILE", file, 1);
    setenv("BEND_SPEED", std::to_string(kSlow).c_str(), 1);
    setenv("BEND_SKIP", "1", 1);
    setenv("LD_PRELOAD", BEND_LIBRARY, 1);
    setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
    execv("/proc/self/exe", arguments);
    perror("cannot start the tests anew");
    return 1;
}

// A sister, not a child: nothing is skipped while there is a child.
void start_skipping() {
    const pid_t between = fork();
    if (between == 0) {
        if (fork() != 0) _exit(0);
        execl(BEND_SKIPPER, "bend-skip", nullptr);
        _exit(1);
    }
    waitpid(between, nullptr, 0);
}

}  // namespace

int main(int count, char **arguments) {
    if (getenv("BEND_SPEED") == nullptr) return start_bent(arguments);
    testing::InitGoogleTest(&count, arguments);
    if (!testing::GTEST_FLAG(list_tests)) start_skipping();
    const int result = RUN_ALL_TESTS();
    unlink(getenv("BEND_FILE"));
    return result;
}
