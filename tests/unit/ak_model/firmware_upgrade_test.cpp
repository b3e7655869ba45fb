#include "ak_model/firmware_upgrade.h"

#include <ostream>

#include "ak_model/upgrade_marker.h"
#include "upgrade_fixture.h"

namespace {

class Upgrade : public UpgradeTest {};

// --- The camera's upgrade switch

TEST_F(Upgrade, SwitchIsPutOn) {
    camera.reply("/CGI/CameraSetup", "ok");
    EXPECT_EQ(marked_log(output_of([] { EXPECT_EQ(otaON(), 0); })), "[POST CameraSetup]\notaON res = 0 \n");
    EXPECT_EQ(camera.seen(),
              Texts{"POST /CGI/CameraSetup Session=12345\n"
                    "HTTP/1.1\nContent-Length: 67\nContent-Type: application/x-www-form-urlencoded\n\r\n\r\n"
                    "<CameraSetup><Item><FW_UPGRADE>ON</FW_UPGRADE></Item></CameraSetup>"});
}

TEST_F(Upgrade, SwitchHasSixTries) {
    std::vector<CameraReply> replies(5, CameraReply{.hang_up = true});
    replies.push_back({.body = "ok"});
    camera.reply("/CGI/CameraSetup", replies);
    std::string expected;
    for (int i = 0; i < 5; i++) expected += "[POST CameraSetup]\n[failed]\n";
    EXPECT_EQ(marked_log(output_of([] { EXPECT_EQ(otaON(), 0); })),
              expected + "[POST CameraSetup]\notaON res = 0 \n");
    EXPECT_TRUE(fake_os::pauses().empty());
}

TEST_F(Upgrade, SwitchGivesUpWithTheLastResult) {
    camera.reply("/CGI/CameraSetup", std::vector<CameraReply>{{.hang_up = true}});
    std::string expected;
    for (int i = 0; i < 6; i++) expected += "[POST CameraSetup]\n[failed]\n";
    EXPECT_EQ(marked_log(output_of([] { EXPECT_EQ(otaON(), 52); })),
              expected + "otaON res = 52 \notaON FAILED!\n");
}

// --- The outcome of an upgrade that ended with a reboot

struct OutcomeRow {
    const char *name;
    const char *version;  // of the running firmware, null for none
    const char *marker;
    const char *log;  // between the marker's line and the notice
    bool succeeded;
};

void PrintTo(const OutcomeRow &row, std::ostream *out) {
    *out << row.name;
}

class Outcome : public Upgrade, public testing::WithParamInterface<OutcomeRow> {};

TEST_P(Outcome, IsToldToTheCloud) {
    const OutcomeRow &row = GetParam();
    if (row.version != nullptr) write_file(kFirmwareVersion, row.version);
    write_file(kMarker, row.marker);
    const int status = row.succeeded ? 19 : 20;
    EXPECT_LOG(output_of(checkOtaTmpFile),
               std::string("checkOtaTmpFile called\n"
                           "ota temp file(/tmp/ota.marker) existed\n") +
                   row.log + (row.succeeded ? "soap_OTA_succeeded called\n" : "soap_OTA_failed called\n") +
                   log_of_alarm("(OTA)", status) +
                   "OTA Temp file \"/tmp/ota.marker\" file is deleted successfully.\n");
    EXPECT_EQ(alarm_statuses(), std::vector{status});
    EXPECT_FALSE(file_exists(kMarker));
}

INSTANTIATE_TEST_SUITE_P(
    Markers, Outcome,
    testing::Values(
        OutcomeRow{
            .name = "NewFirmwareRuns",
            .version = "1.0.4",
            .marker = "1.0.3",
            .log = "Retrieved line of length 5 :\n1.0.4fwver_curr = \"1.0.4\"\nfwver_last = \"1.0.3\"\n",
            .succeeded = true},
        OutcomeRow{
            .name = "OldFirmwareRuns",
            .version = "1.0.3",
            .marker = "1.0.3",
            .log = "Retrieved line of length 5 :\n1.0.3fwver_curr = \"1.0.3\"\nfwver_last = \"1.0.3\"\n",
            .succeeded = false},
        OutcomeRow{
            .name = "LineEndsDoNotCount",
            .version = "1.0.3\r\n",
            .marker = "1.0.3\nmore\n",
            .log = "Retrieved line of length 7 :\n1.0.3\r\nfwver_curr = \"1.0.3\"\nfwver_last = \"1.0.3\"\n",
            .succeeded = false},
        OutcomeRow{.name = "OnlyTheCurrentVersionsLengthCounts",
                   .version = "1.0",
                   .marker = "1.0.3",
                   .log = "Retrieved line of length 3 :\n1.0fwver_curr = \"1.0\"\nfwver_last = \"1.0.3\"\n",
                   .succeeded = false},
        OutcomeRow{
            .name = "LongerCurrentVersion",
            .version = "1.0.33",
            .marker = "1.0.3",
            .log = "Retrieved line of length 6 :\n1.0.33fwver_curr = \"1.0.33\"\nfwver_last = \"1.0.3\"\n",
            .succeeded = true},
        OutcomeRow{.name = "EmptyMarker",
                   .version = "1.0.4",
                   .marker = "",
                   .log = "Retrieved line of length 5 :\n1.0.4fwver_curr = \"1.0.4\"\ngetline failed\n",
                   .succeeded = false},
        OutcomeRow{.name = "EmptyLine",
                   .version = "1.0.4",
                   .marker = "\n1.0.3\n",
                   .log = "Retrieved line of length 5 :\n1.0.4fwver_curr = \"1.0.4\"\nfwver_last is NULL\n",
                   .succeeded = false},
        OutcomeRow{.name = "UnknownVersion",
                   .version = nullptr,
                   .marker = "1.0.3",
                   .log = "fwver_curr is NULL\n",
                   .succeeded = false},
        OutcomeRow{.name = "EmptyVersion",
                   .version = "",
                   .marker = "1.0.3",
                   .log = "fwver_curr is NULL\n",
                   .succeeded = false},
        OutcomeRow{.name = "NothingKnown",
                   .version = nullptr,
                   .marker = "\n",
                   .log = "fwver_curr is NULL\nfwver_last is NULL\n",
                   .succeeded = false},
        OutcomeRow{.name = "UnknownVersionAndEmptyMarker",
                   .version = nullptr,
                   .marker = "",
                   .log = "getline failed\n",
                   .succeeded = false}),
    by_name);

TEST_F(Upgrade, WithoutAMarkerThereIsNoOutcome) {
    EXPECT_EQ(output_of(checkOtaTmpFile), "checkOtaTmpFile called\nno ota temp file\n");
    set_conf("OTA_TMP_FILE", "");
    EXPECT_EQ(output_of(checkOtaTmpFile), "checkOtaTmpFile called\nno ota temp file\n");
    EXPECT_TRUE(fake_vendor::alarms().empty());
}

TEST_F(Upgrade, MarkerThatCanNeitherBeReadNorDeleted) {
    mkdir(kMarker, 0755);
    write_file(kFirmwareVersion, "1");
    std::string log;
    const std::string errors = errors_of([&] { log = output_of(checkOtaTmpFile); });
    EXPECT_EQ(log,
              "checkOtaTmpFile called\n"
              "ota temp file(/tmp/ota.marker) existed\n"
              "Retrieved line of length 1 :\n1fwver_curr = \"1\"\n"
              "getline failed\n"
              "soap_OTA_failed called\n" +
                  log_of_alarm("(OTA)", 20) + "Unable to delete OTA Temp File file:\"/tmp/ota.marker\".\n");
    EXPECT_EQ(errors, "Error: Is a directory\n");
    rmdir(kMarker);
}

TEST_F(Upgrade, LongestVersions) {
    const std::string version(10000, '7');
    write_file(kFirmwareVersion, version);
    write_file(kMarker, version + "\n");
    output_of(checkOtaTmpFile);
    EXPECT_EQ(alarm_statuses(), std::vector{20});
    EXPECT_EQ(running_firmware_version(), version);
}

}  // namespace
