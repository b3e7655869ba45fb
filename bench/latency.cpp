// The handlers' latency beside the simulated camera.
#include <pthread.h>
#include <spawn.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "agent/curlmgr.h"
#include "agent/loginout.h"
#include "agent/session_key.h"
#include "agent/utils/conf_file.h"
#include "agent/utils/transfer.h"
#include "bench.h"
#include "curves.h"
#include "exports.h"
#include "z55cgi.h"

extern char **environ;

namespace {

struct Handler {
    const char *name;
    int requests;  // its own, each through the queue
    long pauses;   // milliseconds that the contract demands within it
    int samples;   // under each load
    std::function<int()> call;
};

int read_value(int (*handler)(const char *, char **), const char *name) {
    char *value = nullptr;
    const int length = handler(name, &value);
    const bool good = value != nullptr && std::strcmp(value, "ERROR") != 0;
    std::free(value);
    return good && length >= 0 ? 0 : -1;
}

int set_in_turn(const char *name, const char *one, const char *other) {
    static bool turn = false;
    turn = !turn;
    const char *value = turn ? one : other;
    return set_device_param(name, value, static_cast<int>(std::strlen(value)));
}

int snapshot(int mode) {
    snapshot_record record{};
    const int result = get_camera_snapshot(&record, mode);
    std::free(record.data);
    return result;
}

int notify(int status) {
    notify_Z55_connection_status(status);
    return 0;
}

// The last two, a recording's start and stop, are called by turns.
const std::vector<Handler> &handlers() {
    static const std::vector<Handler> all = {
        {"get_device_status, of the camera", 1, 0, 300,
         [] { return read_value(get_device_status, "Battery"); }},
        {"get_device_status, of the card (df)", 0, 0, 30,
         [] { return read_value(get_device_status, "sdcardquota"); }},
        {"get_device_param, of the camera", 1, 0, 300,
         [] { return read_value(get_device_param, "md_armed"); }},
        {"get_device_param, of the configuration", 0, 0, 300,
         [] { return read_value(get_device_param, "pd_setting"); }},
        {"set_device_param, of the camera", 2, 0, 200, [] { return set_in_turn("md_armed", "1", "0"); }},
        {"set_device_param, of the configuration", 0, 0, 200,
         [] { return set_in_turn("pd_setting", "20", "30"); }},
        {"ptz_direction_control, night light", 1, 0, 200, [] { return ptz_direction_control(30, 1); }},
        {"ptz_direction_control, lullaby", 2, 0, 200, [] { return ptz_direction_control(44, 3); }},
        {"device_play_audio", 0, 0, 300, play_first_frame},
        {"get_camera_snapshot, thumbnail", 0, 0, 100, [] { return snapshot(1); }},
        {"get_camera_snapshot, photo", 3, 3000, 5, [] { return snapshot(0); }},
        {"notify_Z55_connection_status, connected", 0, 0, 200, [] { return notify(0); }},
        {"notify_Z55_connection_status, lost", 0, 0, 15, [] { return notify(1); }},
        {"start_recording_video", 3, 2000, 5, [] { return start_recording_video(0); }},
        {"stop_recording_video", 2, 5000, 5, [] { return stop_recording_video(); }},
    };
    return all;
}

struct Taken {
    std::vector<double> milliseconds = {};
    int failures = 0;
};

void take(const std::function<int()> &call, Taken &taken) {
    const auto start = std::chrono::steady_clock::now();
    taken.failures += call() != 0;
    const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
    taken.milliseconds.push_back(time.count());
}

void print(std::FILE *report, const char *load, const Handler &handler, Taken taken) {
    auto &times = taken.milliseconds;
    std::sort(times.begin(), times.end());
    const size_t last = times.size() - 1;
    std::fprintf(report, "latency\t%s\t%s\t%d\t%ld\t%.3f\t%.3f\t%.3f\t%d\n", load, handler.name,
                 handler.requests, handler.pauses, times[last / 2], times[last * 95 / 100], times[last],
                 taken.failures);
    std::fflush(report);
}

// At any time of the second, as the cloud calls.
void measure_handlers(std::FILE *report, const char *load) {
    const auto &all = handlers();
    for (size_t i = 0; i + 2 < all.size(); i++) {
        Taken taken;
        for (int n = 0; n < all[i].samples; n++) {
            take(all[i].call, taken);
            usleep(static_cast<useconds_t>(std::rand() % 10'000));
        }
        print(report, load, all[i], taken);
    }
    const Handler &start = all[all.size() - 2], &stop = all.back();
    Taken starts, stops;
    for (int n = 0; n < start.samples; n++) {
        take(start.call, starts);
        take(stop.call, stops);
    }
    print(report, load, start, starts);
    print(report, load, stop, stops);
}

size_t drop(char *, size_t size, size_t nmemb, void *) {
    return size * nmemb;
}

int request_by_libcurl() {
    CURL *handle = curl_easy_init();
    const std::string cookie_text = session_cookie(session_key().value_or(""));
    curl_easy_setopt(handle, CURLOPT_URL, "http://127.0.0.1:8080/CGI/CameraStatus?Battery");
    curl_easy_setopt(handle, CURLOPT_COOKIE, cookie_text.c_str());
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, drop);
    const CURLcode result = curl_easy_perform(handle);
    curl_easy_cleanup(handle);
    return result;
}

// --- Loads

std::atomic<bool> ended{false};

void poll_without_pause() {
    const std::string key = session_key().value_or("");
    while (!ended) {
        const Reply reply =
            perform_curl("http://127.0.0.1:8080/CGI/CameraStatus", key,
                         "Notification&MotionEvent&AudioEvent&TemperatureEvent&Battery&Space&SD");
        if (!reply) usleep(1000);
    }
}

void ask_without_pause() {
    while (!ended) {
        if (read_value(get_device_param, "sd_armed") != 0) usleep(1000);
    }
}

void measure_under(std::FILE *report, const char *load, int threads, void (*work)()) {
    ended = false;
    std::vector<std::thread> others;
    for (int i = 0; i < threads; i++) others.emplace_back(work);
    measure_handlers(report, load);
    ended = true;
    for (std::thread &thread : others) thread.join();
}

// --- The agent's start, beside the simulated camera

void start_simulated_camera() {
    const std::string program = build_folder() + "/devkit/camera/camera";
    const char *arguments[] = {program.c_str(), "--cgi-port",       "8080", "--control-port", "8081",
                               "--ports-file",  "/tmp/camera.json", nullptr};
    pid_t child = 0;
    if (posix_spawn(&child, program.c_str(), nullptr, nullptr, const_cast<char **>(arguments), environ) != 0)
        std::abort();
    while (access("/tmp/camera.json", F_OK) != 0) usleep(10'000);
}

void write_file(const char *path, const char *text) {
    std::FILE *file = std::fopen(path, "we");
    if (file == nullptr || std::fputs(text, file) < 0 || std::fclose(file) != 0) std::abort();
}

void start_agent() {
    write_file(
        kConfPath,
        "hostIP=127.0.0.1:8080\nITEM_DEVICE=Camera\nITEM_STREAM=Stream1\nPASSWORD=secret\nSESSION_KEY=\n"
        "COOKIE=/tmp/working/cookie\nBATTERY_LOW=20\nRECORDING_PERIOD=600\n"
        "RECORDING_FLAG_FILE=/tmp/working/recording\nRECORDING_LOG_FILE=/tmp/fuse_d/recording.log\n");
    for (pthread_attr_t *attributes : {&audioback_attr, &resolutionChange_attr, &recVideo_attr}) {
        pthread_attr_init(attributes);
        pthread_attr_setdetachstate(attributes, PTHREAD_CREATE_DETACHED);
    }
    prepare_transfers();
    start_curl_thread(nullptr);
    load_login_settings();
    if (login() != 0) std::abort();
    store_session_key(session_key_buffer, conf_value("SESSION_KEY").value_or(""));
}

}  // namespace

void measure_latency(std::FILE *report) {
    start_simulated_camera();
    start_agent();
    write_file("/tmp/fuse_d/DCIM/100MEDIA/AAAA0000.THM", "thumbnail");
    Taken bare;
    for (int i = 0; i < 300; i++) {
        take(request_by_libcurl, bare);
        usleep(static_cast<useconds_t>(std::rand() % 10'000));  // as between the handlers' calls
    }
    print(report, "idle", {"one bare libcurl request", 1, 0, 300, nullptr}, bare);
    measure_handlers(report, "idle");
    measure_under(report, "poll storm", 1, poll_without_pause);
    measure_under(report, "eight callers", 8, ask_without_pause);
}
