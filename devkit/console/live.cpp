#include "live.h"

#include <chrono>

#include "clocks.h"

namespace {

constexpr auto patience = std::chrono::milliseconds(250);
constexpr size_t most_waiting = 320;   // frames of a viewer, some five seconds
constexpr size_t most_backlog = 1000;  // frames since a key frame
constexpr double stale_ms = 1000;      // since its last frame: what is kept is no longer live

}  // namespace

void viewer::push(const shared_frame &frame) {
    const std::lock_guard guard(lock_);
    if (waiting_.size() >= most_waiting) {
        waiting_.clear();
        to_key_ = true;
    }
    if (to_key_ && !frame->key) return;
    to_key_ = false;
    waiting_.push_back(frame);
    more_.notify_one();
}

void viewer::end() {
    const std::lock_guard guard(lock_);
    ended_ = true;
    more_.notify_one();
}

bool viewer::ended() const {
    const std::lock_guard guard(lock_);
    return ended_ && waiting_.empty();
}

shared_frame viewer::next() {
    std::unique_lock guard(lock_);
    more_.wait_for(guard, patience, [this] { return ended_ || !waiting_.empty(); });
    if (waiting_.empty()) return nullptr;
    const shared_frame frame = waiting_.front();
    waiting_.pop_front();
    return frame;
}

void live::take(const shared_frame &frame) {
    const std::lock_guard guard(lock_);
    if (frame->key || since_key_.size() >= most_backlog) since_key_.clear();
    if (frame->key || !since_key_.empty()) since_key_.push_back(frame);
    for (const auto &each : viewers_) each->push(frame);
}

void live::end_all() {
    const std::lock_guard guard(lock_);
    since_key_.clear();
    for (const auto &each : viewers_) each->end();
}

void live::read_frames() {
    for (;;) {
        bool fresh = false;
        if (const shared_frame frame = reader_.next(fresh)) take(frame);
        if (fresh) end_all();
    }
}

std::shared_ptr<viewer> live::add_viewer() {
    const std::lock_guard guard(lock_);
    auto made = std::make_shared<viewer>();
    const double now = clock_ms(CLOCK_MONOTONIC);
    if (!since_key_.empty() && now - static_cast<double>(since_key_.back()->real_us) / 1e3 < stale_ms)
        for (const shared_frame &frame : since_key_) made->push(frame);
    viewers_.push_back(made);
    changed_.notify_all();
    page_.set("viewers", viewers_.size());
    return made;
}

void live::remove_viewer(const std::shared_ptr<viewer> &gone) {
    const std::lock_guard guard(lock_);
    viewers_.remove(gone);
    changed_.notify_all();
    page_.set("viewers", viewers_.size());
}

// An agent that has restarted is told again. Nobody is sent away whom another has called.
void live::keep_watching() {
    int told_pid = 0;
    for (;;) {
        bool wanted;
        {
            std::unique_lock guard(lock_);
            changed_.wait_for(guard, patience);
            wanted = !viewers_.empty();
        }
        const int pid = wanted ? behind_.agent_pid() : 0;
        if (pid == told_pid) continue;
        if (behind_.ask(side::sdk, "PUT", "/watch", {{"on", wanted}}) || !wanted) told_pid = pid;
    }
}
