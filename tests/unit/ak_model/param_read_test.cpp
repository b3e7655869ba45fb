// get_device_param: each parameter's request, result and log; every failure; unusable input; many threads.
#include "intercept.h"
#include "read_handler_test.h"

namespace {

constexpr ReadHandler kParam{get_device_param, "param"};

std::string end_log(const std::string &name, const std::string &value) {
    return "!!!***platform/Z55/ak_model <N> ***!!! param_name=" + name + ",param_value=" + value + "\n";
}

class ParamRead : public HandlerTest {};

struct CameraRow {
    const char *name, *group, *value;
};

class ParamReadCameraParameter : public HandlerTest, public testing::WithParamInterface<CameraRow> {};

TEST_P(ParamReadCameraParameter, IsAskedOfItsGroup) {
    const auto [name, group, value] = GetParam();
    const Outcome outcome = kParam.read(name);
    expect_value(outcome, value);
    EXPECT_LOG(outcome.log,
               kParam.start_log(name) + "[GET CameraSetting?" + group + "]\n" + end_log(name, value));
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(camera.seen(), Texts{get_request(std::string("CameraSetting?") + group)});
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ParamReadCameraParameter,
    testing::Values(CameraRow{.name = "md_armed", .group = "MOTION_DETECTION", .value = "1"},
                    CameraRow{.name = "md_sensitivity", .group = "MOTION_DETECTION", .value = "6"},
                    CameraRow{.name = "sd_armed", .group = "AUDIO_DETECTION", .value = "0"},
                    CameraRow{.name = "sd_sensitivity", .group = "AUDIO_DETECTION", .value = "2"},
                    CameraRow{.name = "td_armed", .group = "TEMPERATURE_ALERT", .value = "0"},
                    CameraRow{.name = "td_up", .group = "TEMPERATURE_ALERT", .value = "38"},
                    CameraRow{.name = "td_down", .group = "TEMPERATURE_ALERT", .value = "10"}),
    by_name);

struct WordRow {
    const char *name;
    const char *word, *value;
};

class ParamReadCameraWord : public HandlerTest, public testing::WithParamInterface<WordRow> {};

TEST_P(ParamReadCameraWord, OnlyExactOnAndOffAreTranslated) {
    const auto [name, word, value] = GetParam();
    camera.reply("/CGI/CameraSetting", std::string("<ENABLE>") + word + "</ENABLE>");
    camera.reply("/CGI/CameraSetting?MOTION_DETECTION", std::string("<ENABLE>") + word + "</ENABLE>");
    const Outcome outcome = kParam.read("md_armed");
    expect_value(outcome, value);
}

INSTANTIATE_TEST_SUITE_P(Rows, ParamReadCameraWord,
                         testing::Values(WordRow{.name = "on", .word = "ON", .value = "1"},
                                         WordRow{.name = "off", .word = "OFF", .value = "0"},
                                         WordRow{.name = "on in other letters", .word = "On", .value = "On"},
                                         WordRow{
                                             .name = "off in other letters", .word = "off", .value = "off"},
                                         WordRow{.name = "longer than on", .word = "ONE", .value = "ONE"},
                                         WordRow{.name = "blank before on", .word = " ON", .value = " ON"},
                                         WordRow{.name = "empty", .word = "", .value = ""},
                                         WordRow{.name = "another word", .word = "HIGH", .value = "HIGH"}),
                         by_name);

TEST_F(ParamRead, TheFirstElementCounts) {
    camera.reply("/CGI/CameraSetting?TEMPERATURE_ALERT", "<MAX>40</MAX><MAX>41</MAX>");
    EXPECT_EQ(kParam.read("td_up").text, "40");
}

struct ConfRow {
    const char *name, *key;
};

class ParamReadConfParameter : public HandlerTest, public testing::WithParamInterface<ConfRow> {};

TEST_P(ParamReadConfParameter, IsReadFromTheFileUnchanged) {
    const auto [name, key] = GetParam();
    for (const char *value : {"ON", "15", "", "a=b"}) {
        set_conf(key, value);
        const Outcome outcome = kParam.read(name);
        expect_value(outcome, value);
        EXPECT_LOG(outcome.log, kParam.start_log(name) + end_log(name, value));
    }
    EXPECT_EQ(camera.seen(), Texts{});
}

TEST_P(ParamReadConfParameter, IsEmptyWithoutItsKeyOrTheFile) {
    for (int i = 0; i < 2; i++) {
        const Outcome outcome = kParam.read(GetParam().name);
        EXPECT_EQ(outcome.text, "");
        EXPECT_EQ(outcome.result, 0);
        remove_conf();
    }
}

INSTANTIATE_TEST_SUITE_P(Rows, ParamReadConfParameter,
                         testing::Values(ConfRow{.name = "pd_armed", .key = "BATTERY_ARMED"},
                                         ConfRow{.name = "sdcard_armed", .key = "SDCARD_ARMED"},
                                         ConfRow{.name = "pd_setting", .key = "BATTERY_LOW"},
                                         ConfRow{.name = "sdcard_setting", .key = "SDCARD_LOW"}),
                         by_name);

struct ResolutionRow {
    const char *name;
    int type;
    const char *text;
};

class ParamReadResolution : public HandlerTest, public testing::WithParamInterface<ResolutionRow> {};

TEST_P(ParamReadResolution, IsTheSelectedProfile) {
    const auto [name, type, text] = GetParam();
    gResolutionType = type;
    const Outcome outcome = kParam.read("high_definition");
    expect_value(outcome, text);
    EXPECT_LOG(outcome.log, kParam.start_log("high_definition") +
                                "get resolution type = " + std::to_string(type) +
                                "\n---platform/Z55/ak_model,line <N>\n" + end_log("high_definition", text));
    EXPECT_EQ(camera.seen(), Texts{});
}

INSTANTIATE_TEST_SUITE_P(Rows, ParamReadResolution,
                         testing::Values(ResolutionRow{.name = "smallest", .type = 1, .text = "1"},
                                         ResolutionRow{.name = "middle", .type = 2, .text = "2"},
                                         ResolutionRow{.name = "largest", .type = 3, .text = "3"},
                                         ResolutionRow{.name = "none selected", .type = 0, .text = ""},
                                         ResolutionRow{.name = "above the largest", .type = 4, .text = ""},
                                         ResolutionRow{.name = "below 0", .type = -1, .text = ""}),
                         by_name);

class ParamReadUndefinedParameter : public HandlerTest, public testing::WithParamInterface<UndefinedRow> {};

TEST_P(ParamReadUndefinedParameter, IsAnError) {
    expect_undefined(kParam, GetParam().text);
    EXPECT_EQ(camera.seen(), Texts{});
}

// The csd names are written but cannot be read back.
INSTANTIATE_TEST_SUITE_P(
    Names, ParamReadUndefinedParameter,
    testing::Values(UndefinedRow{.name = "switch that is only written", .text = "csd_armed"},
                    UndefinedRow{.name = "threshold that is only written", .text = "csd_setting"},
                    UndefinedRow{.name = "capitals", .text = "MD_ARMED"},
                    UndefinedRow{.name = "blank behind it", .text = "md_armed "},
                    UndefinedRow{.name = "cut off", .text = "md_arme"},
                    UndefinedRow{.name = "empty", .text = ""},
                    UndefinedRow{.name = "a status", .text = "Battery"},
                    UndefinedRow{.name = "an upgrade", .text = "doOTA"},
                    UndefinedRow{.name = "an action", .text = "save_param"},
                    UndefinedRow{.name = "another name of the profile", .text = "resolution"}),
    by_name);

TEST_F(ParamRead, ACameraThatCannotBeReachedIsAnError) {
    camera.go_away();
    expect_unreachable(kParam, "md_armed", "CameraSetting?MOTION_DETECTION");
}

TEST_F(ParamRead, AnyStatusBut200CountsAsNoAnswer) {
    camera.reply("/CGI/CameraSetting?AUDIO_DETECTION", {CameraReply{.body = kAudio, .status = 503}});
    const Outcome outcome = kParam.read("sd_armed");
    expect_error(outcome);
    EXPECT_LOG(outcome.errors, std::string("curl failed : ") + curl_easy_strerror(CURLE_OK) +
                                   "  (platform/Z55/ak_model, <N>)\n");
}

TEST_F(ParamRead, AMissingElementIsAnError) {
    camera.reply("/CGI/CameraSetting?TEMPERATURE_ALERT", "<ErrorCode>-3</ErrorCode>");
    const Outcome outcome = kParam.read("td_down");
    expect_error(outcome);
    EXPECT_LOG(outcome.log, kParam.start_log("td_down") + "[GET CameraSetting?TEMPERATURE_ALERT]\n");
    EXPECT_LOG(outcome.errors, "xml_value is null:  (platform/Z55/ak_model, <N>)\n");
}

TEST_F(ParamRead, AnEmptyBodyIsAnError) {
    camera.reply("/CGI/CameraSetting?MOTION_DETECTION", "");
    EXPECT_EQ(kParam.read("md_armed").text, "ERROR");
}

TEST_F(ParamRead, ValuesAreCutAt129Characters) {
    const std::string value(10'000, 'v');
    camera.reply("/CGI/CameraSetting?MOTION_DETECTION", "<SENSITIVITY>" + value + "</SENSITIVITY>");
    set_conf("BATTERY_LOW", value.substr(0, 900));
    for (const char *name : {"md_sensitivity", "pd_setting"}) {
        const Outcome outcome = kParam.read(name);
        EXPECT_EQ(outcome.text, std::string(129, 'v'));
        EXPECT_EQ(outcome.result, 129);
        EXPECT_NE(outcome.log.find(",param_value=" + std::string(129, 'v') + "\n"), std::string::npos);
    }
    const std::string fits(129, 'f');
    set_conf("BATTERY_LOW", fits);
    EXPECT_EQ(kParam.read("pd_setting").text, fits);
}

TEST_F(ParamRead, UnusableInputIsAnErrorAndNoCrash) {
    expect_unusable_input_is_refused(kParam, {"md_armed", "pd_armed", "high_definition", "nothing"});
}

TEST_F(ParamRead, WithoutMemoryForTheBufferIsAFailure) {
    char *value = nullptr;
    const Outcome outcome = outcome_of([&] {
        intercept::refuse_next("calloc");
        return get_device_param("high_definition", &value);
    });
    EXPECT_EQ(outcome.result, 5);
    EXPECT_EQ(value, nullptr);
    EXPECT_NE(outcome.log.find("not enough memory for a value\n"), std::string::npos) << outcome.log;
}

TEST_F(ParamRead, SixteenThreadsGetTheirOwnAnswers) {
    set_conf("BATTERY_LOW", "15");
    expect_own_answers(
        kParam, {{"md_sensitivity", "6"}, {"sd_sensitivity", "2"}, {"td_up", "38"}, {"pd_setting", "15"}}, 5);
    EXPECT_EQ(camera.most_at_once(), 1);
    EXPECT_EQ(camera.requests().size(), 60U);
}

}  // namespace
