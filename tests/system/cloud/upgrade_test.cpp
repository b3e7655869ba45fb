// Firmware upgrades: the request's checks, the walk through the reboot, every way to fail.
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <filesystem>
#include <fstream>

#include "row_names.h"
#include "wire.h"

namespace {

constexpr char kReserve[] = "/tmp/fuse_d/.ota.tmp";
constexpr char kMarker[] = "/tmp/working/ota.marker";

struct Refusal {
    const char *name;
    json statuses;
    bool reserve;
    const char *text;
};

void PrintTo(const Refusal &row, std::ostream *out) {
    *out << row.name;
}

const Refusal kRefusals[] = {
    {.name = "NoCard",
     .statuses = {{"SD", "0"}},
     .reserve = true,
     .text = "check SD insert , SD card Space less than 100MB \n "},
    {.name = "NoAdaptor",
     .statuses = {{"Adaptor", "0"}},
     .reserve = true,
     .text = "check Adaptor, No Adaptor \n "},
    {.name = "UnknownCard",
     .statuses = {{"SD", "2"}},
     .reserve = true,
     .text = "iFwEvent=1, iSpace=28000, iAdaptor=1\n"},
    {.name = "Downloading",
     .statuses = {{"FwUpgradeStatus", "Downloading"}},
     .reserve = true,
     .text = "Firmware Upgrade Downloading...\n"},
    {.name = "StatusMissing",
     .statuses = {{"FwUpgradeStatus", nullptr}},
     .reserve = true,
     .text = "Firmware Upgrade ERROR...\n"},
    {.name = "NoReserve",
     .statuses = json::object(),
     .reserve = false,
     .text = "Error:  file not found! check the directory!!\ndelete file failure, OTA failure\n"},
};

class UpgradeRefusal : public testing::TestWithParam<Refusal> {};

void announce(const Desk &desk) {
    desk.camera("PATCH", "/status",
                {{"NewFirmwareEvent", "1"},
                 {"NewFirmwareVersion", "1.0.4"},
                 {"Space", "28000"},
                 {"Adaptor", "1"},
                 {"SD", "1"}});
}

int upgrade(const Desk &desk) {
    return desk.call("set_device_param", {"doOTA", "1"})["result"];
}

DeskOptions upgrading(const char *outcome, double speed = 20) {
    DeskOptions options;
    options.speed = speed;
    options.conf = {{"OTA_POLLING_PERIOD", "2"}, {"SDCARD_ARMED", "0"}};
    options.camera_config = {{"upgrade", {{"steps", 4}, {"step_ms", 12000}, {"outcome", outcome}}}};
    return options;
}

// The camera has restarted into what it now runs, and takes the device with it.
void reboot(Desk &desk) {
    const int before = desk.reboots();
    const size_t from = desk.log().size();
    try {
        desk.call("rebootOperation", json::array());
    } catch (const std::exception &) {
        // The connection goes with the process.
    }
    wait_until("the device has rebooted", [&] { return desk.reboots() == before + 1; });
    desk.wait_for_log("vq_ipca_init return\n", from);
}

}  // namespace

TEST_P(UpgradeRefusal, SaysWhyAndAsksForNothing) {
    DeskOptions options;
    options.reserve = GetParam().reserve;
    Desk desk(options);
    announce(desk);
    if (!GetParam().reserve) std::filesystem::remove(kReserve);
    desk.camera("PATCH", "/status", GetParam().statuses);
    const long since = desk.last_request();
    const size_t from = desk.log().size();
    EXPECT_EQ(upgrade(desk), -1);
    EXPECT_GT(desk.count_in_log(GetParam().text, from), 0);
    EXPECT_EQ(desk.requests("RemoteControl", since).size(), 0u);
    EXPECT_EQ(desk.sdk("GET", "/variable?name=ota_enable")["value"], 0);
}

INSTANTIATE_TEST_SUITE_P(Upgrade, UpgradeRefusal, testing::ValuesIn(kRefusals), by_name);

TEST(Upgrade, AnUnansweredCheckIsTriedSixTimes) {
    Desk desk;
    announce(desk);
    desk.fault(
        {{"endpoint", "CameraStatus"}, {"match", "NewFirmwareEvent"}, {"kind", "close"}, {"count", 5}});
    desk.fault({{"endpoint", "CameraStatus"}, {"match", "?Adaptor"}, {"kind", "http_status"}, {"count", 6}});
    const long since = desk.last_request();
    EXPECT_EQ(upgrade(desk), -1);
    const std::vector<std::string> sent = commands(desk, since);
    EXPECT_EQ(std::count(sent.begin(), sent.end(), get("CameraStatus?NewFirmwareEvent")), 6);
    EXPECT_EQ(std::count(sent.begin(), sent.end(), get("CameraStatus?Adaptor")), 6);
    EXPECT_EQ(sent.size(), 13u);
}

TEST(Upgrade, ThatTheCameraDidNotTakeLeavesTheReserveForTheNext) {
    Desk desk;
    announce(desk);
    desk.fault({{"endpoint", "RemoteControl"}, {"kind", "close"}, {"count", 1}});
    EXPECT_EQ(upgrade(desk), -1);
    EXPECT_EQ(std::filesystem::file_size(kReserve), 102'400'000u);
    EXPECT_EQ(upgrade(desk), 0);
    EXPECT_FALSE(std::filesystem::exists(kReserve));
}

TEST(Upgrade, WithoutACardTheReserveIsNotWrittenIntoMemory) {
    DeskOptions options;
    options.wait = DeskOptions::not_started;
    Desk desk(options);
    ASSERT_EQ(umount2("/tmp/fuse_d", MNT_DETACH), 0);
    desk.start_agent();
    desk.wait_for_log("dummyFileCreator function \ncreate start\ncreate file end\ncreate file failure\n");
    desk.wait_for_log("vq_ipca_init return\n");
    EXPECT_FALSE(std::filesystem::exists(kReserve));
}

TEST(Upgrade, IsFollowedThroughItsRebootIntoTheNewFirmware) {
    Desk desk(upgrading("success"));
    announce(desk);
    long since = desk.last_request();
    const size_t from = desk.log().size();
    EXPECT_EQ(upgrade(desk), 0);
    const auto requests = desk.requests("RemoteControl", since);
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0]["body"], post_body("<RemoteControl><Action>UPGRADE_FW</Action></RemoteControl>"));
    EXPECT_FALSE(std::filesystem::exists(kReserve));
    desk.wait_for_logs(
        {"delete file success\n", "curl_Post OK, starting OTA monitoring\nstart_OTA_monitoring called\n",
         "(OTA_monitor) OTA_monitor starts.\n", "(OTA_monitor) start downloading\n",
         "Created OTA Temp file:\"/tmp/working/ota.marker\\n", "(OTA_monitor) downloading progress = ",
         "(OTA_monitor) Download finished!!\n(OTA_monitor) SOAP to AA!\nsoap_OTA_upgrade_start called\n"},
        from);
    EXPECT_EQ(file_text(kMarker), "1.0.3");
    EXPECT_EQ(desk.alarms(), std::vector<int>{18});
    EXPECT_EQ(desk.sdk("GET", "/variable?name=ota_enable")["value"], 1);
    wait_until("the camera runs the new firmware",
               [&] { return desk.camera_state()["config"]["fwver"] == "1.0.4"; });
    const size_t rebooting = desk.log().size();
    reboot(desk);
    desk.wait_for_logs({"ota temp file(/tmp/working/ota.marker) existed\n",
                        "fwver_curr = \"1.0.4\"\nfwver_last = \"1.0.3\"\n", "soap_OTA_succeeded called\n",
                        "is deleted successfully.\n", "no ota temp file\n"},
                       rebooting);
    EXPECT_EQ(desk.alarms(), std::vector<int>{19});
    EXPECT_FALSE(std::filesystem::exists(kMarker));
    EXPECT_TRUE(std::filesystem::exists(kReserve)) << "the reserve for the next one";
}

// A dd that the test lets go on, in place of the device's own.
void slow_dd(const char *released_by) {
    std::ofstream("/usr/bin/dd.slow")
        << "#!/bin/sh\n: >" << kReserve << "\nuntil [ -e " << released_by << " ]; do sleep 0.05; done\n";
    std::filesystem::permissions("/usr/bin/dd.slow", std::filesystem::perms(0755));
    std::filesystem::rename("/usr/bin/dd.slow", "/usr/bin/dd");
}

TEST(Upgrade, ThatIsAskedForWhileTheStartChecksRunIsSettledAfterItsOwnReboot) {
    constexpr char kRelease[] = "/tmp/go_on";
    DeskOptions options = upgrading("success");
    options.reserve = false;
    options.wait = DeskOptions::started;
    slow_dd(kRelease);
    Desk desk(options);
    announce(desk);
    size_t at = desk.wait_for_logs({"no ota temp file\n", "create start\n"});
    EXPECT_EQ(upgrade(desk), 0);
    at = desk.wait_for_log("Created OTA Temp file:", at);
    std::ofstream(kRelease) << "";
    desk.wait_for_logs({"create file failure\n", "no ota temp file\n", "vq_ipca_init return\n"}, at);
    EXPECT_EQ(file_text(kMarker), "1.0.3");
    EXPECT_FALSE(std::filesystem::exists(kReserve)) << "its space is the download's";
    wait_until("the download is over", [&] { return desk.alarms() == std::vector<int>{18}; });
    wait_until("the camera runs the new firmware",
               [&] { return desk.camera_state()["config"]["fwver"] == "1.0.4"; });
    reboot(desk);
    EXPECT_EQ(desk.alarms(), std::vector<int>{19});
}

TEST(Upgrade, ThatDoesNotTakeIsReportedAfterTheReboot) {
    Desk desk(upgrading("fail_upgrade"));
    announce(desk);
    EXPECT_EQ(upgrade(desk), 0);
    wait_until("the download is over", [&] { return desk.alarms() == std::vector<int>{18}; });
    wait_until("the camera has restarted", [&] { return desk.camera_state()["restarts"] == 1; });
    reboot(desk);
    EXPECT_EQ(desk.alarms(), std::vector<int>{20});
    EXPECT_FALSE(std::filesystem::exists(kMarker));
}

TEST(Upgrade, AFailedDownloadIsReportedAndItsMonitorLeaves) {
    Desk desk(upgrading("fail_download"));
    announce(desk);
    const AgentSize before = agent_size(desk);
    EXPECT_EQ(upgrade(desk), 0);
    desk.wait_for_log(
        "PROGRESS == 0, FAIL!\n\n\nOTA FAILED!!!!!!!\n SOAP!\nsoap_OTA_download_failed called\n");
    desk.wait_for_log("(OTA_monitor) OTA Failed. Leaving...\n");
    EXPECT_EQ(desk.alarms(), std::vector<int>{17});
    EXPECT_EQ(desk.sdk("GET", "/variable?name=ota_enable")["value"], 1) << "the watchdog stays off";
    expect_same_size(desk, before);
}
