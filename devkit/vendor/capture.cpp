#include "capture.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <mutex>

#include "encoder_process.h"
#include "real_time.h"
#include "threads.h"

namespace desk {
namespace {

constexpr const char *kProfiles[] = {"RTP_H264_WQVGA", "RTP_H264_WVGA", "RTP_H264_HD"};
constexpr int kMostFailures = 3;              // encoders in a row that end before their first frame
constexpr int64_t kAskAgainNs = 300'000'000;  // pause between two looks at the camera's stream

struct Capture {
    std::mutex lock;  // guards all but `delivery`
    std::condition_variable changed;
    FrameSink sink = nullptr;
    bool started = false, stalled = false, threads_up = false;
    int init_result = 0, start_result = 0, start_count = 0, stop_count = 0, encoder_starts = 0;
    pid_t encoder_pid = 0;
    std::string profile = kProfiles[0], source = "none";
    FramePlan live{.pace = FramePace::real};
    uint64_t video = 0, audio = 0, other = 0;  // delivered

    std::mutex delivery;  // held while the sink runs
    const int wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
};

// Made at the first use, never destroyed: its threads outlive main.
Capture &state() {
    static Capture &made = *new Capture;
    return made;
}

void tell_threads() {
    state().changed.notify_all();
    const uint64_t one = 1;
    (void)!write(state().wake, &one, sizeof one);
}

void wait_until_started() {
    std::unique_lock guard(state().lock);
    state().changed.wait(guard, [] { return state().started; });
}

void set_source(const char *source, pid_t pid) {
    const std::lock_guard guard(state().lock);
    state().source = source;
    state().encoder_pid = pid;
    state().encoder_starts += pid > 0;
}

// Live frames pass unless the library is stalled; false once the capture is stopped.
bool pass_live_frame(captured_frame &frame) {
    bool stalled;
    {
        const std::lock_guard guard(state().lock);
        if (!state().started) return false;
        stalled = state().stalled;
    }
    if (!stalled) deliver_frame(frame);
    return true;
}

void run_synthetic() {
    FramePlan plan = live_plan();
    plan.timestamp = static_cast<uint32_t>(real_now_ns() / 1000);
    set_source("synthetic", 0);
    make_frames(plan, 0, pass_live_frame);
    set_source("none", 0);
}

// Whether the encoder's profile is still wanted; empties the wake-up descriptor.
bool still_wanted(const std::string &profile) {
    uint64_t count;
    (void)!read(state().wake, &count, sizeof count);
    const std::lock_guard guard(state().lock);
    return state().started && state().profile == profile;
}

// Delivers what one encoder makes until capture stops, the profile changes or the encoder ends; false when it
// never made a frame.
bool run_encoder(const char *path) {
    std::string profile;
    {
        const std::lock_guard guard(state().lock);
        profile = state().profile;
    }
    EncoderProcess encoder(path, profile);
    if (!encoder.running()) return false;
    set_source("encoder", encoder.pid());
    bool made_some = false;
    EncoderFrameHeader header{};
    std::vector<uint8_t> data;
    while (still_wanted(profile)) {
        pollfd ready[] = {{encoder.descriptor(), POLLIN, 0}, {state().wake, POLLIN, 0}};
        if (poll(ready, 2, -1) < 0 || ready[0].revents == 0) continue;
        if (!encoder.read_frame(header, data)) break;
        made_some = true;
        captured_frame frame{data.data(),  0, 0, static_cast<int32_t>(header.kind), header.timestamp,
                             header.length};
        if (!pass_live_frame(frame)) break;
    }
    set_source("none", 0);
    return made_some || !still_wanted(profile);
}

void deliver_for_ever() {
    const char *path = getenv("DESK_ENCODER");
    int failures = path == nullptr || *path == '\0' ? kMostFailures : 0;
    for (;;) {
        wait_until_started();
        if (failures >= kMostFailures) {
            run_synthetic();
        } else if (run_encoder(path)) {
            failures = 0;
        } else if (++failures == kMostFailures) {
            fprintf(stderr, "ef: %s makes no frames, going on with synthetic ones\n", path);
        }
    }
}

void set_profile(const std::string &profile) {
    if (std::find(std::begin(kProfiles), std::end(kProfiles), profile) == std::end(kProfiles)) {
        throw BadRequest{"no such profile: " + profile};
    }
    {
        const std::lock_guard guard(state().lock);
        state().profile = profile;
    }
    tell_threads();
}

// Takes over the camera's stream profile whenever it changes there.
void follow_camera(int port) {
    std::string seen;
    for (;;) {
        wait_until_started();
        const json stream = json_call(port, "GET", "/state", nullptr, 2).body;
        const json name = stream.is_object() ? stream.value("stream", json()) : json();
        if (name.is_string() && name != seen) {
            seen = name;
            try {
                set_profile(seen);
            } catch (const BadRequest &problem) {
                fprintf(stderr, "ef: %s\n", problem.text.c_str());
            }
        }
        real_sleep_until_ns(real_now_ns() + kAskAgainNs);
    }
}

// Called with the lock held, at the first start.
void bring_threads_up() {
    if (state().threads_up) return;
    state().threads_up = true;
    detached_thread(deliver_for_ever);
    const char *url = getenv("DESK_CAMERA_CONTROL");
    const std::string text = url == nullptr ? "" : url;
    const int port = text.rfind(':') == std::string::npos ? 0 : atoi(text.c_str() + text.rfind(':') + 1);
    if (port > 0) detached_thread([port] { follow_camera(port); });
}

}  // namespace

int initialise_capture(FrameSink sink) {
    const std::lock_guard guard(state().lock);
    if (state().init_result == 0) state().sink = sink;
    return state().init_result;
}

int start_capture() {
    int result;
    {
        const std::lock_guard guard(state().lock);
        result = state().start_result;
        state().start_count++;
        if (result == 0) state().started = true;
        if (result == 0) bring_threads_up();
    }
    tell_threads();
    return result;
}

int stop_capture() {
    {
        const std::lock_guard guard(state().lock);
        state().stop_count++;
        state().started = false;
    }
    tell_threads();
    return 0;
}

bool deliver_frame(captured_frame &frame) {
    const std::lock_guard one_at_a_time(state().delivery);
    FrameSink sink;
    {
        const std::lock_guard guard(state().lock);
        sink = state().sink;
        if (sink == nullptr) return false;
        (frame.kind == 1 ? state().video : frame.kind == 2 ? state().audio : state().other)++;
    }
    sink(&frame);
    return true;
}

void change_capture(const json &order) {
    if (order.contains("profile")) set_profile(order.at("profile"));
    const std::lock_guard guard(state().lock);
    state().stalled = order.value("stalled", state().stalled);
    state().init_result = order.value("init_result", state().init_result);
    state().start_result = order.value("start_result", state().start_result);
    if (order.contains("live")) change_plan(state().live, order.at("live"));
}

json capture_state() {
    const std::lock_guard guard(state().lock);
    const Capture &now = state();
    return {{"initialised", now.sink != nullptr},
            {"started", now.started},
            {"start_count", now.start_count},
            {"stop_count", now.stop_count},
            {"init_result", now.init_result},
            {"start_result", now.start_result},
            {"stalled", now.stalled},
            {"profile", now.profile},
            {"source", now.source},
            {"encoder_pid", now.encoder_pid},
            {"encoder_starts", now.encoder_starts},
            {"delivered", {{"video", now.video}, {"audio", now.audio}, {"other", now.other}}}};
}

FramePlan live_plan() {
    const std::lock_guard guard(state().lock);
    return state().live;
}

}  // namespace desk
