// Made-up video and audio frames in the shapes of the real ones, at a pace to choose.
#pragma once

#include <functional>

#include "contract.h"
#include "json_http.h"

namespace desk {

enum class FramePace { fast, real, bent };  // no pause; the machine's clock; the process's clock

struct FramePlan {
    uint32_t video_fps = 15, audio_fps = 47;          // 0: none of the kind
    uint32_t video_bytes = 20000, audio_bytes = 170;  // of each frame
    uint32_t key_every = 30;                          // video frames
    uint32_t start_code_at = 0;                       // offset of the start code in a video frame
    uint32_t timestamp = 0;                           // of the first frame, microseconds
    FramePace pace = FramePace::fast;
};

// Changes what the order names; throws bad_request for numbers that make no frames.
void change_plan(FramePlan &plan, const json &order);

struct FrameCounts {
    uint64_t video = 0, audio = 0;
};

// Hands frames to `deliver` in the order of their times until `video_count` video frames are through (0: for
// ever) or deliver answers false; tells how many it took.
FrameCounts make_frames(const FramePlan &plan, uint64_t video_count,
                        const std::function<bool(captured_frame &)> &deliver);

}  // namespace desk
