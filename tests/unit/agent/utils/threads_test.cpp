#include "agent/utils/threads.h"

#include <signal.h>

#include <algorithm>
#include <atomic>
#include <cerrno>

#include "agent_test.h"
#include "intercept.h"

namespace {

std::atomic<void *> argument_seen{nullptr};
std::atomic<bool> null_seen{false};

void *keep_argument(void *argument) {
    pthread_attr_t attributes;
    int state = -1;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getdetachstate(&attributes, &state);
    pthread_attr_destroy(&attributes);
    if (argument == nullptr) null_seen = true;
    if (state == PTHREAD_CREATE_DETACHED) argument_seen = argument;
    return nullptr;
}

class StartThread : public AgentTest {};

TEST_F(StartThread, RunsTheRoutineDetachedWithItsArgument) {
    pthread_t thread;
    int argument = 0;
    EXPECT_EQ(start_thread(&thread, keep_argument, &argument), 0);
    EXPECT_TRUE(eventually([&] { return argument_seen == &argument; }));
}

TEST_F(StartThread, PassesANullArgument) {
    pthread_t thread;
    EXPECT_EQ(start_thread(&thread, keep_argument, nullptr), 0);
    EXPECT_TRUE(eventually([&] { return null_seen.load(); }));
}

struct RefusalRow {
    const char *name, *text;
};

class StartThreadRefused : public AgentTest, public testing::WithParamInterface<RefusalRow> {};

TEST_P(StartThreadRefused, IsReportedOnStandardError) {
    intercept::refuse_next(GetParam().name);
    pthread_t thread;
    const std::string errors =
        errors_of([&] { EXPECT_EQ(start_thread(&thread, keep_argument, nullptr), -1); });
    EXPECT_EQ(errors, std::string(GetParam().text) + ": Resource temporarily unavailable\n");
}

INSTANTIATE_TEST_SUITE_P(
    Call, StartThreadRefused,
    testing::Values(RefusalRow{.name = "pthread_attr_init",
                               .text = "start_thread: pthread_attr_init fail \n"},
                    RefusalRow{.name = "pthread_attr_setdetachstate",
                               .text = "start_thread: pthread_attr_setdetachstate fail \n"},
                    RefusalRow{.name = "pthread_create", .text = "start_thread: pthread_create fail \n"}),
    by_name);

// --- Wanted threads.

// A routine per test: the agent keeps those that it was told of.
template <int Test>
std::atomic<int> runs{0};
template <int Test>
void *count_run(void *argument) {
    if (argument == &runs<Test>) runs<Test> ++;
    return nullptr;
}

class WantedThreads : public AgentTest {
  protected:
    void SetUp() override {
        AgentTest::SetUp();
        runs<1> = runs<2> = runs<3> = runs<4> = runs<5> = 0;
    }
    template <int Test>
    static int start() {
        static pthread_t thread{};
        return start_wanted_thread(&thread, count_run<Test>, &runs<Test>);
    }
    template <int Test>
    static bool ran(int times) {
        return eventually([=] { return runs<Test> == times; });
    }
};

TEST_F(WantedThreads, ThatStandAreNotStartedAgain) {
    EXPECT_EQ(start<1>(), 0);
    for (int i = 0; i < 3; i++) pause_and_start_missing(100);
    EXPECT_TRUE(ran<1>(1));
    EXPECT_EQ(fake_os::pauses(), (Texts{"100 s", "100 s", "100 s"}));
}

TEST_F(WantedThreads, ThatCouldNotBeCreatedAreTriedOnceAMinute) {
    const std::string errors = errors_of([] {
        intercept::refuse_next("pthread_create");
        EXPECT_EQ(start<2>(), -1);
        pause_and_start_missing(30);
        pause_and_start_missing(30);
        intercept::refuse_next("pthread_create");
        pause_and_start_missing(50);  // the second try comes before it
        pause_and_start_missing(50);
        EXPECT_EQ(runs<2>, 0);
        pause_and_start_missing(5);
        EXPECT_TRUE(ran<2>(1));
    });
    EXPECT_EQ(fake_os::pauses(), (Texts{"30 s", "30 s", "50 s", "50 s", "5 s"}));
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n') / 2, 2) << errors;
}

TEST_F(WantedThreads, AreTriedOnceAMinuteInALongPauseToo) {
    errors_of([] {
        intercept::refuse_next("pthread_create");
        start<3>();
        int pauses = 0;
        fake_os::on_pause([&](const std::string &) {
            if (pauses++ == 0) intercept::refuse_next("pthread_create");
        });
        pause_and_start_missing(3600);
        EXPECT_TRUE(ran<3>(1));
    });
    EXPECT_EQ(fake_os::pauses(), (Texts{"60 s", "60 s", "3480 s"}));
}

TEST_F(WantedThreads, WhoseWorkFailedAreStartedAgain) {
    start<4>();
    EXPECT_TRUE(ran<4>(1));
    want_thread_again(count_run<4>);
    pause_and_start_missing(60);
    pause_and_start_missing(1);
    EXPECT_TRUE(ran<4>(2));
    EXPECT_EQ(fake_os::pauses(), (Texts{"60 s", "1 s"}));
}

TEST_F(WantedThreads, WhoseWorkFailedAreStartedAMinuteAfterThat) {
    start<4>();
    EXPECT_TRUE(ran<4>(1));
    pause_and_start_missing(50);
    want_thread_again(count_run<4>);
    pause_and_start_missing(20);
    intercept::refuse_next("pthread_create");  // a try that came too early would fail
    errors_of([] { pause_and_start_missing(39); });
    EXPECT_EQ(intercept::created(count_run<4>).size(), 1U);
    intercept::reset();
    pause_and_start_missing(1);
    pause_and_start_missing(1);
    EXPECT_TRUE(ran<4>(2));
}

TEST_F(WantedThreads, AreEachStartedOnceWhereSeveralAreMissing) {
    errors_of([] {
        for (int round = 0; round < 2; round++) {
            intercept::refuse_next("pthread_create");
            EXPECT_EQ(start<1>(), -1);
            intercept::refuse_next("pthread_create");
            EXPECT_EQ(start<2>(), -1);
        }
    });
    pause_and_start_missing(60);
    pause_and_start_missing(60);
    pause_and_start_missing(60);
    EXPECT_TRUE(ran<1>(1));
    EXPECT_TRUE(ran<2>(1));
    EXPECT_EQ(intercept::created(count_run<1>).size(), 1U);
    EXPECT_EQ(intercept::created(count_run<2>).size(), 1U);
}

// There are places for four that are tried again.
TEST_F(WantedThreads, MoreThanTheAgentHasAreStartedToo) {
    for (const int result : {start<1>(), start<2>(), start<3>(), start<4>(), start<5>()})
        EXPECT_EQ(result, 0);
    EXPECT_TRUE(ran<5>(1));
    intercept::refuse_next("pthread_create");
    errors_of([] { EXPECT_EQ(start<5>(), -1); });
    EXPECT_TRUE(ran<1>(1) && ran<2>(1) && ran<3>(1) && ran<4>(1));
}

void *look_at_mask(void *blocked) {
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    *static_cast<std::atomic<int> *>(blocked) = sigismember(&mask, SIGALRM);
    return nullptr;
}

TEST_F(StartThread, BlocksTheTickInTheThreadAlone) {
    pthread_t thread;
    std::atomic<int> blocked{-1}, here{-1};
    EXPECT_EQ(start_thread(&thread, look_at_mask, &blocked), 0);
    EXPECT_TRUE(eventually([&] { return blocked != -1; }));
    EXPECT_EQ(blocked, 1);
    look_at_mask(&here);
    EXPECT_EQ(here, 0);
}

}  // namespace
