#include "synthetic_frames.h"

#include <time.h>

#include <algorithm>
#include <vector>

#include "real_time.h"

namespace desk {
namespace {

constexpr uint8_t kKeyUnit = 0x67, kOtherUnit = 0x41;  // the byte after the start code
constexpr uint32_t kShortestVideo = 5;                 // a start code and that byte

int64_t bent_now_ns() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

void pause_until(FramePace pace, int64_t deadline_ns) {
    if (pace == FramePace::real) real_sleep_until_ns(deadline_ns);
    if (pace != FramePace::bent) return;
    const timespec until{static_cast<time_t>(deadline_ns / 1'000'000'000),
                         static_cast<long>(deadline_ns % 1'000'000'000)};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) != 0) {
    }
}

// Bytes without a zero among them, so that the only start code is the one that is put there.
std::vector<uint8_t> filler(uint32_t length) {
    std::vector<uint8_t> bytes(length);
    for (uint32_t i = 0; i < length; i++) bytes[i] = static_cast<uint8_t>(0x80 | (i * 7 & 0x7f));
    return bytes;
}

// Microseconds at which frame `number` of a kind is due.
uint64_t due_us(uint64_t number, uint32_t fps) {
    return fps == 0 ? UINT64_MAX : number * 1'000'000 / fps;
}

}  // namespace

void change_plan(FramePlan &plan, const json &order) {
    FramePlan changed = plan;
    changed.video_fps = order.value("video_fps", plan.video_fps);
    changed.audio_fps = order.value("audio_fps", plan.audio_fps);
    changed.video_bytes = order.value("video_bytes", plan.video_bytes);
    changed.audio_bytes = order.value("audio_bytes", plan.audio_bytes);
    changed.key_every = order.value("key_every", plan.key_every);
    changed.start_code_at = order.value("start_code_at", plan.start_code_at);
    changed.timestamp = order.value("timestamp", plan.timestamp);
    const std::string pace = order.value("pace", "");
    if (pace == "fast") changed.pace = FramePace::fast;
    if (pace == "real") changed.pace = FramePace::real;
    if (pace == "bent") changed.pace = FramePace::bent;
    const uint64_t needed = uint64_t{changed.start_code_at} + kShortestVideo;
    if (changed.video_bytes < needed) throw BadRequest{"video_bytes is at least start_code_at + 5"};
    if (changed.key_every == 0) throw BadRequest{"key_every is at least 1"};
    if (changed.video_fps == 0 && changed.audio_fps == 0) throw BadRequest{"no frames at 0 a second"};
    plan = changed;
}

FrameCounts make_frames(const FramePlan &plan, uint64_t video_count,
                        const std::function<bool(captured_frame &)> &deliver) {
    std::vector<uint8_t> video = filler(plan.video_bytes), audio = filler(plan.audio_bytes);
    uint8_t *unit = video.data() + plan.start_code_at;
    std::fill_n(unit, 3, uint8_t{0});
    unit[3] = 1;
    const int64_t start_ns = plan.pace == FramePace::real ? real_now_ns() : bent_now_ns();
    FrameCounts made;
    while (video_count == 0 || made.video < video_count) {
        const uint64_t video_due = due_us(made.video, plan.video_fps),
                       audio_due = due_us(made.audio, plan.audio_fps);
        const bool is_video = video_due <= audio_due;
        const uint64_t due = std::min(video_due, audio_due);
        pause_until(plan.pace, start_ns + static_cast<int64_t>(due) * 1000);
        unit[4] = made.video % plan.key_every == 0 ? kKeyUnit : kOtherUnit;
        captured_frame frame{};
        frame.kind = is_video ? 1 : 2;
        frame.data = is_video ? video.data() : audio.data();
        frame.length = is_video ? plan.video_bytes : plan.audio_bytes;
        frame.timestamp = plan.timestamp + static_cast<uint32_t>(due);
        if (!deliver(frame)) break;
        (is_video ? made.video : made.audio)++;
    }
    return made;
}

}  // namespace desk
