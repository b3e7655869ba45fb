// Talk-back on a camera that plays, with the clips' threads held while a test fills them.
#ifndef UNIT_TALKBACK_FIXTURE_H
#define UNIT_TALKBACK_FIXTURE_H

#include <pthread.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "agent_test.h"
#include "camera_script.h"
#include "exports.h"
#include "intercept.h"
#include "shared.h"

using Bytes = std::vector<uint8_t>;

inline constexpr char kFilling[] = "3000 ms";  // the pause in which a clip fills

// Clips' threads stay in their filling pause until they are let on, in the order of their coming.
class Gate {
  public:
    void pass() {
        std::unique_lock<std::mutex> guard(lock_);
        const int number = arrived_++;
        opened_.wait(guard, [&] { return number < let_on_; });
    }
    void let_on(int clips) {
        const std::lock_guard<std::mutex> guard(lock_);
        let_on_ += clips;
        opened_.notify_all();
    }
    int arrived() {
        const std::lock_guard<std::mutex> guard(lock_);
        return arrived_;
    }

  private:
    std::mutex lock_;
    std::condition_variable opened_;
    int arrived_ = 0, let_on_ = 0;
};

class Talkback : public CameraTest {
  protected:
    void SetUp() override {
        CameraTest::SetUp();
        // Joinable here, so that a test sees the clips' ends.
        pthread_attr_init(&audioback_attr);
        play_script(camera, {{"AUDIO_ON", {taken("AUDIO_ON")}}, {"MobileAudio", {{.body = "played"}}}});
        fake_os::on_pause([this](const std::string &pause) {
            if (pause == kFilling) gate.pass();
        });
        intercept::set_processor_ticks(0);
    }

    // Delivers a frame; a clip that it starts is remembered and awaited in its filling pause.
    int deliver(uint32_t sequence, const Bytes &payload) {
        Bytes data = payload;
        talkback_frame frame{7, sequence, 7, 7, 7, static_cast<uint32_t>(data.size()), data.data()};
        store_shared(audioback_thread, pthread_t{});
        const int result = device_play_audio(&frame);
        if (const pthread_t started = load_shared(audioback_thread)) {
            int number = 0;
            {
                const std::lock_guard<std::mutex> guard(clips_lock);
                clips.push_back(started);
                number = ++clips_started;
            }
            EXPECT_TRUE(eventually([=, this] { return gate.arrived() == number; }));
        }
        return result;
    }
    // Lets all clips play, and waits for their ends.
    void play_all() {
        while (play_next()) continue;
    }
    // Returns false when there is no clip.
    bool play_next() {
        pthread_t clip{};
        {
            const std::lock_guard<std::mutex> guard(clips_lock);
            if (clips.empty()) return false;
            clip = clips.front();
            clips.erase(clips.begin());
        }
        gate.let_on(1);
        pthread_join(clip, nullptr);
        return true;
    }
    Texts posted() const {
        Texts bodies;
        for (const CameraRequest &request : camera.requests()) {
            if (command_of(request) == "MobileAudio") bodies.push_back(request.body);
        }
        return bodies;
    }
    // The length of each clip's payload once all have played.
    std::vector<size_t> payloads() {
        output_of([this] { play_all(); });
        std::vector<size_t> lengths;
        for (const std::string &body : posted()) lengths.push_back(body.size() - 44);
        std::sort(lengths.begin(), lengths.end());
        return lengths;
    }
    Gate gate;
    std::mutex clips_lock;         // guards what follows: the camera's thread may deliver, too
    std::vector<pthread_t> clips;  // not yet played
    int clips_started = 0;
};

using Lengths = std::vector<size_t>;

#endif
