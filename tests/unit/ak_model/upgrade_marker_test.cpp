// The marker between the monitor that writes it and the start checks that settle it.
#include "ak_model/upgrade_marker.h"

#include <sys/mount.h>

#include <atomic>
#include <filesystem>
#include <ostream>
#include <thread>

#include "ak_model/firmware_upgrade.h"
#include "intercept.h"
#include "upgrade_fixture.h"

namespace {

constexpr char kVictim[] = "/tmp/victim";
constexpr char kNoMarker[] = "checkOtaTmpFile called\nno ota temp file\n";
constexpr char kCreated[] = "Created OTA Temp file:\"/tmp/ota.marker\\n";
constexpr char kNotCreated[] = "Open OTA Temp file failed.\n";

class Marker : public UpgradeTest {
  protected:
    void SetUp() override {
        UpgradeTest::SetUp();
        write_file(kFirmwareVersion, "1.0.3");
        write_file(kVictim, "precious");
    }
    // A camera that goes through these upgrade states, one for each round of a monitor.
    void camera_goes_through(const std::vector<const char *> &statuses) {
        CameraScript script = {{"CameraStatus?FwDownloadProgress", {element("FwDownloadProgress", "7")}}};
        for (const char *status : statuses) {
            script["CameraStatus?FwUpgradeStatus"].push_back(element("FwUpgradeStatus", status));
        }
        play_script(camera, script);
    }
    // A monitor of an upgrade whose download has begun, until the end of that many rounds.
    static std::string log_of_monitor(int rounds = 1) {
        return output_of([=] { run_monitor(rounds); });
    }
    static void run_monitor(int rounds) {
        EXPECT_TRUE(fake_os::run_until_pause(rounds, [] { OTA_monitor(nullptr); }));
    }
    static int count(const std::string &text, const std::string &log) {
        int found = 0;
        for (size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + 1)) found++;
        return found;
    }
};

// --- Whose marker it is

TEST_F(Marker, OfAnUpgradeThatRunsIsNotSettled) {
    camera_goes_through({"Downloading"});
    log_of_monitor();
    EXPECT_EQ(output_of(checkOtaTmpFile), kNoMarker);
    EXPECT_EQ(alarm_statuses(), std::vector<int>{});
    EXPECT_EQ(read_file(kMarker), "1.0.3");
}

// The SDK's call takes its time: meanwhile a monitor puts its marker in place of the one that is settled.
int upgrade_meanwhile(alarm_record *record, mipc_api_table *) {
    EXPECT_EQ(record->status, 19);
    EXPECT_TRUE(fake_os::run_until_pause(1, [] { OTA_monitor(nullptr); }));
    return 0;
}

TEST_F(Marker, WrittenWhileAnOlderOneIsSettledStays) {
    camera_goes_through({"Downloading"});
    write_file(kMarker, "1.0.2\n");
    fake_vendor::table().SendAlarmData = upgrade_meanwhile;
    const std::string log = output_of(checkOtaTmpFile);
    EXPECT_NE(log.find(kCreated), std::string::npos);
    EXPECT_EQ(log.find("deleted"), std::string::npos) << "that would not be true";
    EXPECT_EQ(read_file(kMarker), "1.0.3");
    EXPECT_EQ(output_of(checkOtaTmpFile), kNoMarker);
    EXPECT_EQ(read_file(kMarker), "1.0.3");
}

TEST_F(Marker, WrittenBeforeAnOlderOneWasSettledLosesNoOutcome) {
    camera_goes_through({"Downloading"});
    write_file(kMarker, "1.0.2\n");
    log_of_monitor();
    EXPECT_EQ(output_of(checkOtaTmpFile),
              "checkOtaTmpFile called\nota temp file(/tmp/ota.marker) existed\n"
              "Retrieved line of length 5 :\n1.0.3fwver_curr = \"1.0.3\"\nfwver_last = \"1.0.2\"\n"
              "soap_OTA_succeeded called\n" +
                  log_of_alarm("(OTA)", 19));
    EXPECT_EQ(output_of(checkOtaTmpFile), kNoMarker);
    EXPECT_EQ(alarm_statuses(), std::vector{19});
    EXPECT_EQ(read_file(kMarker), "1.0.3");
}

TEST_F(Marker, ThatStaysIsSettledAgain) {
    write_file(kMarker, "1.0.2\n");
    ASSERT_EQ(mount(kMarker, kMarker, nullptr, MS_BIND, nullptr), 0);  // such a file cannot be deleted
    for (int i = 0; i < 2; i++) {
        std::string log;
        EXPECT_EQ(errors_of([&] { log = output_of(checkOtaTmpFile); }), "Error: Device or resource busy\n");
        EXPECT_NE(log.find("Unable to delete OTA Temp File file:\"/tmp/ota.marker\".\n"), std::string::npos);
    }
    EXPECT_EQ(alarm_statuses(), (std::vector{19, 19}));
    EXPECT_EQ(errors_on_a_full_log(checkOtaTmpFile), "Error: Device or resource busy\n");
    umount(kMarker);
}

TEST_F(Marker, OfManyMonitorsAtOnceIsWhole) {
    camera_goes_through({"Downloading"});
    const std::string log = output_of([] {
        std::atomic<int> done = 0;
        std::vector<std::thread> monitors;
        for (int i = 0; i < 8; i++) {
            monitors.emplace_back([&] {
                run_monitor(1);
                done++;
            });
        }
        while (done < 8) checkOtaTmpFile();
        for (std::thread &monitor : monitors) monitor.join();
    });
    EXPECT_EQ(count(kCreated, log), 8);
    EXPECT_EQ(count("existed\n", log), 0);
    EXPECT_EQ(read_file(kMarker), "1.0.3");
    EXPECT_EQ(alarm_statuses(), std::vector<int>{});
}

// --- The file

TEST_F(Marker, IsReplacedWholeAndSynced) {
    camera_goes_through({"Downloading"});
    write_file(kMarker, "an older one");
    FILE *reader = std::fopen(kMarker, "re");
    ASSERT_NE(reader, nullptr);
    EXPECT_NE(log_of_monitor().find(kCreated), std::string::npos);
    char text[20] = {};
    EXPECT_STREQ(std::fgets(text, sizeof text, reader), "an older one");
    std::fclose(reader);
    EXPECT_EQ(read_file(kMarker), "1.0.3");
    struct stat written {};
    EXPECT_EQ(stat(kMarker, &written), 0);
    EXPECT_EQ(written.st_mode & 07777, 0644u);
    EXPECT_EQ(intercept::synced(), (Texts{"/tmp/ota.marker.veloagent-new", "/tmp"}));
}

TEST_F(Marker, StaysAwayOnceItIsSettled) {
    write_file(kMarker, "1.0.2\n");
    output_of(checkOtaTmpFile);
    EXPECT_EQ(intercept::synced(), Texts{"/tmp"});
}

TEST_F(Marker, ThatTheDiskHasNoRoomForIsNotCreated) {
    camera_goes_through({"Downloading"});
    mkdir("/tmp/full", 0755);
    ASSERT_EQ(mount("tmpfs", "/tmp/full", "tmpfs", 0, "size=4k"), 0);
    write_file("/tmp/full/filling", std::string(4096, 'f'));
    set_conf("OTA_TMP_FILE", "/tmp/full/marker");
    std::string log;
    EXPECT_EQ(errors_of([&] { log = log_of_monitor(); }), "Error: No space left on device\n");
    EXPECT_EQ(count(kNotCreated, log), 1);
    EXPECT_FALSE(file_exists("/tmp/full/marker"));
    umount2("/tmp/full", MNT_DETACH);
}

// --- What others put in its place

struct PlantRow {
    const char *name;
    int (*plant)();
};

void PrintTo(const PlantRow &row, std::ostream *out) {
    *out << row.name;
}

class PlantedMarker : public Marker, public testing::WithParamInterface<PlantRow> {};

TEST_P(PlantedMarker, IsNoMarker) {
    ASSERT_EQ(GetParam().plant(), 0);
    EXPECT_EQ(output_of(checkOtaTmpFile), kNoMarker);
    EXPECT_EQ(alarm_statuses(), std::vector<int>{});
    EXPECT_EQ(read_file(kVictim), "precious");
}

TEST_P(PlantedMarker, GivesWayToTheMonitorsMarker) {
    ASSERT_EQ(GetParam().plant(), 0);
    camera_goes_through({"Downloading"});
    EXPECT_NE(log_of_monitor().find(kCreated), std::string::npos);
    EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(kMarker)));
    EXPECT_EQ(read_file(kMarker), "1.0.3");
    EXPECT_EQ(read_file(kVictim), "precious");
    EXPECT_FALSE(file_exists("/tmp/created"));
}

INSTANTIATE_TEST_SUITE_P(
    Marker, PlantedMarker,
    testing::Values(PlantRow{.name = "LinkToAFile", .plant = [] { return symlink(kVictim, kMarker); }},
                    PlantRow{.name = "LinkToNothing",
                             .plant = [] { return symlink("/tmp/created", kMarker); }},
                    PlantRow{.name = "Fifo", .plant = [] { return mkfifo(kMarker, 0666); }}),
    by_name);

// --- The version that it holds

struct LateRow {
    const char *name;
    std::vector<const char *> statuses;  // the version gets known after the first round
    const char *marker;
    int created;
};

void PrintTo(const LateRow &row, std::ostream *out) {
    *out << row.name;
}

class LateVersion : public Marker, public testing::WithParamInterface<LateRow> {};

TEST_P(LateVersion, OfTheMarker) {
    unlink(kFirmwareVersion);
    camera_goes_through(GetParam().statuses);
    int rounds = 0;
    fake_os::on_pause([&](const std::string &) {
        if (++rounds == 1) write_file(kFirmwareVersion, "1.0.3\n");
    });
    const std::string log = log_of_monitor(static_cast<int>(GetParam().statuses.size()));
    EXPECT_EQ(read_file(kMarker), GetParam().marker);
    EXPECT_EQ(count(kCreated, log), GetParam().created);
}

INSTANTIATE_TEST_SUITE_P(Marker, LateVersion,
                         testing::Values(LateRow{.name = "IsWrittenWhileTheDownloadRuns",
                                                 .statuses = {"Downloading", "Downloading"},
                                                 .marker = "1.0.3",
                                                 .created = 2},
                                         LateRow{.name = "IsWrittenOnce",
                                                 .statuses = {"Downloading", "Downloading", "Downloading"},
                                                 .marker = "1.0.3",
                                                 .created = 2},
                                         LateRow{.name = "MayBeTheNewFirmwares",
                                                 .statuses = {"Downloading", "Upgrading", "Downloading"},
                                                 .marker = "",
                                                 .created = 1},
                                         LateRow{.name = "MayBeTheNewFirmwaresAfterARestart",
                                                 .statuses = {"Downloading", "Idle"},
                                                 .marker = "",
                                                 .created = 1}),
                         by_name);

TEST_F(Marker, IsReadUpTo64KiB) {
    write_file(kMarker, std::string(70'000, 'x'));
    const std::string log = output_of(checkOtaTmpFile);
    EXPECT_NE(log.find("fwver_last = \"" + std::string(65'536, 'x') + "\"\n"), std::string::npos);
}

TEST_F(Marker, IsNotWrittenAgainForAVersionThatStaysUnknown) {
    write_file(kFirmwareVersion, "");
    camera_goes_through({"Downloading"});
    EXPECT_EQ(count(kCreated, log_of_monitor(4)), 1);
    EXPECT_EQ(read_file(kMarker), "");
}

}  // namespace
