#include "live.h"

#include <chrono>

#include "clocks.h"

namespace {

constexpr auto kPatience = std::chrono::milliseconds(250);
constexpr size_t kMostWaiting = 320;   // frames of a viewer, some five seconds
constexpr size_t kMostBacklog = 1000;  // frames since a key frame
constexpr double kStaleMs = 1000;      // since its last frame: what is kept is no longer live

}  // namespace

void Viewer::push(const SharedFrame &frame) {
    const std::lock_guard guard(lock_);
    if (waiting_.size() >= kMostWaiting) {
        waiting_.clear();
        to_key_ = true;
    }
    if (to_key_ && !frame->key) return;
    to_key_ = false;
    waiting_.push_back(frame);
    more_.notify_one();
}

void Viewer::end() {
    const std::lock_guard guard(lock_);
    ended_ = true;
    more_.notify_one();
}

bool Viewer::ended() const {
    const std::lock_guard guard(lock_);
    return ended_ && waiting_.empty();
}

SharedFrame Viewer::next() {
    std::unique_lock guard(lock_);
    more_.wait_for(guard, kPatience, [this] { return ended_ || !waiting_.empty(); });
    if (waiting_.empty()) return nullptr;
    const SharedFrame frame = waiting_.front();
    waiting_.pop_front();
    return frame;
}

void Live::take(const SharedFrame &frame) {
    const std::lock_guard guard(lock_);
    if (frame->key || since_key_.size() >= kMostBacklog) since_key_.clear();
    if (frame->key || !since_key_.empty()) since_key_.push_back(frame);
    for (const auto &each : viewers_) each->push(frame);
}

void Live::end_all() {
    const std::lock_guard guard(lock_);
    since_key_.clear();
    for (const auto &each : viewers_) each->end();
}

void Live::read_frames() {
    for (;;) {
        bool fresh = false;
        if (const SharedFrame frame = reader_.next(fresh)) take(frame);
        if (fresh) end_all();
    }
}

std::shared_ptr<Viewer> Live::add_viewer() {
    const std::lock_guard guard(lock_);
    auto made = std::make_shared<Viewer>();
    const double now = clock_ms(CLOCK_MONOTONIC);
    if (!since_key_.empty() && now - static_cast<double>(since_key_.back()->real_us) / 1e3 < kStaleMs)
        for (const SharedFrame &frame : since_key_) made->push(frame);
    viewers_.push_back(made);
    changed_.notify_all();
    page_.set("viewers", viewers_.size());
    return made;
}

void Live::remove_viewer(const std::shared_ptr<Viewer> &gone) {
    const std::lock_guard guard(lock_);
    viewers_.remove(gone);
    changed_.notify_all();
    page_.set("viewers", viewers_.size());
}

// An agent that has restarted is told again. Nobody is sent away whom another has called.
void Live::keep_watching() {
    int told_pid = 0;
    for (;;) {
        bool wanted;
        {
            std::unique_lock guard(lock_);
            changed_.wait_for(guard, kPatience);
            wanted = !viewers_.empty();
        }
        const int pid = wanted ? behind_.agent_pid() : 0;
        if (pid == told_pid) continue;
        if (behind_.ask(Side::sdk, "PUT", "/watch", {{"on", wanted}}) || !wanted) told_pid = pid;
    }
}
