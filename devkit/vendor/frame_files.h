// One recording of the frames handed to the SDK, written by a thread of its own. Not locked: sdk_frames
// guards it.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

#include "json_http.h"

namespace desk {

struct FrameData {
    bool video, key_frame;
    uint8_t *bytes;  // one malloc block, freed by the recording
    uint32_t length;
};

class FrameFiles {
  public:
    FrameFiles(const std::string &h264_path, const std::string &aac_path);
    ~FrameFiles();
    FrameFiles(const FrameFiles &) = delete;
    FrameFiles &operator=(const FrameFiles &) = delete;

    // Takes the data over.
    void take(const FrameData &frame);
    // Waits for the writer, closes the files and tells what they hold.
    json finish();

  private:
    void write_all();
    void write_one(const FrameData &frame);

    FILE *h264_ = nullptr, *aac_ = nullptr;
    std::mutex lock_;
    std::condition_variable more_;
    std::deque<FrameData> waiting_;  // under lock_
    bool ending_ = false;            // under lock_
    bool begun_ = false;             // writer only: a key frame was there
    uint64_t dropped_ = 0;           // under lock_
    uint64_t video_ = 0, key_frames_ = 0, audio_ = 0, video_bytes_ = 0, audio_bytes_ = 0;
    std::thread writer_;
};

}  // namespace desk
