// Stops that wait for a session key, without which the newest video cannot be asked for: nobody else waits.
#include <thread>

#include "agent/loginout.h"
#include "agent/session_key.h"
#include "instants.h"
#include "intercept.h"
#include "recorder.h"
#include "video_recording_fixture.h"

namespace {

class WithoutAKey : public VideoRecording {
  protected:
    void SetUp() override {
        VideoRecording::SetUp();
        camera.on_request([this](const CameraRequest &request) { return recorder.answer(request); });
    }
    static void lose_key() {
        clear_session_key();
    }
    static void log_in() {
        getSessionKey(session_key_buffer);
    }
    static bool idle() {
        char text[15];
        return load_shared(video_recording) == 0 && !file_exists(kFlag) &&
               get_record_start_time(text, 15) == -1;
    }
    void join_cutters() {
        for (const pthread_t thread : intercept::created(autocut_recording)) pthread_join(thread, nullptr);
    }

    Recorder recorder;
};

TEST_F(WithoutAKey, StopSettlesEverythingButItsLogLine) {
    fake_os::hold_deadlines("10 s");
    output_of([&] {
        EXPECT_EQ(start_recording_video(0), 0);
        lose_key();
        int result = 1;
        std::thread stopping([&] { result = stop_recording_video(); });
        EXPECT_TRUE(eventually(idle));
        EXPECT_FALSE(file_exists(kLog));
        for (int i = 0; i < 3; i++) EXPECT_EQ(stop_recording_video(), -1);
        EXPECT_EQ(start_recording_video(7), 0);
        log_in();
        stopping.join();
        EXPECT_EQ(result, 0);
        join_cutters();
    });
    EXPECT_FALSE(recorder.records());
    EXPECT_EQ(recorder.needless(), 0);
    const std::string log = read_file(kLog);
    EXPECT_NE(log.find("20231115061320_2_"), std::string::npos) << log;
    EXPECT_NE(log.find("20231115061327_9_"), std::string::npos) << log;
    expect_idle();
}

TEST_F(WithoutAKey, CutWaitsWithTheNextPiece) {
    fake_os::on_pause([](const std::string &pause) {
        if (pause == "10 s") lose_key();
    });
    output_of([&] {
        EXPECT_EQ(start_recording_video(15), 0);
        EXPECT_TRUE(eventually([&] { return recorder.closed() == 1 && idle(); }));
        EXPECT_FALSE(file_exists(kLog));
        log_in();
        join_cutters();
    });
    EXPECT_EQ(read_file(kLog), "20231115061320_12_1.MP4\n20231115061337_7_2.MP4\n");
    EXPECT_EQ(intercept::created(autocut_recording).size(), 1u);
    EXPECT_EQ(fake_os::pauses(), (Texts{"2000 ms", "10 s", "5000 ms", "2000 ms", "5 s", "5000 ms"}));
    expect_idle();
}

TEST_F(WithoutAKey, CutThatHasWaitedKeepsItsThread) {
    int cuts = 0;
    fake_os::on_pause([&](const std::string &pause) {
        if (pause != "10 s") return;
        if (++cuts == 1) return lose_key();
        EXPECT_EQ(stop_recording_video(), 0);
        EXPECT_EQ(start_recording_video(7), 0);
    });
    output_of([&] {
        EXPECT_EQ(start_recording_video(0), 0);
        EXPECT_TRUE(eventually([&] { return recorder.closed() == 1 && idle(); }));
        log_in();
        join_cutters();
    });
    EXPECT_EQ(recorder.closed(), 3);
    EXPECT_EQ(intercept::created(autocut_recording).size(), 1u);
    expect_idle();
}

TEST_F(WithoutAKey, StopEndsAJobWhoseCutWaits) {
    fake_os::on_pause([](const std::string &pause) {
        if (pause == "10 s") lose_key();
    });
    output_of([&] {
        EXPECT_EQ(start_recording_video(0), 0);
        EXPECT_TRUE(eventually([&] { return recorder.closed() == 1 && idle(); }));
        EXPECT_EQ(stop_recording_video(), -1);
        log_in();
        join_cutters();
    });
    EXPECT_EQ(read_file(kLog), "20231115061320_12_1.MP4\n");
    EXPECT_EQ(recorder.needless(), 0);
    expect_idle();
}

TEST_F(WithoutAKey, StartWhileACutWaitsHasAThreadOfItsOwn) {
    fake_os::on_pause([](const std::string &pause) {
        if (pause == "10 s") lose_key();
    });
    output_of([&] {
        EXPECT_EQ(start_recording_video(0), 0);
        EXPECT_TRUE(eventually([&] { return recorder.closed() == 1 && idle(); }));
        EXPECT_EQ(start_recording_video(7), 0);
        EXPECT_TRUE(eventually([&] { return recorder.closed() == 2 && idle(); }));
        log_in();
        join_cutters();
    });
    EXPECT_EQ(intercept::created(autocut_recording).size(), 2u);
    EXPECT_EQ(recorder.closed(), 2);
    EXPECT_EQ(recorder.needless(), 0);
    expect_idle();
}

// The turn of whoever came after it: a third one still has to wait.
TEST_F(WithoutAKey, StopThatHasWaitedGivesNobodyElsesTurnBack) {
    output_of([&] {
        EXPECT_EQ(start_recording_video(-1), 0);
        lose_key();
        std::thread stopping([] { EXPECT_EQ(stop_recording_video(), 0); });
        EXPECT_TRUE(eventually(idle));
        std::thread third;
        fake_os::on_pause([&](const std::string &pause) {
            if (pause != "2000 ms" || third.joinable()) return;
            log_in();
            stopping.join();
            const int waits = instants::waits();
            third = std::thread([] { EXPECT_EQ(start_recording_video(-1), -10); });
            EXPECT_TRUE(eventually([&] { return instants::waits() > waits || recorder.needless() > 0; }));
        });
        EXPECT_EQ(start_recording_video(-1), 0);
        third.join();
        EXPECT_EQ(recorder.needless(), 0);
        EXPECT_EQ(stop_recording_video(), 0);
        join_cutters();
    });
    expect_idle();
}

}  // namespace
