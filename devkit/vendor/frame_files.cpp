#include "frame_files.h"

#include <cstdlib>

#include "threads.h"

namespace desk {
namespace {

constexpr size_t kMostWaiting =
    2048;  // frames; beyond it a slow disk drops frames rather than eat the memory

FILE *open_or_refuse(const std::string &path) {
    FILE *file = path.empty() ? nullptr : fopen(path.c_str(), "wbe");
    if (!path.empty() && file == nullptr) throw BadRequest{"cannot write " + path};
    return file;
}

}  // namespace

FrameFiles::FrameFiles(const std::string &h264_path, const std::string &aac_path)
    : h264_(open_or_refuse(h264_path)) {
    try {
        aac_ = open_or_refuse(aac_path);
    } catch (const BadRequest &) {
        if (h264_ != nullptr) fclose(h264_);
        throw;
    }
    begun_ = h264_ == nullptr;
    writer_ = quiet_thread([this] { write_all(); });
}

FrameFiles::~FrameFiles() {
    if (writer_.joinable()) finish();
}

void FrameFiles::take(const FrameData &frame) {
    if ((frame.video ? h264_ : aac_) == nullptr) {  // that kind is not saved
        free(frame.bytes);
        return;
    }
    const std::lock_guard guard(lock_);
    waiting_.push_back(frame);
    if (waiting_.size() > kMostWaiting) {
        free(waiting_.front().bytes);
        waiting_.pop_front();
        dropped_++;
    }
    more_.notify_one();
}

void FrameFiles::write_all() {
    std::unique_lock guard(lock_);
    for (;;) {
        more_.wait(guard, [this] { return ending_ || !waiting_.empty(); });
        if (waiting_.empty()) return;
        const FrameData frame = waiting_.front();
        waiting_.pop_front();
        guard.unlock();
        write_one(frame);
        free(frame.bytes);
        guard.lock();
    }
}

void FrameFiles::write_one(const FrameData &frame) {
    begun_ = begun_ || (frame.video && frame.key_frame);
    FILE *file = frame.video ? h264_ : aac_;
    if (!begun_) return;
    if (fwrite(frame.bytes, 1, frame.length, file) != frame.length) return;
    (frame.video ? video_ : audio_)++;
    (frame.video ? video_bytes_ : audio_bytes_) += frame.length;
    if (frame.video && frame.key_frame) key_frames_++;
}

json FrameFiles::finish() {
    {
        const std::lock_guard guard(lock_);
        ending_ = true;
        more_.notify_one();
    }
    writer_.join();
    if (h264_ != nullptr) fclose(h264_);
    if (aac_ != nullptr) fclose(aac_);
    return {{"video", video_},
            {"key_frames", key_frames_},
            {"audio", audio_},
            {"video_bytes", video_bytes_},
            {"audio_bytes", audio_bytes_},
            {"dropped", dropped_}};
}

}  // namespace desk
