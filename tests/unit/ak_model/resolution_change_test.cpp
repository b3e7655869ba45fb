// The resolution thread: detections off, stream changed, detections back on; requests, pauses, results and
// logs on every way out.
#include <pthread.h>

#include <cstdint>
#include <cstdio>
#include <thread>

#include "agent/loginout.h"
#include "agent/session_key.h"
#include "handler_test.h"
#include "intercept.h"

namespace {

constexpr char kQuery[] = "CameraSetting?MOTION_DETECTION&AUDIO_DETECTION";
constexpr char kStartLog[] = "--platform/Z55/ak_model,line <N>--\narg = 5";

std::string groups(const std::string &motion, const std::string &audio) {
    return "<CameraSetting><MOTION_DETECTION>" + motion + "</MOTION_DETECTION><AUDIO_DETECTION>" + audio +
           "</AUDIO_DETECTION></CameraSetting>";
}

constexpr char kOn[] = "<ENABLE>ON</ENABLE><SENSITIVITY>6</SENSITIVITY>";
constexpr char kOff[] = "<ENABLE>OFF</ENABLE><SENSITIVITY>6</SENSITIVITY>";

std::string stream_document(const std::string &profile) {
    return "<RemoteControl><Action>STREAM_CHANGE</Action><STREAM>" + profile + "</STREAM></RemoteControl>";
}

std::string motion_document(const std::string &enable) {
    return "<CameraSetup><MOTION_DETECTION><ENABLE>" + enable +
           "</ENABLE><SENSITIVITY>6</SENSITIVITY></MOTION_DETECTION></CameraSetup>";
}

std::string audio_document(const std::string &enable) {
    return "<CameraSetup><AUDIO_DETECTION><ENABLE>" + enable +
           "</ENABLE><SENSITIVITY>2</SENSITIVITY></AUDIO_DETECTION></CameraSetup>";
}

// A detection's switch, as the thread's log shows it.
std::string switch_log(const std::string &name, const std::string &group, const std::string &value,
                       const std::string &document) {
    return "[1000 ms]\n!!!***platform/Z55/ak_model <N> ***!!! param_name=" + name + "\nparam_name=" + name +
           " param_value=" + value + " valuelen=1\n[GET CameraSetting?" + group +
           "]\nbefore POST , cmdLength =" + std::to_string(document.size()) + "\ncommandInstr = " + document +
           "\n[POST CameraSetup]\n";
}

std::string stream_log(const std::string &profile) {
    return "!!!***platform/Z55/ak_model <N> ***!!!\n ****  resolution change ******\ncharPara = " + profile +
           "\n[POST RemoteControl]\n";
}

const std::string kQueryLog = std::string("[QUERY ") + kQuery + "]\n";

// Runs the thread's routine here.
Outcome change() {
    return outcome_of([] {
        void *const argument = reinterpret_cast<void *>(std::intptr_t{5});
        return static_cast<int>(reinterpret_cast<std::intptr_t>(resolutionChange(argument)));
    });
}

class ResolutionChange : public HandlerTest {
  protected:
    void SetUp() override {
        HandlerTest::SetUp();
        fake_os::on_pause([](const std::string &pause) { std::printf("[%s]\n", pause.c_str()); });
        detections(kOff, kOff);
    }
    void detections(const std::string &motion, const std::string &audio) {
        camera.reply(std::string("/CGI/") + kQuery, groups(motion, audio));
    }
};

TEST_F(ResolutionChange, WithBothDetectionsOnSwitchesThemOffAndBackOn) {
    detections(kOn, kOn);
    gResolutionType = 2;
    const Outcome outcome = change();
    EXPECT_EQ(outcome.result, 0);
    const std::string log =
        kStartLog + kQueryLog + switch_log("md_armed", "MOTION_DETECTION", "0", motion_document("OFF")) +
        switch_log("sd_armed", "AUDIO_DETECTION", "0", audio_document("OFF")) + stream_log("RTP_H264_WVGA") +
        switch_log("md_armed", "MOTION_DETECTION", "1", motion_document("ON")) +
        switch_log("sd_armed", "AUDIO_DETECTION", "1", audio_document("ON")) + "[5000 ms]\n";
    EXPECT_LOG(outcome.log, log);
    EXPECT_EQ(camera.seen(),
              (Texts{get_request(kQuery), get_request("CameraSetting?MOTION_DETECTION"),
                     setup_request(motion_document("OFF")), get_request("CameraSetting?AUDIO_DETECTION"),
                     setup_request(audio_document("OFF")), control_request(stream_document("RTP_H264_WVGA")),
                     get_request("CameraSetting?MOTION_DETECTION"), setup_request(motion_document("ON")),
                     get_request("CameraSetting?AUDIO_DETECTION"), setup_request(audio_document("ON"))}));
    EXPECT_EQ(fake_vendor::calls(), Texts{"set_video_bitrate(512)"});
}

TEST_F(ResolutionChange, WithMotionDetectionOnSwitchesOnlyThat) {
    detections(kOn, kOff);
    const Outcome outcome = change();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_LOG(outcome.log, kStartLog + kQueryLog +
                                switch_log("md_armed", "MOTION_DETECTION", "0", motion_document("OFF")) +
                                stream_log("RTP_H264_WQVGA") +
                                switch_log("md_armed", "MOTION_DETECTION", "1", motion_document("ON")) +
                                "[5000 ms]\n");
}

TEST_F(ResolutionChange, WithSoundDetectionOnSwitchesOnlyThat) {
    detections(kOff, kOn);
    const Outcome outcome = change();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_LOG(outcome.log,
               kStartLog + kQueryLog + switch_log("sd_armed", "AUDIO_DETECTION", "0", audio_document("OFF")) +
                   stream_log("RTP_H264_WQVGA") +
                   switch_log("sd_armed", "AUDIO_DETECTION", "1", audio_document("ON")) + "[5000 ms]\n");
}

struct ArmedRow {
    const char *name;
    const char *group;
    bool armed;
};

class ArmedText : public ResolutionChange, public testing::WithParamInterface<ArmedRow> {};

TEST_P(ArmedText, IsWhatTheGroupBeginsWith) {
    detections(GetParam().group, kOff);
    change();
    EXPECT_EQ(camera.requests().size(), GetParam().armed ? 6U : 2U);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ArmedText,
    testing::Values(ArmedRow{.name = "on", .group = "<ENABLE>ON</ENABLE>", .armed = true},
                    ArmedRow{.name = "on before another",
                             .group = "<ENABLE>ON</ENABLE><SENSITIVITY>1</SENSITIVITY>",
                             .armed = true},
                    ArmedRow{.name = "blank before it", .group = " <ENABLE>ON</ENABLE>", .armed = false},
                    ArmedRow{.name = "another before it",
                             .group = "<SENSITIVITY>1</SENSITIVITY><ENABLE>ON</ENABLE>",
                             .armed = false},
                    ArmedRow{.name = "other letters", .group = "<ENABLE>On</ENABLE>", .armed = false},
                    ArmedRow{.name = "cut off", .group = "<ENABLE>ON</ENABLE", .armed = false},
                    ArmedRow{.name = "empty", .group = "", .armed = false}),
    by_name);

struct ProfileRow {
    const char *name;
    int type;
    const char *profile;
};

class Profile : public ResolutionChange, public testing::WithParamInterface<ProfileRow> {};

TEST_P(Profile, IsPostedByItsName) {
    gResolutionType = GetParam().type;
    const Outcome outcome = change();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_LOG(outcome.log, kStartLog + kQueryLog + stream_log(GetParam().profile) + "[5000 ms]\n");
    EXPECT_EQ(camera.seen(),
              (Texts{get_request(kQuery), control_request(stream_document(GetParam().profile))}));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, Profile,
    testing::Values(ProfileRow{.name = "smallest", .type = 1, .profile = "RTP_H264_WQVGA"},
                    ProfileRow{.name = "middle", .type = 2, .profile = "RTP_H264_WVGA"},
                    ProfileRow{.name = "largest", .type = 3, .profile = "RTP_H264_HD"},
                    ProfileRow{.name = "below the smallest", .type = 0, .profile = ""},
                    ProfileRow{.name = "above the largest", .type = 4, .profile = ""},
                    ProfileRow{.name = "below 0", .type = -1, .profile = ""}),
    by_name);

// --- Ways out.

TEST_F(ResolutionChange, DuringARecordingChangesNothing) {
    video_recording = 1;
    const Outcome outcome = change();
    EXPECT_EQ(outcome.result, -10);
    EXPECT_LOG(outcome.log, std::string(kStartLog) + "resolutionChange:line=<N>:video_recording=1\n");
    EXPECT_EQ(camera.seen(), Texts{});
    EXPECT_EQ(fake_vendor::calls(), Texts{});
}

// The cloud is told of the new profile although the stream kept its own.
TEST_F(ResolutionChange, DuringARecordingIsReportedAllTheSame) {
    video_recording = 1;
    outcome_of([] {
        ptz_direction_control(45, 3);
        return pthread_join(resolutionChange_t, nullptr);
    });
    EXPECT_EQ(read_with(get_device_param, "high_definition").text, "3");
    EXPECT_EQ(camera.seen(), Texts{});
}

TEST_F(ResolutionChange, WithoutAReplyEnds) {
    camera.reply(std::string("/CGI/") + kQuery, {CameraReply{.status = 500}});
    const Outcome outcome = change();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_LOG(outcome.log, kStartLog + kQueryLog +
                                "[failed]\ngetCameraStatuses failed. response of perform_curl() is null.\n"
                                "getMultipleCameraStatuses failed: return value is null.\n");
    EXPECT_EQ(camera.requests().size(), 1U);
}

TEST_F(ResolutionChange, OnACameraErrorEnds) {
    camera.reply(std::string("/CGI/") + kQuery, "<ErrorCode>-9</ErrorCode>");
    const Outcome outcome = change();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_LOG(outcome.log,
               kStartLog + kQueryLog + "getCameraStatuses failed due to polling failing.Errorcode: -9 \n");
    EXPECT_EQ(camera.requests().size(), 1U);
}

TEST_F(ResolutionChange, WithAGroupMissingEnds) {
    camera.reply(std::string("/CGI/") + kQuery, "<MOTION_DETECTION></MOTION_DETECTION>");
    const Outcome sound = change();
    EXPECT_EQ(sound.result, -1);
    EXPECT_LOG(sound.log, kStartLog + kQueryLog +
                              "value  1 = NULL\nvalues[1] = NULL, aborting platform/Z55/ak_model : <N>\n");
    camera.reply(std::string("/CGI/") + kQuery, "<Empty></Empty>");
    const Outcome both = change();
    EXPECT_EQ(both.result, -1);
    EXPECT_LOG(both.log, kStartLog + kQueryLog +
                             "value  0 = NULL\nvalue  1 = NULL\n"
                             "values[0] = NULL, aborting platform/Z55/ak_model : <N>\n");
    EXPECT_EQ(camera.requests().size(), 2U);
}

TEST_F(ResolutionChange, ThatCannotDisarmLeavesTheStream) {
    detections(kOn, kOn);
    camera.reply("/CGI/CameraSetting?MOTION_DETECTION", {CameraReply{.status = 500}});
    EXPECT_EQ(change().result, -1);
    EXPECT_EQ(camera.seen(), (Texts{get_request(kQuery), get_request("CameraSetting?MOTION_DETECTION")}));
    camera.forget();
    camera.reply("/CGI/CameraSetting?MOTION_DETECTION", "<ENABLE>ON</ENABLE>");  // 5, not -1
    EXPECT_EQ(change().result, -1);
    EXPECT_EQ(camera.requests().size(), 2U);
    EXPECT_EQ(fake_vendor::calls(), Texts{});
}

TEST_F(ResolutionChange, ThatCannotChangeTheStreamLeavesTheDetectionsOff) {
    detections(kOn, kOn);
    camera.reply("/CGI/RemoteControl", {CameraReply{.hang_up = true}});
    const Outcome outcome = change();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(fake_os::pauses(), (Texts{"1000 ms", "1000 ms"}));
    EXPECT_EQ(fake_vendor::calls(), Texts{});
}

TEST_F(ResolutionChange, ThatCannotRearmSetsNoBitrate) {
    detections(kOn, kOff);
    camera.reply("/CGI/CameraSetting?MOTION_DETECTION",
                 {CameraReply{.body = kMotion}, CameraReply{.status = 500}});
    EXPECT_EQ(change().result, -1);
    EXPECT_EQ(fake_os::pauses(), (Texts{"1000 ms", "1000 ms"}));
    EXPECT_EQ(fake_vendor::calls(), Texts{});
}

// --- Threads.

TEST_F(ResolutionChange, WaitsForASessionKey) {
    set_session_key("");
    camera.reply("/CGI/CameraLogin",
                 {CameraReply{.body = "<FWVER>1</FWVER>", .headers = {"Set-Cookie: Session=777"}}});
    outcome_of([&] {
        std::thread changing([] { resolutionChange(nullptr); });
        getSessionKey(session_key_buffer);
        changing.join();
        return 0;
    });
    EXPECT_EQ(camera.seen().at(1), std::string("GET /CGI/") + kQuery + " Session=777");
}

TEST_F(ResolutionChange, WithAHostThatCouldNotBeLoadedReadsIt) {
    hostIP[0] = '\0';
    EXPECT_EQ(change().result, 0);
    EXPECT_EQ(camera.seen().at(0), get_request(kQuery));
}

TEST_F(ResolutionChange, TheLastSelectionWins) {
    detections(kOn, kOff);
    gResolutionType = 2;
    fake_os::on_pause([](const std::string &) {
        fake_os::on_pause({});
        ptz_direction_control(45, 3);
        pthread_join(resolutionChange_t, nullptr);
    });
    EXPECT_EQ(change().result, 0);
    Texts streams;
    for (const std::string &request : camera.seen()) {
        if (request.find("STREAM_CHANGE") != std::string::npos) streams.push_back(request);
    }
    EXPECT_EQ(streams, (Texts{control_request(stream_document("RTP_H264_HD")),
                              control_request(stream_document("RTP_H264_HD"))}));
}

TEST_F(ResolutionChange, ThatGetsNoThreadChangesOnlyTheSelection) {
    intercept::refuse_next("pthread_create");
    const pthread_t before = pthread_self();
    resolutionChange_t = before;
    const Outcome outcome = outcome_of([] { return ptz_direction_control(45, 2); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_NE(outcome.log.find("no thread for a resolution change: Resource temporarily unavailable\n"),
              std::string::npos)
        << outcome.log;
    EXPECT_EQ(gResolutionType, 2);
    EXPECT_NE(pthread_equal(before, resolutionChange_t), 0);
    EXPECT_EQ(camera.seen(), Texts{});
}

TEST_F(ResolutionChange, RunsOnAThreadWithThePreparedAttributes) {
    constexpr size_t kStack = 16U * 1024 * 1024;  // more than a thread gets by itself
    pthread_attr_setstacksize(&resolutionChange_attr, kStack);
    size_t stack = 0;
    pthread_t changing{};
    fake_vendor::result("set_video_bitrate", 0, [&] {
        pthread_attr_t attributes;
        pthread_getattr_np(pthread_self(), &attributes);
        pthread_attr_getstacksize(&attributes, &stack);
        pthread_attr_destroy(&attributes);
        changing = pthread_self();
    });
    outcome_of([] {
        ptz_direction_control(45, 2);
        return pthread_join(resolutionChange_t, nullptr);
    });
    EXPECT_GE(stack, kStack);
    EXPECT_NE(pthread_equal(changing, resolutionChange_t), 0);
}

}  // namespace
