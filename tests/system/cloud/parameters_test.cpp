// Every parameter and status over the wire: requests, results and texts, a row each.
#include <gtest/gtest.h>

#include <thread>

#include "wire.h"

namespace {

using Sent = std::vector<std::string>;

std::string motion(const std::string &enable, const std::string &sensitivity) {
    return post("CameraSetup", "<CameraSetup><MOTION_DETECTION><ENABLE>" + enable + "</ENABLE><SENSITIVITY>" +
                                   sensitivity + "</SENSITIVITY></MOTION_DETECTION></CameraSetup>");
}

std::string sound(const std::string &enable, const std::string &sensitivity) {
    return post("CameraSetup", "<CameraSetup><AUDIO_DETECTION><ENABLE>" + enable + "</ENABLE><SENSITIVITY>" +
                                   sensitivity + "</SENSITIVITY></AUDIO_DETECTION></CameraSetup>");
}

std::string temperature(const std::string &enable, const std::string &max, const std::string &min) {
    return post("CameraSetup", "<CameraSetup><TEMPERATURE_ALERT><ENABLE>" + enable + "</ENABLE><MAX>" + max +
                                   "</MAX><MIN>" + min + "</MIN></TEMPERATURE_ALERT></CameraSetup>");
}

const std::string kMotion = get("CameraSetting?MOTION_DETECTION");
const std::string kSound = get("CameraSetting?AUDIO_DETECTION");
const std::string kTemperature = get("CameraSetting?TEMPERATURE_ALERT");
const std::string kEmpty = post("CameraSetup", "");

// A write, what it sends, and what the parameter then reads as.
struct Write {
    const char *name, *value;
    int result;
    Sent sent;
    const char *reads;
    const char *text;
};

// The rows build on each other: the camera starts with motion OFF/4, sound OFF/6, temperature OFF/30/10.
const Write kWrites[] = {
    {"md_armed", "1", 0, {kMotion, motion("ON", "4")}, "1", "before POST , cmdLength =111\n"},
    {"md_armed", "0", 0, {kMotion, motion("OFF", "4")}, "0", ""},
    {"md_armed", "2", 0, {kEmpty}, "0", "param error\nbefore POST , cmdLength =0\ncommandInstr = \n"},
    {"md_armed", "on", 0, {kMotion, motion("OFF", "4")}, "0", ""},
    {"md_sensitivity", "7", 0, {kMotion, motion("OFF", "3")}, "3", ""},
    {"md_sensitivity", "-3", 0, {kMotion, motion("OFF", "-1")}, "-1", ""},
    {"sd_armed", "1", 0, {kSound, sound("ON", "6")}, "1", ""},
    {"sd_armed", "5", 0, {kEmpty}, "1", ""},
    {"sd_armed", "0", 0, {kSound, sound("OFF", "6")}, "0", ""},
    {"sd_sensitivity", "9", 0, {kSound, sound("OFF", "4")}, "4", ""},
    {"td_armed", "1", 0, {kTemperature, temperature("ON", "30", "10")}, "1", ""},
    {"td_armed", "-1", 0, {kEmpty}, "1", ""},
    {"td_up", "38", 0, {kTemperature, temperature("ON", "38", "10")}, "38", ""},
    {"td_down", "-5", 0, {kTemperature, temperature("ON", "38", "-5")}, "-5", ""},
    {"td_armed", "0", 0, {kTemperature, temperature("OFF", "38", "-5")}, "0", ""},
    {"pd_armed", "1", 0, {}, "1", "setting battery_armed on, ---platform/Z55/ak_model,line "},
    {"pd_armed", "0", 0, {}, "0", "setting battery_armed off, ---platform/Z55/ak_model,line "},
    {"pd_armed", "2", 0, {kEmpty}, "0", ""},
    {"csd_armed", "1", 0, {}, nullptr, "setting nimb_armed on, ---platform/Z55/ak_model,line "},
    {"csd_armed", "0", 0, {}, nullptr, "setting nimb_armed off, ---platform/Z55/ak_model,line "},
    {"sdcard_armed", "0", 0, {}, "0", "setting sdcard_armed off, ---platform/Z55/ak_model,line "},
    {"sdcard_armed", "1", 0, {}, "1", "setting sdcard_armed on, ---platform/Z55/ak_model,line "},
    {"pd_setting",
     "15",
     0,
     {},
     "15",
     "before setting battery , param_value = 15, ---platform/Z55/ak_model,line "},
    {"csd_setting",
     "16",
     0,
     {},
     nullptr,
     "After setting nimb , param_value = 16, ---platform/Z55/ak_model,line "},
    {"sdcard_setting",
     "17",
     0,
     {},
     "17",
     "After setting sdcard , param_value = 17, ---platform/Z55/ak_model,line "},
    {"reboot", "1", 0, {}, nullptr, ""},
    {"save_param", "1", 0, {}, nullptr, ""},
    {"resolution", "1", -1, {}, nullptr, "Not implement yet\n"},
    {"manual_record", "2", 0, {}, nullptr, ""},
    {"Csdnimbo",
     "1",
     0,
     {},
     nullptr,
     "get nimbo token (actual work in NimboUpLoad function) , ---platform/Z55/ak_model,line "},
    {"Csdnimbo", "0", 0, {}, nullptr, "after remove nimbo token , ---platform/Z55/ak_model,line "},
    {"Csdnimbo", "2", 0, {kEmpty}, nullptr, ""},
    {"nonsense", "1", -1, {}, nullptr, "set_device_param This parameter undefined\n"},
};

void prepare_settings(const Desk &desk) {
    desk.camera("PATCH", "/settings/MOTION_DETECTION", {{"ENABLE", "OFF"}, {"SENSITIVITY", "4"}});
    desk.camera("PATCH", "/settings/AUDIO_DETECTION", {{"ENABLE", "OFF"}, {"SENSITIVITY", "6"}});
    desk.camera("PATCH", "/settings/TEMPERATURE_ALERT", {{"ENABLE", "OFF"}, {"MAX", "30"}, {"MIN", "10"}});
}

json value_reply(const std::string &value) {
    return {{"result", value.size()}, {"value", value}};
}

const json kError = {{"result", 5}, {"value", "ERROR"}};

}  // namespace

TEST(Parameters, EveryRowIsWrittenToTheByteAndReadBack) {
    Desk desk;
    prepare_settings(desk);
    for (const Write &row : kWrites) {
        SCOPED_TRACE(std::string(row.name) + " = " + row.value);
        const long since = desk.last_request();
        const size_t from = desk.log().size();
        EXPECT_EQ(desk.call("set_device_param", {row.name, row.value})["result"], row.result);
        EXPECT_EQ(commands(desk, since), row.sent);
        EXPECT_GT(desk.count_in_log(std::string("param_name=") + row.name + " param_value=" + row.value +
                                        " valuelen=" + std::to_string(std::string(row.value).size()) + "\n",
                                    from),
                  0);
        EXPECT_NE(desk.log().find(row.text, from), std::string::npos) << row.text;
        EXPECT_EQ(desk.call("get_device_param", {row.name}),
                  row.reads != nullptr ? value_reply(row.reads) : kError);
    }
    EXPECT_EQ(desk.conf_value("NIMB_ARMED"), "0");
    EXPECT_EQ(desk.conf_value("NIMB_LOW"), "16");
    EXPECT_EQ(desk.sdk("GET", "/token")["token"], nullptr) << "Csdnimbo 0 removed it";
}

TEST(Parameters, AnUnansweredOrIncompleteGroupStaysAsItIs) {
    Desk desk;
    prepare_settings(desk);
    desk.fault({{"endpoint", "CameraSetting"}, {"kind", "http_status"}, {"status", 500}, {"count", 2}});
    long since = desk.last_request();
    EXPECT_EQ(desk.call("set_device_param", {"md_armed", "1"})["result"], -1);
    EXPECT_EQ(desk.call("get_device_param", {"md_armed"}), kError);
    EXPECT_EQ(commands(desk, since), (Sent{kMotion, kMotion}));
    EXPECT_NE(desk.errors().find("curl failed : No error  (platform/Z55/ak_model, "), std::string::npos);

    desk.camera("PATCH", "/settings/TEMPERATURE_ALERT", {{"MIN", nullptr}});
    since = desk.last_request();
    EXPECT_EQ(desk.call("set_device_param", {"td_up", "20"})["result"], 5);
    EXPECT_EQ(desk.call("get_device_param", {"td_down"}), kError);
    EXPECT_EQ(commands(desk, since), (Sent{kTemperature, kTemperature}));
    EXPECT_NE(desk.errors().find("local_response is null:  (platform/Z55/ak_model, "), std::string::npos);
    EXPECT_NE(desk.errors().find("xml_value is null:  (platform/Z55/ak_model, "), std::string::npos);

    desk.fault({{"endpoint", "CameraSetup"}, {"kind", "reset"}, {"count", 1}});
    EXPECT_EQ(desk.call("set_device_param", {"sd_armed", "1"})["result"], -1);
}

TEST(Parameters, ValuesThatAreTooLongAreCut) {
    Desk desk;
    const std::string text(200, 'v');
    desk.camera("PATCH", "/settings/MOTION_DETECTION", {{"ENABLE", text}});
    desk.set_status("LullabyMode", text);
    EXPECT_EQ(desk.call("get_device_param", {"md_armed"}), value_reply(text.substr(0, 129)));
    EXPECT_EQ(desk.call("get_device_status", {"LullabyMode"}), value_reply(text.substr(0, 129)));
}

TEST(Parameters, NullAndEndlessTextsAreRefusedNotSuffered) {
    Desk desk;
    const json endless = {{"repeat", "x"}, {"times", 10000}};
    for (const json &name : {json(nullptr), json(""), endless}) {
        EXPECT_EQ(desk.call("get_device_param", json::array({name})), kError);
        EXPECT_EQ(desk.call("get_device_status", json::array({name})), kError);
        EXPECT_EQ(desk.call("set_device_param", json::array({name, "1"}))["result"], -1);
    }
    EXPECT_EQ(desk.call("set_device_param", {"md_armed", nullptr, 0})["result"], -1);
    EXPECT_EQ(desk.call("set_device_param", {"pd_setting", endless})["result"], 0);
    EXPECT_EQ(desk.call("get_device_param", {"pd_setting"}), value_reply(std::string(129, 'x')));
    EXPECT_EQ(desk.call("set_device_param", {"pd_setting", "7\nhostIP=evil"})["result"], 0);
    EXPECT_EQ(desk.call("get_device_param", {"pd_setting"}), value_reply("7"));
    EXPECT_EQ(desk.conf_value("hostIP"), "127.0.0.1:" + std::to_string(desk.camera_port()));
}

TEST(Statuses, EveryRowAsksForItsKeyAndPassesTheValueOn) {
    Desk desk;
    const std::vector<std::array<const char *, 3>> rows = {
        {"Battery", "Battery", "77"},
        {"Adapt", "Adaptor", "1"},
        {"firmware_newver", "NewFirmwareVersion", "2.0.1"},
        {"Sdcard", "SD", "1"},
        {"Upgrade_SW_status", "FwUpgradeStatus", "Idle"},
        {"Upgrade_SW_process", "FwDownloadProgress", "0"},
        {"Temp_now_status", "Temperature", "-12"},
        {"LullabyPlay", "LullabyPlay", "ON"},
        {"LullabySong", "LullabySong", "3"},
        {"LullabyTime", "LullabyTime", "120"},
        {"LullabyPlayingTime", "LullabyPlayingTime", "17"},
        {"LullabyMode", "LullabyMode", "RANDOM"},
        {"LullabyVolume", "LullabyVolume", "9"},
        {"Nightlight", "Nightlight", "2"},
        {"Recording", "Recording", "0"},
    };
    for (const auto &[name, key, value] : rows) {
        SCOPED_TRACE(name);
        desk.set_status(key, value);
        const long since = desk.last_request();
        EXPECT_EQ(desk.call("get_device_status", {name}), value_reply(value));
        EXPECT_EQ(commands(desk, since), Sent{get(std::string("CameraStatus?") + key)});
    }
    desk.camera("PATCH", "/status", {{"Battery", nullptr}});
    EXPECT_EQ(desk.call("get_device_status", {"Battery"}), kError);
    EXPECT_EQ(desk.call("get_device_status", {"battery"}), kError);
}

TEST(Statuses, CardFirmwareAndCapabilityNeedNoCamera) {
    Desk desk;
    const long since = desk.last_request();
    EXPECT_EQ(desk.call("get_device_status", {"resolution_capability"}), value_reply("788480"));
    EXPECT_EQ(desk.call("get_device_status", {"Sdsize"}), value_reply("512"));
    const json quota = desk.call("get_device_status", {"sdcardquota"});
    EXPECT_GT(std::stoi(quota["value"].get<std::string>()), 400);
    EXPECT_EQ(desk.call("get_device_status", {"firmware_ver"}), value_reply("1.0.3"));
    EXPECT_EQ(commands(desk, since), Sent{});
}

TEST(Parameters, SeveralWritersOfOneGroupAllLeaveTheirMark) {
    Desk desk;
    prepare_settings(desk);
    for (int i = 1; i <= 5; i++) {
        desk.camera("PATCH", "/settings/TEMPERATURE_ALERT", {{"ENABLE", "OFF"}, {"MAX", "0"}, {"MIN", "0"}});
        const std::string number = std::to_string(i);
        const std::vector<json> writes = {{"td_armed", "1"}, {"td_up", "4" + number}, {"td_down", number}};
        std::vector<std::thread> writers;
        for (const json &write : writes)
            writers.emplace_back(
                [&desk, write] { EXPECT_EQ(desk.call("set_device_param", write)["result"], 0); });
        for (std::thread &writer : writers) writer.join();
        EXPECT_EQ(desk.camera_state()["settings"]["TEMPERATURE_ALERT"],
                  (json{{"ENABLE", "ON"}, {"MAX", "4" + number}, {"MIN", number}}));
    }
}

TEST(Parameters, AReaderDoesNotWaitForAWriterOfItsGroup) {
    Desk desk;
    prepare_settings(desk);
    // The writer has read the group and is held in its POST; the queue itself is busy then, the read is next.
    desk.fault({{"endpoint", "CameraSetup"}, {"kind", "delay"}, {"ms", 300}, {"count", 1}});
    std::thread writer([&] { desk.call("set_device_param", {"md_armed", "1"}); });
    const json read = desk.call("get_device_param", {"md_sensitivity"});
    writer.join();
    EXPECT_EQ(read, value_reply("4"));
}
