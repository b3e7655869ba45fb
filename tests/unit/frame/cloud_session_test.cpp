#include "frame/cloud_session.h"

#include <signal.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <string>
#include <thread>

#include "agent/session_key.h"
#include "agent/utils/tick.h"
#include "agent_test.h"
#include "camera_script.h"
#include "exports.h"
#include "intercept.h"
#include "marked_log.h"
#include "shared.h"

namespace {

constexpr char kRebootLine[] = "getframe callback was die lock , system reboot!!\n";

class CloudSession : public CameraTest {
  protected:
    void SetUp() override {
        CameraTest::SetUp();
        set_conf("OTA_TMP_FILE", "/tmp/ota.marker");
        set_conf("RECORDING_FLAG_FILE", "/tmp/recording.flag");
        for (const char *path : {"/tmp/ota.marker", "/tmp/recording.flag"}) unlink(path);
        store_shared(mipc_api, static_cast<mipc_api_table *>(nullptr));
        camera.reply("/CGI/CameraInfo", "<UUID>0A1B2C</UUID>");
        camera.reply("/CGI/CameraLogin",
                     {{.body = "<FWVER>1.0.3</FWVER>", .headers = {"Set-Cookie: Session=678"}}});
        camera.reply("/CGI/CameraSetup", "ok");
        mkdir("/tmp/fuse_d", 0755);
        unlink("/tmp/fuse_d/.ota.tmp");
        // No tick while a test looks.
        signal(SIGALRM, SIG_IGN);
    }
    void TearDown() override {
        alarm(0);
        signal(SIGALRM, SIG_DFL);
    }
    // What the cloud thread prints until its n-th pause; the thread stays there.
    static std::string log_until_pause(int n) {
        return marked_log(output_of([n] { EXPECT_TRUE(run_until_pause(n)); }));
    }
    static bool run_until_pause(int n) {
        return fake_os::run_until_pause(
            n, [] { EXPECT_EQ(run_cloud_session(reinterpret_cast<void *>(copy_session_key)), nullptr); });
    }
    // What the frame watch prints; `at_pause` is called with the number of each pause, from 1.
    static std::string watch_log(int pauses, const std::function<void(int)> &at_pause) {
        int count = 0;
        fake_os::on_pause([&](const std::string &) { at_pause(++count); });
        const std::string log = log_until_pause(pauses);
        fake_os::on_pause({});
        return log.substr(log.find("vq_ipca_init return\n") + 20);
    }
};

// And with the rest as the system has it, of which the page that guards the stack is one.
bool detached(const pthread_attr_t &attributes) {
    int state = -1;
    size_t guard = 0;
    return pthread_attr_getdetachstate(&attributes, &state) == 0 && state == PTHREAD_CREATE_DETACHED &&
           pthread_attr_getguardsize(&attributes, &guard) == 0 && guard > 0;
}

// --- Start-up

constexpr char kLoginLog[] =
    "Loginning..\n"
    "***(login) curl_perform starts ***\n";

TEST_F(CloudSession, StartsInItsOrder) {
    const std::string log = log_until_pause(2);
    EXPECT_EQ(fake_vendor::calls(), (Texts{"vq_ipca_init(0A1B2C, wlan0)", "SetErrorCallback",
                                           "ExFramer_Capture_Init", "set_video_bitrate(512)"}));
    EXPECT_EQ(fake_os::pauses(), (Texts{"5000 ms", "5000 ms"}));
    EXPECT_EQ(commands(camera), (Texts{"CameraInfo?", "CameraLogin?Device=Cam&Stream=Live", "CameraSetup"}));
    EXPECT_EQ(fake_os::shell_commands().size(), 1u);  // the reserve file
    EXPECT_LOG(log.substr(0, log.find("Loginning")),
               "get_uuid  start --- platform/Z55/agent/utils --- <N> ---\n url = "
               "http://127.0.0.1:8080/CGI/CameraInfo\n"
               "[QUERY CameraInfo?]\n"
               "get_uuid print response = <UUID>0A1B2C</UUID>\n get_uuid print value = 0A1B2C\n "
               "GETTING UUID fuction(): uuid =  0A1B2C\n");
    const std::string checks = log.substr(log.find("[POST CameraSetup]"));
    EXPECT_LOG(checks,
               "[POST CameraSetup]\n"
               "otaON res = 0 \n"
               "checkOtaTmpFile called\n"
               "no ota temp file\n"
               "!!!***platform/Z55/ak_model <N> ***!!! dummyFileCreator function \n"
               "create start\n"
               "create file end\n"
               "create file success\n"
               "checkVideoRecording\n"
               "recording temp file(/tmp/recording.flag) not existed\n"
               "checkOtaTmpFile called\n"
               "no ota temp file\n"
               "vq_ipca_init return\n");
    EXPECT_LT(log.find(kLoginLog), log.find("[POST CameraSetup]"));
}

TEST_F(CloudSession, JoinsWithEverythingPrepared) {
    log_until_pause(1);
    EXPECT_EQ(load_shared(mipc_api), &fake_vendor::table());
    EXPECT_EQ(load_shared(get_session_key), copy_session_key);
    EXPECT_TRUE(detached(audioback_attr));
    EXPECT_TRUE(detached(resolutionChange_attr));
    EXPECT_TRUE(detached(recVideo_attr));
    EXPECT_STREQ(hostIP, FakeCamera::kHost);
    EXPECT_STREQ(device, "Cam");
    EXPECT_STREQ(stream, "Live");
    EXPECT_STREQ(password, "secret");
    EXPECT_EQ(fake_vendor::sink(), new_getframe_callback);
    EXPECT_EQ(fake_vendor::error_callback(), error_callback);
}

char *another_hook() {
    return copy_session_key();
}

TEST_F(CloudSession, TheKeyIsAskedOfTheFunctionThatItIsGiven) {
    output_of([] {
        fake_os::run_until_pause(1, [] { run_cloud_session(reinterpret_cast<void *>(another_hook)); });
    });
    EXPECT_EQ(load_shared(get_session_key), another_hook);
}

int arming = -1;

// Who stops the tick waits for whoever is about to arm it, and starts it again where it ran.
TEST_F(CloudSession, TheTickIsKnownWhileItIsArmed) {
    intercept::on_alarm([](unsigned) { arming = tick_arming; });
    alarm_func(SIGALRM);
    EXPECT_EQ(arming, 1);
    EXPECT_EQ(tick_arming, 0);
    EXPECT_TRUE(tick_started);
}

// The SDK may call back at once.
TEST_F(CloudSession, IsPreparedBeforeTheSdkStarts) {
    bool prepared = false;
    fake_vendor::result("vq_ipca_init", 0, [&] {
        prepared = std::strcmp(hostIP, FakeCamera::kHost) == 0 && detached(recVideo_attr) &&
                   detached(audioback_attr) && detached(resolutionChange_attr);
    });
    log_until_pause(1);
    EXPECT_TRUE(prepared);
}

TEST_F(CloudSession, HandsTheNineCallbacksOverInOrder) {
    log_until_pause(1);
    const device_callbacks *table = fake_vendor::callbacks();
    ASSERT_NE(table, nullptr);
    void *entries[9];
    static_assert(sizeof entries == sizeof *table);
    std::memcpy(entries, table, sizeof entries);
    EXPECT_EQ(entries[0], reinterpret_cast<void *>(get_device_status));
    EXPECT_EQ(entries[1], reinterpret_cast<void *>(get_device_param));
    EXPECT_EQ(entries[2], reinterpret_cast<void *>(set_device_param));
    EXPECT_EQ(entries[3], reinterpret_cast<void *>(device_play_audio));
    EXPECT_EQ(entries[4], reinterpret_cast<void *>(ptz_direction_control));
    EXPECT_EQ(entries[5], reinterpret_cast<void *>(get_camera_snapshot));
    EXPECT_EQ(entries[6], reinterpret_cast<void *>(notify_Z55_connection_status));
    EXPECT_EQ(entries[7], reinterpret_cast<void *>(start_recording_video));
    EXPECT_EQ(entries[8], reinterpret_cast<void *>(stop_recording_video));
}

// An outcome is settled once, and leftovers of a recording are looked at between the two looks for a marker.
TEST_F(CloudSession, SettlesWhatWasLeftOver) {
    write_file("/tmp/ota.marker", "1.0.2\n");
    write_file("/tmp/recording.flag", "");
    const std::string log = log_until_pause(1);
    ASSERT_EQ(fake_vendor::alarms().size(), 1u);
    EXPECT_EQ(fake_vendor::alarms()[0].status, 19);
    const size_t settled = log.find("OTA Temp file \"/tmp/ota.marker\" file is deleted successfully.\n");
    const size_t reserve = log.find("dummyFileCreator function");
    const size_t recording = log.find("recording temp file(/tmp/recording.flag) existed, stop recording\n");
    const size_t again = log.find("checkOtaTmpFile called\nno ota temp file\nvq_ipca_init return\n");
    ASSERT_NE(again, std::string::npos);
    EXPECT_LT(settled, reserve);
    EXPECT_LT(reserve, recording);
    EXPECT_LT(recording, again);
}

TEST_F(CloudSession, EndsWhereTheCaptureCannotBeInitialised) {
    fake_vendor::result("ExFramer_Capture_Init", -1);
    std::string log = output_of([] { EXPECT_FALSE(run_until_pause(1)); });
    EXPECT_EQ(log.substr(log.rfind("vq_ipca_init return\n")),
              "vq_ipca_init return\nExFramer_Capture_Init fail\n");
    EXPECT_TRUE(fake_os::pauses().empty());
    EXPECT_EQ(fake_vendor::calls().back(), "ExFramer_Capture_Init");
}

TEST_F(CloudSession, JoinsWithoutAUuidToo) {
    remove_conf();
    std::string log;
    const std::string errors = errors_of([&] { log = log_until_pause(1); });
    EXPECT_NE(errors.find("Read hostIP failed."), std::string::npos);
    EXPECT_EQ(log.substr(0, 46), "GETTING UUID fuction(): uuid =  (null)\nread ho");
    EXPECT_EQ(fake_vendor::calls().at(0), "vq_ipca_init((null), wlan0)");
}

// --- The one-second tick

long ticks_in() {
    itimerval timer{};
    getitimer(ITIMER_REAL, &timer);
    return timer.it_value.tv_sec * 1000000L + timer.it_value.tv_usec;
}

TEST_F(CloudSession, TickIsInstalled) {
    log_until_pause(1);
    struct sigaction action {};
    sigaction(SIGALRM, nullptr, &action);
    EXPECT_EQ(action.sa_handler, alarm_func);
    EXPECT_EQ(action.sa_flags & SA_RESTART, SA_RESTART);
    EXPECT_GT(ticks_in(), 0);
    EXPECT_LE(ticks_in(), 1000000);
}

TEST_F(CloudSession, TickReArmsItself) {
    alarm(0);
    EXPECT_EQ(output_of([] { alarm_func(SIGALRM); }), "");
    EXPECT_GT(ticks_in(), 0);
    EXPECT_LE(ticks_in(), 1000000);
}

// --- The frame watch. Pauses 1 and 2 are the start's and the loop's own.

TEST_F(CloudSession, WithoutAViewerOnlyThePageCacheIsDropped) {
    EXPECT_EQ(watch_log(5, [](int) {}), "");
    EXPECT_EQ(fake_os::pauses(), Texts(5, "5000 ms"));
    EXPECT_EQ(fake_os::page_cache_drops(), 3);
    EXPECT_EQ(fake_os::reboots(), 0);
}

TEST_F(CloudSession, NoRebootWhileFramesArrive) {
    const std::string log = watch_log(12, [](int pause) {
        if (pause == 1) store_shared(request_vedio, 1);
        new_getframe_callback(nullptr);
        if (pause == 11) store_shared(request_vedio, 0);
    });
    EXPECT_EQ(log, "");
    EXPECT_EQ(fake_os::reboots(), 0);
    EXPECT_EQ(fake_os::page_cache_drops(), 1);  // not while somebody watches
}

TEST_F(CloudSession, RebootAfterOneQuietPeriod) {
    fake_os::on_reboot(0, [] { fake_os::park(); });
    int pauses = 0;
    fake_os::on_pause([&](const std::string &) {
        if (++pauses <= 2) store_shared(request_vedio, 1);
        if (pauses <= 4) new_getframe_callback(nullptr);
    });
    const std::string log = output_of([] {
        std::thread([] { run_cloud_session(reinterpret_cast<void *>(copy_session_key)); }).detach();
        EXPECT_TRUE(eventually([] { return fake_os::reboots() == 1; }));
    });
    EXPECT_EQ(pauses, 5);
    EXPECT_LOG(log.substr(log.rfind("vq_ipca_init return\n")),
               std::string("vq_ipca_init return\n") + kRebootLine +
                   "!!!***platform/Z55/ak_model <N> ***!!!\n ***** reboot operation*****\n");
}

TEST_F(CloudSession, RebootThatFailsIsTriedAgainAfterTheNextPeriod) {
    int count = 0;
    const std::string log = watch_log(6, [&](int pause) {
        if (pause == 2) store_shared(request_vedio, 1);
        count = pause;
    });
    EXPECT_EQ(fake_os::reboots(), 3);
    EXPECT_EQ(log.substr(0, sizeof kRebootLine - 1), kRebootLine);
}

TEST_F(CloudSession, FramesOfAnyKindKeepTheDeviceUp) {
    captured_frame frame{nullptr, 0, 0, 77, 0, 0};
    watch_log(6, [&](int) {
        store_shared(request_vedio, 1);
        new_getframe_callback(&frame);
    });
    EXPECT_EQ(fake_os::reboots(), 0);
}

TEST_F(CloudSession, OldFramesDoNotCount) {
    store_shared(get_frame_callback_flag, 5);
    watch_log(3, [](int pause) {
        if (pause == 2) store_shared(request_vedio, 1);
    });
    EXPECT_EQ(fake_os::reboots(), 0);  // the period is still running
    EXPECT_EQ(load_shared(get_frame_callback_flag), 0);
}

TEST_F(CloudSession, ViewerWhoLeavesEndsTheWatch) {
    const std::string log = watch_log(4, [](int pause) {
        if (pause == 2) store_shared(request_vedio, 1);
        if (pause == 3) store_shared(request_vedio, 0);
    });
    EXPECT_EQ(log, "");
    EXPECT_EQ(fake_os::reboots(), 0);
    EXPECT_EQ(fake_os::page_cache_drops(), 1);
}

TEST_F(CloudSession, UpgradeSuspendsTheWatch) {
    store_shared(ota_enable, 1);
    const std::string log = watch_log(6, [](int) { store_shared(request_vedio, 1); });
    EXPECT_EQ(log, "");
    EXPECT_EQ(fake_os::reboots(), 0);
    EXPECT_EQ(fake_os::page_cache_drops(), 4);  // though somebody watches
}

TEST_F(CloudSession, UpgradeThatStartsDuringAQuietPeriodPreventsTheReboot) {
    const std::string log = watch_log(5, [](int pause) {
        if (pause == 2) store_shared(request_vedio, 1);
        if (pause == 3) store_shared(ota_enable, 1);
    });
    EXPECT_EQ(log, "");
    EXPECT_EQ(fake_os::reboots(), 0);
}

// --- What the SDK may read before anything has run: taken before the first test.

const int kFramesAtLoad = get_frame_callback_flag;
const int kUpgradeAtLoad = ota_enable;
const int kRecordingAtLoad = video_recording;
const mipc_api_table *const kTableAtLoad = mipc_api;

TEST(AtLoad, NothingRuns) {
    EXPECT_EQ(kFramesAtLoad, 0);
    EXPECT_EQ(kUpgradeAtLoad, 0);
    EXPECT_EQ(kRecordingAtLoad, 0);
    EXPECT_EQ(kTableAtLoad, nullptr);
}

// --- Entry points of the SDK and the capture library

TEST_F(AgentTest, VideoIsRequestedFromTheCapture) {
    EXPECT_EQ(output_of([] { EXPECT_EQ(c_request_video(3, 4), 1); }), "*** c_request_video called!! *** \n");
    EXPECT_EQ(fake_vendor::calls(), Texts{"ExFramer_Capture_Start"});
}

TEST_F(AgentTest, VideoIsEndedAtTheCapture) {
    EXPECT_EQ(output_of([] { EXPECT_EQ(c_end_video(3, 4), 1); }), "*** c_end_video called!! *** \n");
    EXPECT_EQ(fake_vendor::calls(), Texts{"ExFramer_Capture_Stop"});
}

TEST_F(AgentTest, AudioRequestAndParamStringDoNothing) {
    EXPECT_EQ(output_of([] {
                  EXPECT_EQ(c_request_audio(3, 4), 1);
                  EXPECT_EQ(e_get_param_str(5), 0);
              }),
              "");
    EXPECT_TRUE(fake_vendor::calls().empty());
}

TEST_F(AgentTest, CaptureErrorZeroOnlyLogs) {
    EXPECT_LOG(output_of([] { EXPECT_EQ(error_callback(0), 0); }),
               "error_callback: 0\n!!!***platform/Z55/frame/frame <N> ***!!! error_stat=0\n");
    EXPECT_EQ(fake_os::reboots(), 0);
}

TEST_F(AgentTest, CaptureErrorReboots) {
    for (const int code : {1, -3}) {
        const std::string number = std::to_string(code);
        EXPECT_LOG(output_of([=] { EXPECT_EQ(error_callback(code), 0); }),
                   "error_callback: " + number + "\n!!!***platform/Z55/frame/frame <N> ***!!! error_stat=" +
                       number + "\nError code != 0. Rebooting......\nreboot failed\n");
    }
    EXPECT_EQ(fake_os::reboots(), 2);
}

}  // namespace
