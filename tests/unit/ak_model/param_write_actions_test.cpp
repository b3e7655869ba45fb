// set_device_param, the actions; unusable input; changes that meet.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "ak_model/reserve_file.h"
#include "param_write_test.h"

namespace {

// --- Actions.

TEST_F(ParamWrite, UpgradeGivesZeroWhenItWasRequested) {
    // An upgrade request ends with the camera's error code where the reply holds no event: 0 here.
    camera.reply("/CGI/CameraStatus?NewFirmwareEvent", "<ErrorCode>0</ErrorCode>");
    const Outcome outcome = set("doOTA", "any");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_LOG(outcome.log, start_log("doOTA", "any") +
                                "before set OTA() , ---platform/Z55/ak_model,line <N>\n" +
                                "!!!***platform/Z55/ak_model <N> ***!!! OTA function \n" +
                                "[GET CameraStatus?NewFirmwareEvent]\nfwEvent ErrorCode: 0\n" +
                                "after set OTA() , ---platform/Z55/ak_model,line <N>\n");
}

TEST_F(ParamWrite, UpgradeGivesMinusOneForAnyOtherResult) {
    for (const char *code : {"-3", "-1", "7"}) {
        camera.reply("/CGI/CameraStatus?NewFirmwareEvent",
                     std::string("<ErrorCode>") + code + "</ErrorCode>");
        EXPECT_EQ(set("doOTA", "1").result, -1) << code;
    }
}

constexpr char kFormatDocument[] = "<RemoteControl><Action>FORMATSD</Action></RemoteControl>";

TEST_F(ParamWrite, CardIsFormattedAndItsReserveMadeAnew) {
    unlink("/tmp/fuse_d/.ota.tmp");
    const Outcome outcome = set("sdformat", "0");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_LOG(outcome.log, start_log("sdformat", "0") +
                                "before set formatSD() , ---platform/Z55/ak_model,line <N>\n"
                                "!!!***platform/Z55/ak_model <N> ***!!!\n ***** formatsd operation*****\n"
                                "[POST RemoteControl]\n"
                                "!!!***platform/Z55/ak_model <N> ***!!! dummyFileCreator function \n"
                                "create start\ncreate file end\ncreate file success\n"
                                "after set formatSD() , ---platform/Z55/ak_model,line <N>\n");
    EXPECT_EQ(camera.seen(), Texts{"POST /CGI/RemoteControl Session=12345\n" + posted(kFormatDocument, 56)});
    EXPECT_EQ(fake_os::shell_commands(),
              Texts{"/bin/dd if=/dev/zero of=/tmp/fuse_d/.ota.tmp bs=1024000 count=100"});
}

TEST_F(ParamWrite, CardIsFormattedAndHasAReserveAfterAnUpgradeTookItsOwn) {
    write_file("/tmp/fuse_d/.ota.tmp", "space");
    output_of([] { EXPECT_EQ(deleteDummyFile(), 0); });
    EXPECT_EQ(set("sdformat", "0").result, 0);
    EXPECT_TRUE(file_exists("/tmp/fuse_d/.ota.tmp"));
}

TEST_F(ParamWrite, CardThatCouldNotBeFormattedGetsNoReserve) {
    camera.go_away();
    EXPECT_EQ(set("sdformat", "1").result, 0);
    EXPECT_EQ(fake_os::shell_commands(), Texts{});
}

TEST_F(ParamWrite, ManualRecordingStarts) {
    video_recording = 1;
    const Outcome outcome = set("manual_record", "1");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_LOG(outcome.log, start_log("manual_record", "1") +
                                "before set start_recording_video  , ---platform/Z55/ak_model,line <N>\n"
                                "start_recording_video:line=382:video_recording=1\n"
                                "after set start_recording_video , ---platform/Z55/ak_model,line <N>\n");
}

TEST_F(ParamWrite, ManualRecordingHasNoEnd) {
    camera.reply("/CGI/RemoteControl", "<ErrorCode>-5</ErrorCode>");
    const Outcome outcome = set("manual_record", "1");
    EXPECT_EQ(outcome.result, 0);  // whatever became of it
    EXPECT_NE(outcome.log.find("start_recording_video called, len = 0\n"), std::string::npos) << outcome.log;
    EXPECT_EQ(video_recording, 0);
}

TEST_F(ParamWrite, ManualRecordingStops) {
    const Outcome outcome = set("manual_record", "0");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_LOG(outcome.log, start_log("manual_record", "0") +
                                "before set stop_recording_video  , ---platform/Z55/ak_model,line <N>\n"
                                "stop_recording_video called\nVideo_recording is 0. Return. \n"
                                "after set stop_recording_video , ---platform/Z55/ak_model,line <N>\n");
}

TEST_F(ParamWrite, ManualRecordingIgnoresOtherValues) {
    for (const char *value : {"2", "-1"}) {
        const Outcome outcome = set("manual_record", value);
        EXPECT_EQ(outcome.result, 0);
        EXPECT_LOG(outcome.log, start_log("manual_record", value));
    }
    EXPECT_EQ(camera.seen(), Texts{});
}

TEST_F(ParamWrite, RebootAndSaveDoNothing) {
    for (const char *name : {"reboot", "save_param"}) {
        const Outcome outcome = set(name, "1");
        EXPECT_EQ(outcome.result, 0);
        EXPECT_LOG(outcome.log, start_log(name, "1"));
    }
    EXPECT_EQ(fake_os::reboots(), 0);
    EXPECT_EQ(camera.seen(), Texts{});
}

TEST_F(ParamWrite, ResolutionIsNotImplemented) {
    const Outcome outcome = set("resolution", "1");
    EXPECT_EQ(outcome.result, -1);
    EXPECT_LOG(outcome.log, start_log("resolution", "1") + "Not implement yet\n");
}

TEST_F(ParamWrite, CloudStorageTokenIsRemoved) {
    const std::string log = start_log("Csdnimbo", "0") +
                            "Csdnimbo --platform/Z55/ak_model,line <N>\n"
                            "before remove nimbo token  , ---platform/Z55/ak_model,line <N>\n"
                            "after remove nimbo token , ---platform/Z55/ak_model,line <N>\n";
    const Outcome removed = set("Csdnimbo", "0");
    EXPECT_EQ(removed.result, 0);
    EXPECT_LOG(removed.log, log);
    EXPECT_EQ(fake_vendor::calls(), Texts{"remove_token"});
    for (const int failure : {1, -2}) {
        fake_vendor::result("remove_token", failure);
        const Outcome refused = set("Csdnimbo", "0");
        EXPECT_EQ(refused.result, -1);
        EXPECT_LOG(refused.log, log);
    }
    EXPECT_EQ(camera.seen(), Texts{});
}

TEST_F(ParamWrite, CloudStorageTokenIsFetchedElsewhere) {
    const Outcome outcome = set("Csdnimbo", "1");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_LOG(outcome.log,
               start_log("Csdnimbo", "1") + trace("get nimbo token (actual work in NimboUpLoad function) "));
    EXPECT_EQ(fake_vendor::calls(), Texts{});
    EXPECT_EQ(camera.seen(), Texts{});
}

// --- The stream profile.

struct ProfileRow {
    const char *name;
    const char *value;
    int type;
};

class ParamWriteHighDefinition : public ParamWrite, public testing::WithParamInterface<ProfileRow> {};

TEST_P(ParamWriteHighDefinition, SelectsTheProfileAndStartsTheThread) {
    const auto [name, value, type] = GetParam();
    video_recording = 1;  // so that the thread ends at once
    gResolutionType = 0;
    void *result = nullptr;
    const Outcome outcome = outcome_of([&, text = value] {
        const int at_once = set_device_param("high_definition", text, 1);
        pthread_join(resolutionChange_t, &result);
        return at_once;
    });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(gResolutionType, type);
    EXPECT_EQ(static_cast<int>(reinterpret_cast<std::intptr_t>(result)), -10);
    const std::string start = start_log("high_definition", value) +
                              "ptz_direction_control: change resolution= " + std::to_string(type) +
                              "\n--platform/Z55/ak_model,line <N>--\narg = ";
    EXPECT_LOG(outcome.log.substr(0, outcome.log.find("arg = ") + 6), start);
}

INSTANTIATE_TEST_SUITE_P(Rows, ParamWriteHighDefinition,
                         testing::Values(ProfileRow{.name = "first", .value = "1", .type = 1},
                                         ProfileRow{.name = "second", .value = "2", .type = 2},
                                         ProfileRow{.name = "third", .value = "3", .type = 3},
                                         ProfileRow{.name = "far above the third", .value = "9", .type = 1},
                                         ProfileRow{.name = "below the first", .value = "0", .type = 1},
                                         ProfileRow{.name = "below 0", .value = "-2", .type = 1},
                                         ProfileRow{.name = "above the third", .value = "4", .type = 1},
                                         ProfileRow{.name = "no number", .value = "hd", .type = 1}),
                         by_name);

TEST_F(ParamWrite, HighDefinitionOfNineSwitchesTheStreamToTheLowestProfile) {
    camera.reply("/CGI/CameraSetting?MOTION_DETECTION&AUDIO_DETECTION",
                 "<MOTION_DETECTION><ENABLE>OFF</ENABLE></MOTION_DETECTION>"
                 "<AUDIO_DETECTION><ENABLE>OFF</ENABLE></AUDIO_DETECTION>");
    outcome_of([&] {
        set_device_param("high_definition", "9", 1);
        return pthread_join(resolutionChange_t, nullptr);
    });
    EXPECT_EQ(camera.seen().back(),
              control_request("<RemoteControl><Action>STREAM_CHANGE</Action><STREAM>RTP_H264_WQVGA</STREAM>"
                              "</RemoteControl>"));
}

// --- Unusable input.

class ParamWriteUndefinedParameter : public ParamWrite, public testing::WithParamInterface<UndefinedRow> {};

TEST_P(ParamWriteUndefinedParameter, IsAFailure) {
    const Outcome outcome = set(GetParam().text, "1");
    EXPECT_EQ(outcome.result, -1);
    EXPECT_LOG(outcome.log, start_log(GetParam().text, "1") +
                                "!!!***platform/Z55/ak_model <N> ***!!! param_name=" + GetParam().text +
                                "\nset_device_param This parameter undefined\n");
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(camera.seen(), Texts{});
    EXPECT_EQ(conf_text(), kArmedConf);
}

INSTANTIATE_TEST_SUITE_P(Names, ParamWriteUndefinedParameter,
                         testing::Values(UndefinedRow{.name = "empty", .text = ""},
                                         UndefinedRow{.name = "capitals", .text = "MD_armed"},
                                         UndefinedRow{.name = "blank behind it", .text = "md_armed "},
                                         UndefinedRow{.name = "upgrade in small letters", .text = "doota"},
                                         UndefinedRow{.name = "storage in small letters", .text = "csdnimbo"},
                                         UndefinedRow{.name = "a status", .text = "Battery"},
                                         UndefinedRow{.name = "the firmware", .text = "firmware_ver"}),
                         by_name);

TEST_F(ParamWrite, NullsAreFailuresAndNoCrash) {
    EXPECT_EQ(set(nullptr, "1").result, -1);
    for (const char *name : {"md_armed", "md_sensitivity", "td_up", "pd_armed", "pd_setting",
                             "high_definition", "manual_record", "Csdnimbo", "nothing"}) {
        const Outcome outcome = set(name, nullptr, 0);
        EXPECT_EQ(outcome.result, -1) << name;
        EXPECT_LOG(outcome.log, start_log(name, "", 0) +
                                    "!!!***platform/Z55/ak_model <N> ***!!! param_name=" + name +
                                    "\nset_device_param This parameter undefined\n");
    }
    EXPECT_EQ(camera.seen(), Texts{});
    EXPECT_EQ(conf_text(), kArmedConf);
    EXPECT_EQ(fake_vendor::calls(), Texts{});
}

// Where the value means nothing, a missing one is as good as any.
TEST_F(ParamWrite, ActionsWithoutAValueNeedNone) {
    camera.reply("/CGI/CameraStatus?NewFirmwareEvent", "<ErrorCode>0</ErrorCode>");
    for (const char *name : {"doOTA", "sdformat", "reboot", "save_param"}) {
        EXPECT_EQ(set(name, nullptr, 0).result, 0) << name;
    }
    EXPECT_EQ(camera.requests().size(), 2U) << "of the upgrade and of the card";
    EXPECT_LOG(set("resolution", nullptr, 0).log, start_log("resolution", "", 0) + "Not implement yet\n");
}

TEST_F(ParamWrite, OverlongTextsAreNoCrash) {
    const std::string overlong(10'000, '1');
    EXPECT_EQ(set(overlong.c_str(), "1").result, -1);
    EXPECT_EQ(set("td_up", overlong.c_str()).result, 0);
    EXPECT_EQ(camera.seen().at(1), setup_request(TEMPERATURE("OFF", "2147483647", "10")));
    EXPECT_EQ(set("td_down", ("-" + overlong).c_str()).result, 0);
    EXPECT_EQ(camera.seen().at(3), setup_request(TEMPERATURE("OFF", "38", "-2147483648")));
    EXPECT_EQ(set("pd_setting", overlong.c_str()).result, 0);
    // A line is read in one piece of 1022 characters: more than that is not stored.
    const std::string conf = conf_text();
    EXPECT_EQ(std::count(conf.begin(), conf.end(), '\n'), 6);
    EXPECT_LE(conf.find("\nNIMB_LOW"), sizeof kArmedConf + 1022);
}

// --- Changes that meet.

// A camera that holds its motion group and changes it by what is posted.
struct HeldGroup {
    std::mutex lock;
    std::string enable = "OFF", sensitivity = "0";

    CameraReply answer(const CameraRequest &request) {
        const std::lock_guard<std::mutex> guard(lock);
        if (request.method == "POST") {
            enable = element(request.body, "ENABLE");
            sensitivity = element(request.body, "SENSITIVITY");
        }
        return {.body = "<ENABLE>" + enable + "</ENABLE><SENSITIVITY>" + sensitivity + "</SENSITIVITY>"};
    }
    static std::string element(const std::string &text, const std::string &name) {
        const size_t start = text.find("<" + name + ">") + name.size() + 2;
        return text.substr(start, text.find("</" + name) - start);
    }
};

TEST_F(ParamWrite, TwoChangesOfOneGroupBothLast) {
    HeldGroup group;
    camera.on_request([&](const CameraRequest &request) { return group.answer(request); });
    output_of([&] {
        for (int round = 1; round <= 20; round++) {
            std::thread arming([&] { set_device_param("md_armed", round % 2 == 1 ? "1" : "0", 1); });
            std::thread tuning(
                [&] { set_device_param("md_sensitivity", std::to_string(2 * round).c_str(), 1); });
            arming.join();
            tuning.join();
            EXPECT_EQ(group.enable, round % 2 == 1 ? "ON" : "OFF");
            EXPECT_EQ(group.sensitivity, std::to_string(round));
        }
    });
    camera.on_request({});
}

TEST_F(ParamWrite, SixteenThreadsSendTheBytesThatTheyFormatted) {
    output_of([&] {
        std::vector<std::thread> threads;
        for (int i = 0; i < 16; i++) {
            threads.emplace_back([i] {
                for (int round = 0; round < 5; round++) {
                    const int number = 100 * i + round;
                    if (i % 2 == 0) {
                        set_device_param("td_up", std::to_string(number).c_str(), 1);
                    } else {
                        ptz_direction_control(44, number);
                    }
                }
            });
        }
        for (std::thread &thread : threads) thread.join();
    });
    std::multiset<std::string> expected, sent;
    for (int i = 0; i < 16; i++) {
        for (int round = 0; round < 5; round++) {
            const std::string number = std::to_string(100 * i + round);
            expected.insert(posted(i % 2 == 0
                                       ? "<CameraSetup><TEMPERATURE_ALERT><ENABLE>OFF</ENABLE><MAX>" +
                                             number + "</MAX><MIN>10</MIN></TEMPERATURE_ALERT></CameraSetup>"
                                       : "<RemoteControl><Action>LULLABY</Action><Volume>" + number +
                                             "</Volume></RemoteControl>"));
        }
    }
    for (const CameraRequest &request : camera.requests()) {
        if (request.method == "POST") sent.insert(request.body);
    }
    EXPECT_EQ(sent.size(), 80U);
    EXPECT_TRUE(sent == expected);
    EXPECT_EQ(camera.most_at_once(), 1);
}

}  // namespace
