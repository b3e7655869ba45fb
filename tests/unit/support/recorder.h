// A camera that records and closes one video for each recording: what it was told, and whether that made
// sense. Any thread.
#ifndef UNIT_SUPPORT_RECORDER_H
#define UNIT_SUPPORT_RECORDER_H

#include <mutex>
#include <string>

#include "camera_script.h"

class Recorder {
  public:
    CameraReply answer(const CameraRequest &request) {
        const std::string command = command_of(request);
        const std::lock_guard<std::mutex> guard(lock_);
        if (command == "CameraStatus?Recording")
            return {.body = "<Recording>" + std::to_string(records_) + "</Recording>"};
        if (command == "CameraLogin?Device=Cam&Stream=Live") return {.headers = {"Set-Cookie: Session=777;"}};
        if (command == "VideoList?start=1&end=1")
            return {.body = "<Name>" + std::to_string(closed_) + ".MP4</Name>"};
        if (refuse_each_ != 0 && ++commands_ % refuse_each_ == 0) return refused(-9);
        if (command == "VIDEO_START") return start();
        return stops_to_refuse_ > 0 && stops_to_refuse_-- > 0 ? refused(-9) : stop();
    }
    // Refuses each `n`-th start or stop from now on; 0: none.
    void refuse_each(int n) {
        const std::lock_guard<std::mutex> guard(lock_);
        refuse_each_ = n;
    }
    // Refuses the next `stops`.
    void refuse(int stops) {
        const std::lock_guard<std::mutex> guard(lock_);
        stops_to_refuse_ = stops;
    }
    bool records() {
        const std::lock_guard<std::mutex> guard(lock_);
        return records_;
    }
    int closed() {
        const std::lock_guard<std::mutex> guard(lock_);
        return closed_;
    }
    // Starts while it recorded and stops while it did not.
    int needless() {
        const std::lock_guard<std::mutex> guard(lock_);
        return needless_;
    }

  private:
    CameraReply start() {
        needless_ += records_;
        records_ = true;
        return taken("VIDEO_START");
    }
    CameraReply stop() {
        needless_ += !records_;
        closed_ += records_;
        records_ = false;
        return taken("VIDEO_STOP");
    }

    std::mutex lock_;
    bool records_ = false;
    int closed_ = 0, needless_ = 0;
    int commands_ = 0, refuse_each_ = 0, stops_to_refuse_ = 0;
};

#endif
