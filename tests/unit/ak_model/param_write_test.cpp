// set_device_param, the settings: requests, configuration, result and log of each, every failure.
#include "param_write_test.h"

#include <curl/curl.h>

namespace {

// --- Settings of the camera: read, changed, written back whole.

struct GroupRow {
    const char *name;
    const char *parameter, *value, *group, *document;
};

class ParamWriteGroupParameter : public ParamWrite, public testing::WithParamInterface<GroupRow> {};

TEST_P(ParamWriteGroupParameter, IsWrittenBackWithItsGroup) {
    const auto [name, parameter, value, group, document] = GetParam();
    const std::string target = std::string("CameraSetting?") + group;
    const Outcome outcome = set(parameter, value, 7);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_LOG(outcome.log, start_log(parameter, value, 7) + "[GET " + target + "]\n" + post_log(document));
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(camera.seen(), (Texts{get_request(target), setup_request(document)}));
    EXPECT_EQ(conf_text(), kArmedConf);
}

INSTANTIATE_TEST_SUITE_P(Rows, ParamWriteGroupParameter,
                         testing::Values(GroupRow{.name = "motion off",
                                                  .parameter = "md_armed",
                                                  .value = "0",
                                                  .group = "MOTION_DETECTION",
                                                  .document = MOTION("OFF", "6")},
                                         GroupRow{.name = "motion on",
                                                  .parameter = "md_armed",
                                                  .value = "1",
                                                  .group = "MOTION_DETECTION",
                                                  .document = MOTION("ON", "6")},
                                         GroupRow{.name = "motion by a word",
                                                  .parameter = "md_armed",
                                                  .value = "on",
                                                  .group = "MOTION_DETECTION",
                                                  .document = MOTION("OFF", "6")},  // no number reads as 0
                                         GroupRow{.name = "motion sensitivity",
                                                  .parameter = "md_sensitivity",
                                                  .value = "7",
                                                  .group = "MOTION_DETECTION",
                                                  .document = MOTION("ON", "3")},
                                         GroupRow{.name = "motion sensitivity below 0",
                                                  .parameter = "md_sensitivity",
                                                  .value = "-3",
                                                  .group = "MOTION_DETECTION",
                                                  .document = MOTION("ON", "-1")},
                                         GroupRow{.name = "motion sensitivity above 7",
                                                  .parameter = "md_sensitivity",
                                                  .value = "8",
                                                  .group = "MOTION_DETECTION",
                                                  .document = MOTION("ON", "4")},
                                         GroupRow{.name = "motion sensitivity empty",
                                                  .parameter = "md_sensitivity",
                                                  .value = "",
                                                  .group = "MOTION_DETECTION",
                                                  .document = MOTION("ON", "0")},
                                         GroupRow{.name = "sound off",
                                                  .parameter = "sd_armed",
                                                  .value = "0",
                                                  .group = "AUDIO_DETECTION",
                                                  .document = AUDIO("OFF", "2")},
                                         GroupRow{.name = "sound on",
                                                  .parameter = "sd_armed",
                                                  .value = "1",
                                                  .group = "AUDIO_DETECTION",
                                                  .document = AUDIO("ON", "2")},
                                         GroupRow{.name = "sound sensitivity",
                                                  .parameter = "sd_sensitivity",
                                                  .value = "9",
                                                  .group = "AUDIO_DETECTION",
                                                  .document = AUDIO("OFF", "4")},
                                         GroupRow{.name = "temperature off",
                                                  .parameter = "td_armed",
                                                  .value = "0",
                                                  .group = "TEMPERATURE_ALERT",
                                                  .document = TEMPERATURE("OFF", "38", "10")},
                                         GroupRow{.name = "temperature on",
                                                  .parameter = "td_armed",
                                                  .value = "1",
                                                  .group = "TEMPERATURE_ALERT",
                                                  .document = TEMPERATURE("ON", "38", "10")},
                                         GroupRow{.name = "upper bound",
                                                  .parameter = "td_up",
                                                  .value = "41",
                                                  .group = "TEMPERATURE_ALERT",
                                                  .document = TEMPERATURE("OFF", "41", "10")},
                                         GroupRow{.name = "upper bound below 0",
                                                  .parameter = "td_up",
                                                  .value = "-5",
                                                  .group = "TEMPERATURE_ALERT",
                                                  .document = TEMPERATURE("OFF", "-5", "10")},
                                         GroupRow{.name = "lower bound",
                                                  .parameter = "td_down",
                                                  .value = "3",
                                                  .group = "TEMPERATURE_ALERT",
                                                  .document = TEMPERATURE("OFF", "38", "3")},
                                         GroupRow{.name = "lower bound with a letter",
                                                  .parameter = "td_down",
                                                  .value = "08x",
                                                  .group = "TEMPERATURE_ALERT",
                                                  .document = TEMPERATURE("OFF", "38", "8")}),
                         by_name);

// The other element of the group goes back as the camera's own text.
TEST_F(ParamWrite, TheOthersTextIsSentBackUnchanged) {
    camera.reply("/CGI/CameraSetting?TEMPERATURE_ALERT", "<ENABLE>on</ENABLE><MAX>38.50</MAX><MIN> 1 </MIN>");
    EXPECT_EQ(set("td_up", "20").result, 0);
    EXPECT_EQ(camera.seen().at(1), setup_request(TEMPERATURE("on", "20", " 1 ")));
    EXPECT_EQ(set("td_armed", "1").result, 0);
    EXPECT_EQ(camera.seen().at(3), setup_request(TEMPERATURE("ON", "38.50", " 1 ")));
}

struct NeededRow {
    const char *name;
    const char *parameter, *reply;
};

class ParamWriteNeededElement : public ParamWrite, public testing::WithParamInterface<NeededRow> {};

TEST_P(ParamWriteNeededElement, MissingGivesFiveAndPostsNothing) {
    const auto [name, parameter, reply] = GetParam();
    for (const char *group : {"MOTION_DETECTION", "AUDIO_DETECTION", "TEMPERATURE_ALERT"}) {
        camera.reply(std::string("/CGI/CameraSetting?") + group, reply);
    }
    const Outcome outcome = set(parameter, "1");
    EXPECT_EQ(outcome.result, 5);
    EXPECT_LOG(outcome.errors, "local_response is null:  (platform/Z55/ak_model, <N>)\n");
    EXPECT_EQ(outcome.log.find("before POST"), std::string::npos);
    EXPECT_EQ(camera.requests().size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Rows, ParamWriteNeededElement,
                         testing::Values(NeededRow{.name = "motion without sensitivity",
                                                   .parameter = "md_armed",
                                                   .reply = "<ENABLE>ON</ENABLE>"},
                                         NeededRow{.name = "motion sensitivity without switch",
                                                   .parameter = "md_sensitivity",
                                                   .reply = "<SENSITIVITY>1</SENSITIVITY>"},
                                         NeededRow{.name = "sound without sensitivity",
                                                   .parameter = "sd_armed",
                                                   .reply = "<ENABLE>ON</ENABLE>"},
                                         NeededRow{.name = "sound sensitivity without switch",
                                                   .parameter = "sd_sensitivity",
                                                   .reply = "<SENSITIVITY>1</SENSITIVITY>"},
                                         NeededRow{.name = "temperature without minimum",
                                                   .parameter = "td_armed",
                                                   .reply = "<ENABLE>ON</ENABLE><MAX>1</MAX>"},
                                         NeededRow{.name = "temperature without maximum",
                                                   .parameter = "td_armed",
                                                   .reply = "<ENABLE>ON</ENABLE><MIN>1</MIN>"},
                                         NeededRow{.name = "upper bound without switch",
                                                   .parameter = "td_up",
                                                   .reply = "<MIN>1</MIN><MAX>1</MAX>"},
                                         NeededRow{.name = "upper bound without minimum",
                                                   .parameter = "td_up",
                                                   .reply = "<ENABLE>ON</ENABLE><MAX>1</MAX>"},
                                         NeededRow{.name = "lower bound without switch",
                                                   .parameter = "td_down",
                                                   .reply = "<MAX>1</MAX><MIN>1</MIN>"},
                                         NeededRow{.name = "lower bound without maximum",
                                                   .parameter = "td_down",
                                                   .reply = "<ENABLE>ON</ENABLE><MIN>1</MIN>"},
                                         NeededRow{.name = "error in place of the group",
                                                   .parameter = "md_armed",
                                                   .reply = "<ErrorCode>-3</ErrorCode>"}),
                         by_name);

// What is written anew need not be there before.
TEST_F(ParamWrite, TheElementItselfMayBeMissing) {
    camera.reply("/CGI/CameraSetting?MOTION_DETECTION", "<SENSITIVITY>1</SENSITIVITY>");
    EXPECT_EQ(set("md_armed", "1").result, 0);
    EXPECT_EQ(camera.seen().at(1), setup_request(MOTION("ON", "1")));
}

TEST_F(ParamWrite, ACameraThatCannotBeReachedIsAFailure) {
    camera.go_away();
    const Outcome outcome = set("sd_armed", "1");
    EXPECT_EQ(outcome.result, -1);
    EXPECT_LOG(outcome.log, start_log("sd_armed", "1") +
                                "[GET CameraSetting?AUDIO_DETECTION]\n[failed]\n"
                                "res !=CURLE_OK: platform/Z55/ak_model,line <N>\n");
    EXPECT_LOG(outcome.errors, std::string("curl failed : ") + curl_easy_strerror(CURLE_COULDNT_CONNECT) +
                                   "  (platform/Z55/ak_model, <N>)\n");
}

TEST_F(ParamWrite, AnyStatusBut200OfTheGetIsAFailure) {
    camera.reply("/CGI/CameraSetting?MOTION_DETECTION", {CameraReply{.body = kMotion, .status = 500}});
    EXPECT_EQ(set("md_armed", "1").result, -1);
    EXPECT_EQ(camera.requests().size(), 1U);
}

TEST_F(ParamWrite, APostThatFailsIsAFailure) {
    camera.reply("/CGI/CameraSetup", {CameraReply{.hang_up = true}});
    const Outcome outcome = set("md_armed", "1");
    EXPECT_EQ(outcome.result, -1);
    EXPECT_LOG(outcome.log, start_log("md_armed", "1") + "[GET CameraSetting?MOTION_DETECTION]\n" +
                                post_log(MOTION("ON", "6")) + "[failed]\n");
}

TEST_F(ParamWrite, ThePostsStatusIsNotLookedAt) {
    camera.reply("/CGI/CameraSetup", {CameraReply{.body = "<ErrorCode>-3</ErrorCode>", .status = 500}});
    EXPECT_EQ(set("md_armed", "1").result, 0);
}

TEST_F(ParamWrite, ADocumentIsCutAt319CharactersAndTheBodyAt349) {
    camera.reply("/CGI/CameraSetting?MOTION_DETECTION",
                 "<SENSITIVITY>" + std::string(10'000, 's') + "</SENSITIVITY>");
    const Outcome outcome = set("md_armed", "1");
    EXPECT_EQ(outcome.result, 0);
    const std::string head = "<CameraSetup><MOTION_DETECTION><ENABLE>ON</ENABLE><SENSITIVITY>";
    const std::string document = head + std::string(319 - head.size(), 's');
    EXPECT_LOG(outcome.log,
               start_log("md_armed", "1") + "[GET CameraSetting?MOTION_DETECTION]\n" + post_log(document));
    EXPECT_EQ(camera.requests().at(1).body, posted(document).substr(0, 349));
}

// --- Switches with an unexpected value.

TEST_F(ParamWrite, MotionSwitchComplainsAndPostsAnEmptyCommand) {
    expect_empty_command(set("md_armed", "2"), start_log("md_armed", "2") + "param error\n");
}

class ParamWriteUnexpectedSwitch : public ParamWrite, public testing::WithParamInterface<const char *> {};

TEST_P(ParamWriteUnexpectedSwitch, PostsAnEmptyCommand) {
    for (const char *value : {"2", "-1", "10"}) {
        expect_empty_command(set(GetParam(), value), start_log(GetParam(), value));
        camera.forget();
    }
}

INSTANTIATE_TEST_SUITE_P(Names, ParamWriteUnexpectedSwitch,
                         testing::Values("sd_armed", "td_armed", "pd_armed", "csd_armed", "sdcard_armed",
                                         "Csdnimbo"),
                         by_text);

TEST_F(ParamWrite, AnEmptyCommandsResultIsThatOfItsPost) {
    camera.go_away();
    for (const char *name : {"md_armed", "sd_armed", "td_armed", "pd_armed", "Csdnimbo"}) {
        EXPECT_EQ(set(name, "2").result, -1) << name;
    }
}

// --- Switches and thresholds of the configuration.

struct ConfSwitchRow {
    const char *name, *key, *word;
};

class ParamWriteConfSwitch : public ParamWrite, public testing::WithParamInterface<ConfSwitchRow> {};

TEST_P(ParamWriteConfSwitch, IsStored) {
    const auto [name, key, word] = GetParam();
    for (const char *value : {"1", "0"}) {
        const Outcome outcome = set(name, value);
        EXPECT_EQ(outcome.result, 0);
        const std::string state = value[0] == '1' ? " on" : " off";
        EXPECT_LOG(outcome.log, start_log(name, value) + trace(std::string("setting ") + word + state));
        EXPECT_EQ(conf_text(), conf_with(key, value));
    }
    EXPECT_EQ(set(name, "01").result, 0);
    EXPECT_EQ(conf_text(), conf_with(key, "1"));
    EXPECT_EQ(camera.seen(), Texts{});
}

TEST_P(ParamWriteConfSwitch, IsZeroEvenWhereNothingCanBeWritten) {
    remove_conf();
    EXPECT_EQ(set(GetParam().name, "1").result, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ParamWriteConfSwitch,
    testing::Values(ConfSwitchRow{.name = "pd_armed", .key = "BATTERY_ARMED", .word = "battery_armed"},
                    ConfSwitchRow{.name = "csd_armed", .key = "NIMB_ARMED", .word = "nimb_armed"},
                    ConfSwitchRow{.name = "sdcard_armed", .key = "SDCARD_ARMED", .word = "sdcard_armed"}),
    by_name);

struct ThresholdRow {
    const char *name, *key, *word;
};

class ParamWriteThreshold : public ParamWrite, public testing::WithParamInterface<ThresholdRow> {
  protected:
    static std::string conf_with_threshold(const std::string &value) {
        return std::string("CLOUD_ID=cam1\n") + GetParam().key + "=" + value + "\nPASSWORD=123456\n";
    }
    void SetUp() override {
        ParamWrite::SetUp();
        write_file("/tmp/working/VeloAgent.conf", conf_with_threshold("9"));
    }
};

TEST_P(ParamWriteThreshold, IsStoredAsReceived) {
    const std::string name = GetParam().name, word = GetParam().word;
    for (const std::string value : {"15", "fifteen", "", " 7"}) {
        const Outcome outcome = set(name.c_str(), value.c_str());
        EXPECT_EQ(outcome.result, 0);
        EXPECT_LOG(outcome.log, start_log(name, value) +
                                    trace("before setting " + word + " , param_value = " + value) +
                                    trace("After setting " + word + " , param_value = " + value));
        EXPECT_EQ(conf_text(), conf_with_threshold(value));
    }
    EXPECT_EQ(camera.seen(), Texts{});
}

TEST_P(ParamWriteThreshold, AddsNoLinesToTheFile) {
    set(GetParam().name, "15\nPASSWORD=stolen");
    EXPECT_EQ(conf_text(), conf_with_threshold("15"));
    set(GetParam().name, "16\rx");
    EXPECT_EQ(conf_text(), conf_with_threshold("16"));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ParamWriteThreshold,
    testing::Values(ThresholdRow{.name = "pd_setting", .key = "BATTERY_LOW", .word = "battery"},
                    ThresholdRow{.name = "csd_setting", .key = "NIMB_LOW", .word = "nimb"},
                    ThresholdRow{.name = "sdcard_setting", .key = "SDCARD_LOW", .word = "sdcard"}),
    by_name);

}  // namespace
