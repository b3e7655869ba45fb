// The clock: set from NTP, told to the camera eight hours on, and the reboot after a late first success.
#include <gtest/gtest.h>

#include <ctime>

#include "wire.h"

namespace {

json told(const Desk &desk) {
    return desk.camera_state()["time"];
}

time_t told_seconds(const Desk &desk) {
    const json time = told(desk);
    const auto number = [&](const char *name) { return std::stoi(time[name].get<std::string>()); };
    tm parts{};
    parts.tm_year = number("Year") - 1900;
    parts.tm_mon = number("Month") - 1;
    parts.tm_mday = number("Day");
    parts.tm_hour = number("Hour");
    parts.tm_min = number("Minute");
    parts.tm_sec = number("Second");
    return timegm(&parts);
}

constexpr time_t kEightHours = 28800;

}  // namespace

TEST(Clock, ALateFirstSuccessRebootsTheDeviceOnce) {
    DeskOptions options;
    options.wait = DeskOptions::not_started;
    options.conf = {{"POOL_NTP_PERIOD_SEC", "20"}};
    Desk desk(options);
    desk.set_tool("ntpdate", "exit", "1");
    desk.start_agent();
    desk.wait_for_logs({"fail to NTP calibration, system() return: 256\n ", "vq_ipca_init return\n"});
    EXPECT_EQ(desk.sdk("GET", "/variable?name=NTP_FAIL")["value"], -1);
    EXPECT_EQ(told(desk), nullptr) << "the camera is left alone";
    const size_t failed = desk.log().size();
    desk.wait_for_log("fail to NTP calibration", failed);
    EXPECT_EQ(desk.tool_calls("qmx_reboot").size(), 0u);
    desk.set_tool("ntpdate", "exit", "0");
    desk.wait_for_logs({"(NTP) curl finished succeeded\n", " ***** reboot operation*****\n",
                        "Try log VeloAgent init time...........\n", "*** initial perform_NTP() OK! ***\n",
                        "vq_ipca_init return\n"},
                       failed);
    EXPECT_EQ(desk.reboots(), 1);
    EXPECT_EQ(desk.tool_calls("qmx_reboot").at(0)["args"], json{"reboot"});
    const size_t restarted = desk.log().size();
    desk.wait_for_log("(NTP) curl finished succeeded\n", restarted);
    EXPECT_EQ(desk.reboots(), 1) << "with the clock set at the start a success reboots nothing";
}

TEST(Clock, AFailureOnThePeriodChangesNothing) {
    DeskOptions options;
    options.conf = {{"POOL_NTP_PERIOD_SEC", "5"}};
    Desk desk(options);
    desk.fault({{"endpoint", "CameraSetup"}, {"match", "<Time>"}, {"kind", "http_status"}, {"status", 503}});
    const size_t from = desk.log().size();
    desk.wait_for_logs({"status != 200, status code = 503  (platform/Z55/ak_model: ", "NTP_poll polling\n",
                        "status != 200, status code = 503"},
                       from);
    desk.clear_faults();
    desk.wait_for_log("(NTP) curl finished succeeded\n", desk.log().size());
    EXPECT_EQ(desk.reboots(), 0);
    EXPECT_EQ(desk.sdk("GET", "/variable?name=NTP_FAIL")["value"], 0);
}

// The camera is told the wall clock plus eight hours, across midnight, months, years and leap days.
TEST(Clock, TheCameraIsTold) {
    DeskOptions options;
    options.speed = 2;
    options.conf = {{"POOL_NTP_PERIOD_SEC", "1"}};
    Desk desk(options);
    struct Moment {
        int year, month, day, hour;  // UTC
        const char *told[3];         // year, month, day eight hours on
    };
    const Moment moments[] = {
        {2026, 5, 4, 0, {"2026", "5", "4"}},    {2026, 5, 4, 20, {"2026", "5", "5"}},
        {2026, 4, 30, 17, {"2026", "5", "1"}},  {2027, 12, 31, 23, {"2028", "1", "1"}},
        {2028, 2, 28, 16, {"2028", "2", "29"}}, {2028, 2, 29, 20, {"2028", "3", "1"}},
        {2027, 2, 28, 20, {"2027", "3", "1"}},  {2038, 1, 19, 3, {"2038", "1", "19"}},
        {2045, 12, 31, 16, {"2046", "1", "1"}},
    };
    for (const Moment &moment : moments) {
        tm wanted{};
        wanted.tm_year = moment.year - 1900;
        wanted.tm_mon = moment.month - 1;
        wanted.tm_mday = moment.day;
        wanted.tm_hour = moment.hour;
        wanted.tm_min = 10;
        const time_t target = timegm(&wanted);
        desk.step_wall_clock(static_cast<double>(target - (told_seconds(desk) - kEightHours)));
        wait_until("the camera is told",
                   [&] { return std::labs(told_seconds(desk) - kEightHours - target) < 900; });
        const json time = told(desk);
        EXPECT_EQ(time["Year"], moment.told[0]);
        EXPECT_EQ(time["Month"], moment.told[1]);
        EXPECT_EQ(time["Day"], moment.told[2]);
        EXPECT_EQ(time["Hour"], std::to_string((moment.hour + 8) % 24));
    }
    desk.wait_for_cycles(2);
}

TEST(Clock, WhatItStartsHasNoBlockedSignals) {
    Desk desk;
    desk.call("notify_Z55_connection_status", {1});
    for (const char *tool : {"ntpdate", "ifconfig", "netstat", "ping"})
        EXPECT_EQ(std::stoul(desk.tool_calls(tool).at(0)["SigBlk"].get<std::string>(), nullptr, 16), 0u)
            << tool;
}
