// The yardstick of scripts/footprint: a program that links what the agent links, initialises libcurl, starts
// the same libraries with handlers that do nothing, and keeps as many idle threads as the agent has of its
// own.
#include <curl/curl.h>
#include <pthread.h>
#include <unistd.h>

#include <string>

#include "../platform/Z55/sdk/ef.h"
#include "../platform/Z55/sdk/usock.h"
#include "../platform/Z55/sdk/vq_ipca.h"

namespace {

constexpr int kThreads = 3;  // cloud session, queue worker, clock

int read_nothing(const char *, char **) {
    return 0;
}

int write_nothing(const char *, const char *, int) {
    return 0;
}

constexpr device_callbacks kCallbacks = {
    read_nothing,
    read_nothing,
    write_nothing,
    [](talkback_frame *) { return 0; },
    [](int, int) { return 0; },
    [](snapshot_record *, int) { return 0; },
    [](int) {},
    [](long) { return 0; },
    [] { return 0; },
};

void *idle(void *) {
    for (;;) pause();
}

}  // namespace

// Found by the SDK with dlsym, as the agent's are.
extern "C" __attribute__((visibility("default"))) int c_request_video(int, int) {
    return ExFramer_Capture_Start();
}

int main() {
    curl_global_init(CURL_GLOBAL_ALL);
    pthread_t thread;
    for (int i = 0; i < kThreads; i++) pthread_create(&thread, nullptr, idle, nullptr);
    const std::string uuid = "bare";
    vq_ipca_init(uuid.c_str(), "wlan0", &kCallbacks);
    SetErrorCallback([](int) { return 0; });
    ExFramer_Capture_Init([](captured_frame *) {});
    set_video_bitrate(512);
    for (;;) pause();
}
