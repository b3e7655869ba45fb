// The thread that cuts a recording into pieces.
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ostream>
#include <vector>

#include "intercept.h"
#include "video_recording_fixture.h"

namespace {

class Cutting : public VideoRecording {};

// What one stop and what one start of the cutting thread print, `start` and `end` as the camera has them.
std::string log_of_cut_stop(int remaining, long start, const char *start_text, long end) {
    const std::string length = std::to_string(end - start);
    const std::string line = std::string(start_text) + "_" + length + "_A.MP4\n";
    return "(autocut_recording) stop_recording_video. len = " + std::to_string(remaining) +
           "\nstop_recording_video called\n"
           "(stop_recording_video) calling easyRemoteControl to perform cgi\n"
           "[ACTION]\n"
           "***(stop_recording_video) video_recording = 0, endtime = " +
           std::to_string(end) + " ***\nstarttime: " + std::to_string(start) +
           ", endtime: " + std::to_string(end) + ", len: " + length +
           "\n[QUERY VideoList?start=1&end=1]\n"
           "(get_latest_mp4) latest mp4 is: A.MP4\n"
           "get latest mp4 file: A.MP4 \n"
           "buffer:" +
           line + "Recording log:" + line + "remove_recording_flag_temp_file\nremove succeeded\n";
}

std::string log_of_cut_start(int remaining, long start) {
    return "(autocut_recording). start_recording_video len = " + std::to_string(remaining) +
           "\nstart_recording_video called, len = " + std::to_string(remaining) +
           "\nrawtime = " + std::to_string(start) +
           ", cct = 8\n"
           "(start_recording_video) calling easyRemoteControl to perform cgi\n"
           "[ACTION]\n" +
           status_log("1") +
           "touch_recording_flag_temp_file\n"
           "touch succeeded\n"
           "*** (start_recording_video) video_recording = 1, g_start_recording_time = " +
           std::to_string(start) + " ***\n";
}

std::string log_of_whole_job(long length) {
    return marked_log(output_of([&] {
        EXPECT_EQ(start_recording_video(length), 0);
        pthread_join(recVideo_t, nullptr);
    }));
}

void cut_by_name(std::intptr_t length) {
    EXPECT_EQ(autocut_recording(reinterpret_cast<void *>(length)), nullptr);
}

std::string after_first_start(const std::string &log) {
    return log.substr(log.find("Record Period"));
}

TEST_F(Cutting, TwentyFiveSecondsByTensAreThreePieces) {
    const std::string log = after_first_start(log_of_whole_job(25));
    EXPECT_LOG(log, "Record Period = 10\nStart Sleeping for 10 sec\n" +
                        log_of_cut_stop(15, 1700028800, "20231115061320", 1700028812) +
                        log_of_cut_start(15, 1700028817) + "Start Sleeping for 10 sec\n" +
                        log_of_cut_stop(5, 1700028817, "20231115061337", 1700028829) +
                        log_of_cut_start(5, 1700028834) + "Start Sleeping for 5 sec\n" +
                        log_of_cut_stop(-5, 1700028834, "20231115061354", 1700028841));
    EXPECT_EQ(fake_os::pauses(), (Texts{"2000 ms", "10 s", "5000 ms", "2000 ms", "10 s", "5000 ms", "2000 ms",
                                        "5 s", "5000 ms"}));
    EXPECT_EQ(read_file(kLog), "20231115061320_12_A.MP4\n20231115061337_12_A.MP4\n20231115061354_7_A.MP4\n");
    expect_idle();
}

TEST_F(Cutting, LengthOfWholePeriodsEndsWithTheLastOfThem) {
    const std::string log = after_first_start(log_of_whole_job(20));
    EXPECT_LOG(log, "Record Period = 10\nStart Sleeping for 10 sec\n" +
                        log_of_cut_stop(10, 1700028800, "20231115061320", 1700028812) +
                        log_of_cut_start(10, 1700028817) + "Start Sleeping for 10 sec\n" +
                        log_of_cut_stop(0, 1700028817, "20231115061337", 1700028829));
    expect_idle();
}

TEST_F(Cutting, LengthOfAPeriodAndASecondHasAPieceOfOneSecond) {
    log_of_whole_job(11);
    EXPECT_EQ(fake_os::pauses(), (Texts{"2000 ms", "10 s", "5000 ms", "2000 ms", "1 s", "5000 ms"}));
    expect_idle();
}

TEST_F(Cutting, PeriodOfOneSecond) {
    set_conf("RECORDING_PERIOD", "1");
    log_of_whole_job(2);
    EXPECT_EQ(fake_os::pauses(), (Texts{"2000 ms", "1 s", "5000 ms", "2000 ms", "1 s", "5000 ms"}));
    expect_idle();
}

TEST_F(Cutting, LengthOfOneSecond) {
    log_of_whole_job(1);
    EXPECT_EQ(fake_os::pauses(), (Texts{"2000 ms", "1 s", "5000 ms"}));
    expect_idle();
}

TEST_F(Cutting, WithoutALengthPiecesGoOnUntilSomebodyStops) {
    int waits = 0;
    fake_os::on_pause([&](const std::string &pause) {
        if (pause != "10 s" || ++waits != 3) return;
        EXPECT_EQ(stop_recording_video(), 0);
    });
    const std::string log = after_first_start(log_of_whole_job(0));
    const std::string last_stop = log_of_cut_stop(0, 1700028834, "20231115061354", 1700028846);
    EXPECT_LOG(log, "Record Period = 10\nStart Sleeping for 10 sec\n" +
                        log_of_cut_stop(0, 1700028800, "20231115061320", 1700028812) +
                        log_of_cut_start(0, 1700028817) + "Start Sleeping for 10 sec\n" +
                        log_of_cut_stop(0, 1700028817, "20231115061337", 1700028829) +
                        log_of_cut_start(0, 1700028834) + "Start Sleeping for 10 sec\n" +
                        last_stop.substr(last_stop.find('\n') + 1));
    expect_idle();
}

TEST_F(Cutting, StopFromOutsideEndsALimitedJob) {
    fake_os::on_pause([](const std::string &pause) {
        if (pause != "10 s") return;
        EXPECT_EQ(stop_recording_video(), 0);
    });
    const std::string log = after_first_start(log_of_whole_job(20));
    const std::string stop = log_of_cut_stop(0, 1700028800, "20231115061320", 1700028812);
    EXPECT_LOG(log, "Record Period = 10\nStart Sleeping for 10 sec\n" + stop.substr(stop.find('\n') + 1));
    expect_idle();
}

TEST_F(Cutting, StartWhileTheCuttingThreadWaitsGetsNoSecondThread) {
    int waits = 0;
    fake_os::on_pause([&](const std::string &pause) {
        if (pause != "10 s" || ++waits > 2) return;
        EXPECT_EQ(stop_recording_video(), 0);
        if (waits == 2) return;
        EXPECT_EQ(start_recording_video(0), 0);
    });
    log_of_whole_job(0);
    EXPECT_EQ(waits, 2);
    EXPECT_EQ(intercept::created(autocut_recording).size(), 1u);
    expect_idle();
}

// The deadline of the first job never comes: the thread that sleeps towards it has to be woken.
TEST_F(Cutting, SleepingThreadTakesANewJobOverAtOnce) {
    fake_os::hold_deadlines("10 s");
    log_of_start(0, 0);
    output_of([] { EXPECT_EQ(stop_recording_video(), 0); });
    const std::string log = log_of_whole_job(7);
    EXPECT_EQ(log.find("(autocut_recording). start_recording_video"), std::string::npos) << "it runs already";
    EXPECT_LOG(marked_log(log.substr(log.find("Start Sleeping"))),
               "Start Sleeping for 7 sec\n" + log_of_cut_stop(-3, 1700028807, "20231115061327", 1700028816));
    EXPECT_EQ(fake_os::pauses(), (Texts{"2000 ms", "10 s", "5000 ms", "2000 ms", "7 s", "5000 ms"}));
    EXPECT_EQ(intercept::created(autocut_recording).size(), 1u);
    expect_idle();
}

// A stop that the camera refuses is one of the moves that wake the thread.
TEST_F(Cutting, SleepingThreadSleepsOnWhileItsJobStands) {
    camera_obeys({{"VIDEO_STOP", {refused(6), taken("VIDEO_STOP")}}});
    fake_os::hold_deadlines("10 s");
    log_of_start(0, 0);
    EXPECT_TRUE(eventually([] { return intercept::timed_waits() > 0; }));
    const int waits = intercept::timed_waits();
    const std::string log = output_of([waits] {
        EXPECT_EQ(stop_recording_video(), 6);
        EXPECT_TRUE(eventually([waits] { return intercept::timed_waits() > waits; }));
        EXPECT_EQ(stop_recording_video(), 0);
    });
    EXPECT_EQ(log.find("(autocut_recording)"), std::string::npos) << log;
    expect_idle();
}

// The next start is the same thread's: it takes over what is the job when it begins.
TEST_F(Cutting, StartBeforeTheCuttingThreadRunsGetsNoSecondThread) {
    intercept::hold_threads(autocut_recording);
    output_of([] {
        EXPECT_EQ(start_recording_video(25), 0);
        EXPECT_EQ(stop_recording_video(), 0);
        EXPECT_EQ(start_recording_video(7), 0);
        intercept::let_threads_on();
        pthread_join(recVideo_t, nullptr);
    });
    EXPECT_EQ(intercept::created(autocut_recording).size(), 1u);
    EXPECT_EQ(fake_os::pauses(), (Texts{"2000 ms", "5000 ms", "2000 ms", "7 s", "5000 ms"}));
    expect_idle();
}

// A camera that does not take the stop of a cut records on, and so does the job.
TEST_F(Cutting, StopThatTheCameraRefusesMakesTheNextPieceLonger) {
    camera_obeys({{"VIDEO_STOP", {refused(6), taken("VIDEO_STOP")}}});
    const std::string log = after_first_start(log_of_whole_job(20));
    const std::string last = log_of_cut_stop(0, 1700028800, "20231115061320", 1700028822);
    EXPECT_LOG(log,
               "Record Period = 10\nStart Sleeping for 10 sec\n"
               "(autocut_recording) stop_recording_video. len = 10\n"
               "stop_recording_video called\n"
               "(stop_recording_video) calling easyRemoteControl to perform cgi\n"
               "[ACTION]\n"
               "VIDEO_STOP ErrorCode: 6\n"
               "(autocut_recording). start_recording_video len = 10\n"
               "start_recording_video:line=382:video_recording=1\n"
               "Start Sleeping for 10 sec\n" +
                   last);
    expect_idle();
}

// The job is over all the same, though the recording goes on.
TEST_F(Cutting, LastStopThatTheCameraRefusesIsNotRepeated) {
    camera_obeys({{"VIDEO_STOP", {refused(6), taken("VIDEO_STOP")}}});
    EXPECT_LOG(after_first_start(log_of_whole_job(10)),
               "Record Period = 10\nStart Sleeping for 10 sec\n"
               "(autocut_recording) stop_recording_video. len = 0\n"
               "stop_recording_video called\n"
               "(stop_recording_video) calling easyRemoteControl to perform cgi\n"
               "[ACTION]\n"
               "VIDEO_STOP ErrorCode: 6\n");
    EXPECT_EQ(load_shared(video_recording), 1);
    output_of([] { EXPECT_EQ(stop_recording_video(), 0); });
    expect_idle();
}

// What a stop during a start has the camera close, it has to take; one that does not records on, and the job
// stands, be it its first piece or the next one.
TEST_F(Cutting, StopOfAStartThatTheCameraRefusesLeavesTheJob) {
    for (const int piece : {1, 2}) {
        camera.forget();
        std::vector<CameraReply> stops(static_cast<size_t>(piece - 1), taken("VIDEO_STOP"));
        stops.push_back(refused(6));
        stops.push_back(taken("VIDEO_STOP"));
        camera_obeys({{"VIDEO_STOP", stops}});
        int starts = 0;
        fake_os::on_pause([&](const std::string &pause) {
            if (pause != "2000 ms" || ++starts != piece) return;
            EXPECT_EQ(stop_recording_video(), -1);
        });
        log_of_whole_job(20);
        const Texts all = commands(camera);
        EXPECT_EQ(std::count(all.begin(), all.end(), "VIDEO_START"), 2) << piece;
        EXPECT_EQ(std::count(all.begin(), all.end(), "VIDEO_STOP"), 3) << piece;
        EXPECT_EQ(std::count(all.begin(), all.end(), "CameraStatus?Recording"), 1) << piece;
        expect_idle();
    }
}

TEST_F(Cutting, StoppedStartIsNotAskedForOnceMore) {
    camera.on_request([](const CameraRequest &request) -> CameraReply {
        const std::string command = command_of(request);
        if (command == "VideoList?start=1&end=1") return {.body = "<Name>A</Name>"};
        if (command != "CameraStatus?Recording") return taken(command);
        EXPECT_EQ(stop_recording_video(), -1);
        return recording("0");
    });
    const std::string log = output_of([] { EXPECT_EQ(start_recording_video(0), -1); });
    EXPECT_EQ(log.find("recording_flag_temp_file"), std::string::npos) << "never made";
    EXPECT_EQ(commands(camera),
              (Texts{"VIDEO_START", "CameraStatus?Recording", "VIDEO_STOP", "VideoList?start=1&end=1"}));
    expect_idle();
}

TEST_F(Cutting, CameraThatRefusesInTheMiddleOfAJobEndsIt) {
    camera_obeys({{"VIDEO_START", {taken("VIDEO_START"), refused(6)}}});
    const std::string log = after_first_start(log_of_whole_job(0));
    EXPECT_LOG(log, "Record Period = 10\nStart Sleeping for 10 sec\n" +
                        log_of_cut_stop(0, 1700028800, "20231115061320", 1700028812) +
                        "(autocut_recording). start_recording_video len = 0\n"
                        "start_recording_video called, len = 0\n"
                        "rawtime = 1700028817, cct = 8\n"
                        "(start_recording_video) calling easyRemoteControl to perform cgi\n"
                        "[ACTION]\n"
                        "VIDEO_START ErrorCode: 6\n"
                        "Start Sleeping for 10 sec\n");
    expect_idle();
}

// The last second's cut finds nothing to stop.
TEST_F(Cutting, PieceThatTheCameraRefusesIsCutAllTheSame) {
    camera_obeys({{"VIDEO_START", {taken("VIDEO_START"), refused(6)}}});
    const std::string log = after_first_start(log_of_whole_job(11));
    EXPECT_LOG(log.substr(log.find("VIDEO_START ErrorCode")),
               "VIDEO_START ErrorCode: 6\n"
               "Start Sleeping for 1 sec\n"
               "(autocut_recording) stop_recording_video. len = -9\n"
               "stop_recording_video called\n"
               "Video_recording is 0. Return. \n");
    expect_idle();
}

TEST_F(Cutting, NextRecordingAfterAJobHasItsOwnThread) {
    log_of_whole_job(5);
    log_of_whole_job(5);
    EXPECT_EQ(fake_os::pauses(), (Texts{"2000 ms", "5 s", "5000 ms", "2000 ms", "5 s", "5000 ms"}));
    expect_idle();
}

TEST_F(Cutting, NegativeLengthIsNotCut) {
    EXPECT_EQ(after_first_start(log_of_whole_job(-1)), "Record Period = 10\n");
    EXPECT_EQ(load_shared(video_recording), 1);
    output_of([] { EXPECT_EQ(stop_recording_video(), 0); });
    log_of_whole_job(5);  // the thread is free again
    expect_idle();
}

struct PeriodRow {
    const char *name;
    const char *value;  // of the configuration
    const char *printed;
};

void PrintTo(const PeriodRow &row, std::ostream *out) {
    *out << row.name;
}

class UselessPeriod : public VideoRecording, public testing::WithParamInterface<PeriodRow> {};

TEST_P(UselessPeriod, CutsNothing) {
    set_conf("RECORDING_PERIOD", GetParam().value);
    const std::string head = std::string("Record Period = ") + GetParam().printed + "\n";
    EXPECT_EQ(after_first_start(log_of_whole_job(0)), head);
    EXPECT_EQ(load_shared(video_recording), 1);
    output_of([] { EXPECT_EQ(stop_recording_video(), 0); });
    const std::string log = after_first_start(log_of_whole_job(25));
    EXPECT_EQ(log.substr(0, log.find("stop_recording_video called")),
              head + "Start Sleeping for 25 sec\n(autocut_recording) stop_recording_video. len = 0\n");
    expect_idle();
}

INSTANTIATE_TEST_SUITE_P(Values, UselessPeriod,
                         testing::Values(PeriodRow{.name = "Zero", .value = "0", .printed = "0"},
                                         PeriodRow{.name = "Negative", .value = "-3", .printed = "-3"},
                                         PeriodRow{.name = "None", .value = "", .printed = "0"},
                                         PeriodRow{.name = "NoNumber", .value = "ten", .printed = "0"}),
                         by_name);

TEST_F(Cutting, PeriodThatIsNotThereIsNone) {
    write_conf({});
    EXPECT_NE(output_of([] { cut_by_name(5); }).find("Record Period = 0\n"), std::string::npos);
    remove_conf();
    EXPECT_NE(output_of([] { cut_by_name(5); }).find("Record Period = 0\n"), std::string::npos);
}

TEST_F(Cutting, PeriodIsReadOnce) {
    log_of_whole_job(5);
    set_conf("RECORDING_PERIOD", "3");
    EXPECT_NE(log_of_whole_job(5).find("Record Period = 10\nStart Sleeping for 5 sec\n"), std::string::npos);
}

// The thread body is exported: called by name it cuts whatever runs.
TEST_F(Cutting, CuttingByName) {
    start_quietly();  // its own thread is held
    fake_os::on_pause({});
    output_of([] { cut_by_name(5); });
    expect_idle();
}

TEST_F(Cutting, CuttingByNameWhereNothingWasStartedSleepsItsLength) {
    output_of([] { cut_by_name(7); });
    EXPECT_EQ(fake_os::pauses(), (Texts{"7 s"}));
}

// The other one has lost the job for good: it leaves when it is next woken, by a stop that the camera
// refuses.
TEST_F(Cutting, CuttingByNameTakesTheJobFromTheThread) {
    camera_obeys({{"VIDEO_STOP", {refused(6), taken("VIDEO_STOP")}}});
    fake_os::hold_deadlines("10 s");
    log_of_start(0, 0);
    bool woken = false;
    fake_os::on_pause([&](const std::string &pause) {
        if (pause != "7 s" || woken) return;
        woken = true;
        EXPECT_EQ(stop_recording_video(), 6);
        pthread_join(recVideo_t, nullptr);
    });
    output_of([] { cut_by_name(7); });
    const Texts pauses = fake_os::pauses();
    EXPECT_EQ(std::count(pauses.begin(), pauses.end(), "7 s"), 1);
    expect_idle();
}

// What was meant for that thread is nobody's.
TEST_F(Cutting, CuttingByNameAfterAThreadThatCouldNotBeCreated) {
    intercept::refuse_next("pthread_create");
    output_of([] {
        EXPECT_EQ(start_recording_video(25), EAGAIN);
        cut_by_name(7);
    });
    EXPECT_EQ(fake_os::pauses(), (Texts{"2000 ms", "7 s", "5000 ms"}));
    expect_idle();
}

}  // namespace
