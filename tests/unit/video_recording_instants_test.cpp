// Stops and starts from outside at every instant of a job, and many of them at once.
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <ostream>
#include <random>
#include <thread>
#include <vector>

#include "instants.h"
#include "intercept.h"
#include "recorder.h"
#include "video_recording_fixture.h"

namespace {

size_t lines_of(const std::string &text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

class Instants : public VideoRecording {
  protected:
    // What one run came to.
    struct Run {
        Texts seen;
        int start_result = 0;
        bool recorded_on = false;  // until the test gave up
        std::string log;
    };

    void SetUp() override {
        VideoRecording::SetUp();
        camera.on_request([this](const CameraRequest &request) {
            instants::pass("request " + command_of(request));
            return recorder.answer(request);
        });
    }

    enum class LastStop { no_instants, instants };

    // A job of `length` seconds with `act` at instant `number`. A job without end is stopped in the pause of
    // its `pieces`-th piece.
    Run run(long length, int pieces, int number, const std::function<void()> &act,
            LastStop last_stop = LastStop::no_instants) {
        Run result;
        fake_os::reset();
        intercept::reset();
        unlink(kLog);
        closed_before = recorder.closed();
        starting = true;
        std::atomic<int> pauses = 0;
        fake_os::on_pause([&](const std::string &pause) {
            instants::pass("pause " + pause);
            if (pause != "10 s") return;
            if (in_piece) in_piece();
            if (++pauses < pieces) return;
            result.recorded_on = true;
            if (last_stop == LastStop::no_instants) instants::stop_counting();
            stop_recording_video();
        });
        instants::begin(number, act);
        result.log = output_of([&] {
            result.start_result = start_recording_video(length);
            starting = false;
            join_cutters();
            result.seen = instants::end();
            join_cutters();
        });
        joined = 0;
        return result;
    }
    // The cutting threads so far leave by themselves.
    void join_cutters() {
        for (const auto all = intercept::created(autocut_recording); joined < all.size(); joined++)
            pthread_join(all[joined], nullptr);
    }
    void expect_all_closed(const std::string &at) {
        SCOPED_TRACE(at);
        expect_idle();
        EXPECT_FALSE(recorder.records());
        EXPECT_EQ(recorder.needless(), 0);
        EXPECT_EQ(lines_of(read_file(kLog)), static_cast<size_t>(recorder.closed() - closed_before));
    }

    Recorder recorder;
    std::function<void()> in_piece;      // in every pause of a whole period
    std::atomic<bool> starting = false;  // the job's start from outside has not returned
    size_t joined = 0;
    int closed_before = 0;
};

struct JobRow {
    const char *name;
    long length;
};

void PrintTo(const JobRow &row, std::ostream *out) {
    *out << row.name;
}

class EveryInstant : public Instants, public testing::WithParamInterface<JobRow> {
  protected:
    Texts all_instants() {
        run(GetParam().length, 3, -1, {});  // prints what is printed once
        const Run reference = run(GetParam().length, 3, -1, {});
        expect_all_closed("without anybody from outside");
        return reference.seen;
    }
    Run run_with(size_t number, const std::function<void()> &act) {
        // A job that nobody ends is given up three pieces later.
        return run(GetParam().length, 6, static_cast<int>(number), act);
    }
};

TEST_P(EveryInstant, AStopEndsTheJob) {
    const Texts instants = all_instants();
    for (size_t i = 0; i < instants.size(); i++) {
        int wanted = 0, result = 1;
        bool starts = false;
        size_t sent = 0;
        camera.forget();
        const Run run = run_with(i, [&] {
            starts = starting;
            wanted = load_shared(video_recording) != 0 ? 0 : -1;
            result = stop_recording_video();
            sent = camera.requests().size();
        });
        const std::string at = std::to_string(i) + ": " + instants[i];
        EXPECT_EQ(result, wanted) << at;
        Texts more = commands(camera);
        more.erase(more.begin(), more.begin() + static_cast<long>(sent));
        EXPECT_TRUE(more.empty() || more == (Texts{"VIDEO_STOP", "VideoList?start=1&end=1"}) ||
                    (instants[i] == "request VIDEO_STOP" && more == Texts{"VideoList?start=1&end=1"}))
            << at << testing::PrintToString(more);
        EXPECT_EQ(run.start_result, starts && wanted == -1 ? -1 : 0) << at;
        EXPECT_FALSE(run.recorded_on) << at;
        expect_all_closed(at);
        if (HasFailure()) return;
    }
}

TEST_P(EveryInstant, AStartAfterAStopIsAJobOfItsOwnLength) {
    const Texts instants = all_instants();
    for (size_t i = 0; i < instants.size(); i++) {
        int result = 1;
        const Run run = run_with(i, [&] {
            stop_recording_video();
            result = start_recording_video(7);
        });
        const std::string at = std::to_string(i) + ": " + instants[i];
        EXPECT_EQ(result, 0) << at;
        EXPECT_FALSE(run.recorded_on) << at;
        const Texts pauses = fake_os::pauses();
        EXPECT_EQ(std::count(pauses.begin(), pauses.end(), "7 s"), 1) << at;
        expect_all_closed(at);
        if (HasFailure()) return;
    }
}

TEST_P(EveryInstant, AStartIsRefusedOrTakesTheJobsPlace) {
    const Texts instants = all_instants();
    for (size_t i = 0; i < instants.size(); i++) {
        bool runs = false;
        int result = 1;
        run_with(i, [&] {
            runs = load_shared(video_recording) != 0;
            result = start_recording_video(7);
        });
        const std::string at = std::to_string(i) + ": " + instants[i];
        if (runs || result != 0) {
            EXPECT_EQ(result, -10) << at;
        }
        const Texts pauses = fake_os::pauses();
        EXPECT_EQ(std::count(pauses.begin(), pauses.end(), "7 s"), result == 0) << at;
        expect_all_closed(at);
        if (HasFailure()) return;
    }
}

// The cutting thread has nothing more to do then and leaves.
TEST_F(Instants, AStartWhileTheLastPieceIsSettledHasAThreadOfItsOwn) {
    run(10, 3, -1, {});
    const Texts instants = run(10, 3, -1, {}).seen;
    ASSERT_EQ(instants.back(), "line remove succeeded");
    int result = 1;
    size_t threads = 0;
    run(10, 3, static_cast<int>(instants.size()) - 1, [&] {
        result = start_recording_video(7);
        threads = intercept::created(autocut_recording).size();
    });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(threads, 2u);
    expect_all_closed(instants.back());
}

// Both the cut and the stop that has waited for it are refused: as if neither had come.
TEST_F(Instants, AStopThatWaitedAndIsRefusedLeavesTheJob) {
    run(25, 3, -1, {});
    const Texts instants = run(25, 3, -1, {}).seen;
    const auto cut = std::find(instants.begin(), instants.end(), "request VIDEO_STOP");
    ASSERT_NE(cut, instants.end());
    camera.forget();
    recorder.refuse(2);
    std::atomic<bool> stops = false;
    std::atomic<int> result = 1;
    // The next cut comes after the stop, as it does where periods take their time.
    in_piece = [&] { EXPECT_TRUE(!stops || eventually([&] { return result != 1; })); };
    run(25, 3, static_cast<int>(cut - instants.begin()), [&] {
        stops = true;
        result = stop_recording_video();
    });
    EXPECT_EQ(result, -9);
    EXPECT_EQ(commands(camera), (Texts{"VIDEO_START", "CameraStatus?Recording", "VIDEO_STOP", "VIDEO_STOP",
                                       "VIDEO_STOP", "VideoList?start=1&end=1", "VIDEO_START",
                                       "CameraStatus?Recording", "VIDEO_STOP", "VideoList?start=1&end=1"}));
    expect_all_closed("after two refusals");
}

TEST_F(Instants, AStopThatWaitsForACutIsItsLast) {
    run(25, 3, -1, {});
    const Texts instants = run(25, 3, -1, {}).seen;
    const auto cut = std::find(instants.begin(), instants.end(), "request VIDEO_STOP");
    ASSERT_NE(cut, instants.end());
    int result = 1;
    const Run run_with_stop =
        run(25, 3, static_cast<int>(cut - instants.begin()), [&] { result = stop_recording_video(); });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(run_with_stop.log.find("(autocut_recording). start_recording_video"), std::string::npos);
    expect_all_closed("after a stop during a cut");
}

// It waits for its turn, and finds a recording then.
TEST_F(Instants, AStartDuringAStartIsRefusedWhenThatHasSucceeded) {
    run(0, 1, -1, {});
    const Texts instants = run(0, 1, -1, {}).seen;
    const auto start = std::find(instants.begin(), instants.end(), "request VIDEO_START");
    ASSERT_NE(start, instants.end());
    std::atomic<int> result = 1;
    in_piece = [&] { EXPECT_TRUE(eventually([&] { return result != 1; })); };
    const Run run_with_start =
        run(0, 1, static_cast<int>(start - instants.begin()), [&] { result = start_recording_video(5); });
    EXPECT_EQ(result, -10);
    EXPECT_NE(run_with_start.log.find("start_recording_video:line=382:video_recording=1\n"),
              std::string::npos);
    expect_all_closed("after a start during a start");
}

TEST_F(Instants, CuttingByNameDuringAStartWaitsForItsEnd) {
    run(7, 3, -1, {});
    const Texts instants = run(7, 3, -1, {}).seen;
    const auto start = std::find(instants.begin(), instants.end(), "request VIDEO_START");
    ASSERT_NE(start, instants.end());
    camera.forget();
    const Run run_with_cutter = run(0, 1, static_cast<int>(start - instants.begin()),
                                    [] { autocut_recording(reinterpret_cast<void *>(std::intptr_t{5})); });
    EXPECT_EQ(run_with_cutter.start_result, 0);
    EXPECT_EQ(commands(camera),
              (Texts{"VIDEO_START", "CameraStatus?Recording", "VIDEO_STOP", "VideoList?start=1&end=1"}));
    expect_all_closed("after a cut by name");
}

// Both wait for the same stop: it has stopped for them both, and a start that comes next is nobody's to stop.
// Nothing is cut: nobody else waits.
TEST_F(Instants, AStopThatWaitedForAnotherLeavesTheNextStartAlone) {
    for (int round = 0; round < 30 && !HasFailure(); round++) {
        output_of([&] {
            EXPECT_EQ(start_recording_video(-1), 0);
            std::thread second, next;
            int stopped = 1, started = 1;
            std::atomic<bool> first = true;
            camera.on_request([&](const CameraRequest &request) {
                if (command_of(request) == "VIDEO_STOP" && first.exchange(false)) {
                    const int waits = instants::waits();
                    second = std::thread([&] { stopped = stop_recording_video(); });
                    EXPECT_TRUE(eventually([&] { return instants::waits() == waits + 1; }));
                    next = std::thread([&] {
                        while (load_shared(video_recording) != 0) std::this_thread::yield();
                        started = start_recording_video(-1);
                    });
                }
                return recorder.answer(request);
            });
            EXPECT_EQ(stop_recording_video(), 0);
            second.join();
            next.join();
            EXPECT_EQ(stopped, -1);
            EXPECT_EQ(started, 0);
            EXPECT_EQ(stop_recording_video(), 0);
            join_cutters();
        });
    }
}

INSTANTIATE_TEST_SUITE_P(Jobs, EveryInstant,
                         testing::Values(JobRow{.name = "WithoutEnd", .length = 0},
                                         JobRow{.name = "TwentyFiveSeconds", .length = 25}),
                         by_name);

// A stop while another one from outside closes the only piece, and a start.
class EveryInstantOfAStop : public Instants {
  protected:
    void at_each(const std::function<void()> &act, const std::function<void()> &expect) {
        run(0, 1, -1, {}, LastStop::instants);
        const Texts instants = run(0, 1, -1, {}, LastStop::instants).seen;
        const auto begin = std::find(instants.begin(), instants.end(),
                                     "line (stop_recording_video) calling easyRemoteControl to perform cgi");
        ASSERT_NE(begin, instants.end());
        for (auto at = begin; at != instants.end() && !HasFailure(); at++) {
            SCOPED_TRACE(*at);
            run(0, 1, static_cast<int>(at - instants.begin()), act, LastStop::instants);
            expect();
            expect_all_closed(*at);
        }
    }
};

TEST_F(EveryInstantOfAStop, ASecondStopFindsNothing) {
    int result = 1;
    at_each([&] { result = stop_recording_video(); }, [&] { EXPECT_EQ(result, -1); });
}

TEST_F(EveryInstantOfAStop, AStartComesTooEarlyOrIsAJobOfItsOwn) {
    int wanted = 1, result = 1;
    at_each(
        [&] {
            wanted = load_shared(video_recording) != 0 ? -10 : 0;
            result = start_recording_video(7);
        },
        [&] {
            EXPECT_EQ(result, wanted);
            const Texts pauses = fake_os::pauses();
            EXPECT_EQ(std::count(pauses.begin(), pauses.end(), "7 s"), result == 0);
        });
}

// --- Many threads

struct StormRow {
    const char *name;
    int refuse_each;  // of the camera's commands
};

void PrintTo(const StormRow &row, std::ostream *out) {
    *out << row.name;
}

class Storm : public Instants, public testing::WithParamInterface<StormRow> {
  protected:
    // Whatever comes, in an order of its own for each `seed`.
    static void call_at_random(unsigned seed) {
        constexpr int kCalls = 30;
        constexpr long kLengths[] = {0, 7, 25};
        std::minstd_rand random(seed);
        for (int i = 0; i < kCalls; i++) {
            char text[15];
            if (random() % 2 == 0) {
                start_recording_video(kLengths[random() % 3]);
            } else {
                stop_recording_video();
            }
            get_record_start_time(text, 15);
            for (auto yields = random() % 50; yields > 0; yields--) std::this_thread::yield();
        }
    }
};

TEST_P(Storm, LeavesCameraAndStateInStep) {
    recorder.refuse_each(GetParam().refuse_each);
    output_of([&] {
        std::vector<std::thread> threads;
        for (unsigned seed = 1; seed <= 6; seed++) threads.emplace_back(call_at_random, seed);
        for (std::thread &thread : threads) thread.join();
        recorder.refuse_each(0);
        while (stop_recording_video() != -1) {
        }
        join_cutters();
    });
    EXPECT_GT(recorder.closed(), 0);
    expect_all_closed("after the storm");
}

INSTANTIATE_TEST_SUITE_P(Cameras, Storm,
                         testing::Values(StormRow{.name = "Obeying", .refuse_each = 0},
                                         StormRow{.name = "RefusingEachFifth", .refuse_each = 5}),
                         by_name);

}  // namespace
