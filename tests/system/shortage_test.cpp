// A device that is short of something when the agent needs it.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdlib>
#include <fstream>

#include "desk.h"

namespace {

constexpr rlim_t kLessThanAStack = 2 * 1024 * 1024;  // bytes

void limit_memory(pid_t process, rlim_t bytes) {
    const rlimit limit{bytes, RLIM_INFINITY};
    ASSERT_EQ(prlimit(process, RLIMIT_AS, &limit, nullptr), 0);
}

rlim_t mapped_bytes(pid_t process) {
    rlim_t kib = 0;
    for (std::ifstream status("/proc/" + std::to_string(process) + "/status"); status;) {
        std::string word;
        status >> word;
        if (word == "VmSize:") status >> kib;
    }
    return kib * 1024;
}

}  // namespace

TEST(Shortage, ThreadsThatCouldNotBeCreatedStandAMinuteLater) {
    if (sanitized_agent()) GTEST_SKIP() << "a sanitizer maps what it needs, whatever the limit";
    if (std::getenv("VELO_AGENT_LAUNCHER") != nullptr) GTEST_SKIP() << "the limit would be the launcher's";
    DeskOptions options;
    options.wait = DeskOptions::not_started;
    Desk desk(options);
    desk.camera("POST", "/refuse");
    desk.start_agent();
    desk.wait_for_log("login failed, waiting for next try... ***\n");
    limit_memory(desk.agent_pid(), mapped_bytes(desk.agent_pid()) + kLessThanAStack);
    desk.camera("POST", "/accept");
    const std::string no_worker =
        "curlmgr_perform_curl called\ncurlmgr_enqueue_job failed. There is no worker. res = -1.\n";
    const size_t failed = desk.wait_for_log(no_worker);
    const std::string errors = desk.errors();
    EXPECT_EQ(count_of("start_thread: pthread_create fail \n: Resource temporarily unavailable\n", errors), 3)
        << errors;
    // Polls go on, each failing at once, and the threads are tried again in vain.
    wait_until("another try", [&] { return count_of("pthread_create fail", desk.errors()) >= 6; });
    EXPECT_GT(desk.count_in_log(no_worker, failed), 1);
    limit_memory(desk.agent_pid(), RLIM_INFINITY);
    desk.wait_until_polling();
    EXPECT_EQ(desk.call("get_device_status", {"Battery"}), (json{{"result", 2}, {"value", "90"}}));
    wait_until("the clock thread sets the clock, as the start did",
               [&] { return desk.tool_calls("ntpdate").size() >= 2; });
}
