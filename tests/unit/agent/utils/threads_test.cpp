#include "agent/utils/threads.h"

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
    EXPECT_EQ(0, start_thread(&thread, keep_argument, &argument));
    EXPECT_TRUE(eventually([&] { return argument_seen == &argument; }));
}

TEST_F(StartThread, PassesANullArgument) {
    pthread_t thread;
    EXPECT_EQ(0, start_thread(&thread, keep_argument, nullptr));
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
        errors_of([&] { EXPECT_EQ(-1, start_thread(&thread, keep_argument, nullptr)); });
    EXPECT_EQ(std::string(GetParam().text) + ": Resource temporarily unavailable\n", errors);
}

INSTANTIATE_TEST_SUITE_P(
    Call, StartThreadRefused,
    testing::Values(RefusalRow{"pthread_attr_init", "start_thread: pthread_attr_init fail \n"},
                    RefusalRow{"pthread_attr_setdetachstate",
                               "start_thread: pthread_attr_setdetachstate fail \n"},
                    RefusalRow{"pthread_create", "start_thread: pthread_create fail \n"}),
    by_name);

}  // namespace
