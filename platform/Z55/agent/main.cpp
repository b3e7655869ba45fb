// Start-up, the three threads, the main loop: nothing else.
#include <pthread.h>
#include <signal.h>

#include <cstdio>
#include <ctime>
#include <string>

#include "../ak_model/clock.h"
#include "../exports.h"
#include "../frame/cloud_session.h"
#include "../shared.h"
#include "curlmgr.h"
#include "loginout.h"
#include "polling.h"
#include "session_key.h"
#include "utils/files.h"
#include "utils/log_streams.h"
#include "utils/memory.h"
#include "utils/os.h"
#include "utils/threads.h"
#include "utils/transfer.h"

namespace {

constexpr char kStartLog[] = "/tmp/fuse_d/nimbo.log";
constexpr long kPollPauseSeconds = 5;

// Written once, by the main thread.
constinit pthread_t cloud_thread{};
constinit pthread_t queue_thread{};
constinit pthread_t clock_thread{};

// SIGALRM's tick is the main thread's alone: its waits resume, and no other thread's call is cut short.
void take_alarms() {
    sigset_t alarm_signal;
    sigemptyset(&alarm_signal);
    sigaddset(&alarm_signal, SIGALRM);
    pthread_sigmask(SIG_UNBLOCK, &alarm_signal, nullptr);
}

std::string formatted(const tm &parts) {
    char text[25];
    text[std::strftime(text, sizeof text, "%Y-%m-%d-%H-%M-%S", &parts)] = '\0';
    return text;
}

void write_start_time() {
    const File file = open_to_append(kStartLog);
    if (!file) {
        std::puts("cannot set time to /tmp/fuse_d/nimbo.log while VeloAgent init.");
        return;
    }
    const time_t start = wall_seconds();
    tm parts{};
    localtime_r(&start, &parts);
    std::fprintf(file.get(), "localtime [ %s ]", formatted(parts).c_str());
    gmtime_r(&start, &parts);
    std::fprintf(file.get(), "gmtime [ %s ]\n", formatted(parts).c_str());
}

void start_agent_threads() {
    // Those that cannot be started now are tried again.
    (void)start_wanted_thread(&cloud_thread, run_cloud_session, reinterpret_cast<void *>(copy_session_key));
    if (start_wanted_thread(&queue_thread, start_curl_thread, nullptr) != 0) curl_worker_missing();
    (void)start_wanted_thread(&clock_thread, NTP_poll, reinterpret_cast<void *>(copy_session_key));
}

bool session_expired(int poll_result) {
    return poll_result == -2 || poll_result == -9;
}

[[noreturn]] void main_loop() {
    for (;;) {
        std::puts("*** (main) myPoll... ***");
        const int result = myPoll(session_key_buffer);
        std::puts("*** (main) wait for 5 sec ***");
        pause_and_start_missing(kPollPauseSeconds);
        std::printf("*** (main) myPoll result:%d ", result);
        if (session_expired(result)) {
            std::puts(" failed. login... ***");
            clear_session_key();
            getSessionKey(session_key_buffer);
        } else if (result == 0) {
            std::puts(" done. ***");
        } else {
            std::printf("failed. error code:%d\n", result);
        }
    }
}

}  // namespace

int main() {
    start_clean();
    prepare_memory();
    write_log_by_lines();
    std::puts("Try log VeloAgent init time...........");
    write_start_time();
    prepare_transfers();
    if (getSessionKey(session_key_buffer) != 0) {
        std::puts("Get session key failed. Finishing.");
        return -1;
    }
    std::printf("Got session key:%s\n", session_key_buffer);
    store_shared(NTP_FAIL, perform_NTP(session_key_buffer, true));
    if (load_shared(NTP_FAIL) == 0) std::puts("*** initial perform_NTP() OK! ***");
    start_agent_threads();
    take_alarms();
    main_loop();
}
