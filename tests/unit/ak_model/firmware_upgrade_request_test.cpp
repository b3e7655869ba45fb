// The upgrade request: its checks in their order, its refusals.
#include <algorithm>
#include <ostream>

#include "ak_model/firmware_upgrade.h"
#include "upgrade_fixture.h"

namespace {

constexpr char kSpace[] = "CameraStatus?Space";
constexpr char kEvent[] = "CameraStatus?NewFirmwareEvent";
constexpr char kVersion[] = "CameraStatus?NewFirmwareVersion";
constexpr char kAdaptor[] = "CameraStatus?Adaptor";
constexpr char kCard[] = "CameraStatus?SD";
constexpr char kStatus[] = "CameraStatus?FwUpgradeStatus";

class UpgradeRequest : public UpgradeTest {
  protected:
    void SetUp() override {
        UpgradeTest::SetUp();
        write_file(kReserve, "space");
        camera_answers({});
        // The monitor stays in its first pause.
        fake_os::on_pause([](const std::string &pause) {
            if (pause == "5 s") fake_os::park();
        });
    }
    void camera_answers(const CameraScript &changed) {
        CameraScript script = {
            {kEvent, {element("NewFirmwareEvent", "1")}},
            {kVersion, {element("NewFirmwareVersion", "1.0.4")}},
            {kAdaptor, {element("Adaptor", "1")}},
            {kCard, {element("SD", "1")}},
            {kSpace, {element("Space", "2048")}},
            {kStatus, {element("FwUpgradeStatus", "Idle")}},
            {"CameraStatus?FwDownloadProgress", {element("FwDownloadProgress", "0")}},
            {"UPGRADE_FW", {taken("UPGRADE_FW")}},
        };
        for (const auto &[command, replies] : changed) script[command] = replies;
        play_script(camera, script);
    }
    static std::string log_of_request(int expected_result) {
        return marked_log(output_of([&] { EXPECT_EQ(doOTA(), expected_result); }));
    }
    // The same for a request that starts a monitor, until that waits.
    static std::string log_of_started_request() {
        return marked_log(output_of([&] {
            EXPECT_EQ(doOTA(), 0);
            EXPECT_TRUE(eventually([] { return !fake_os::pauses().empty(); }));
        }));
    }
};

const std::string kChecksLog =
    "!!!***platform/Z55/ak_model <N> ***!!! OTA function \n"
    "[GET CameraStatus?NewFirmwareEvent]\n"
    "debug , fwEvent = 1,---  platform/Z55/ak_model,<N> -----\n" +
    log_of_status("firmware_newver", "NewFirmwareVersion", "1.0.4") +
    "debug , firmware_newver = 1.0.4,---  platform/Z55/ak_model,<N> -----\n" +
    log_of_status("Adapt", "Adaptor", "1") + log_of_status("Sdcard", "SD", "1") +
    "[GET CameraStatus?Space]\n" + log_of_status("Upgrade_SW_status", "FwUpgradeStatus", "Idle") +
    "iFwEvent=1, iSpace=2048, iAdaptor=1\n";

// --- The request

TEST_F(UpgradeRequest, IsRequestedAfterAllChecks) {
    const std::string log = log_of_started_request();
    EXPECT_LOG(log, kChecksLog +
                        "!!!***platform/Z55/ak_model <N> ***!!! deleteDummyFile function \n"
                        "/tmp/fuse_d/.ota.tmp file deleted successfully.\n"
                        "delete file success\n"
                        "[POST RemoteControl]\n"
                        "curl_Post OK, starting OTA monitoring\n"
                        "start_OTA_monitoring called\n"
                        "(OTA_monitor) OTA_monitor starts.\n" +
                        log_of_status("Upgrade_SW_status", "FwUpgradeStatus", "Idle") +
                        log_of_status("Upgrade_SW_process", "FwDownloadProgress", "0") +
                        "SW status Now  = Idle,---  platform/Z55/ak_model,<N> -----\n"
                        "SW fwProcess Now download progress = 0,---  platform/Z55/ak_model,<N> -----\n");
    const Texts seen = camera.seen();
    ASSERT_GE(seen.size(), 7u);
    EXPECT_EQ(Texts(seen.begin(), seen.begin() + 7),
              (Texts{"GET /CGI/CameraStatus?NewFirmwareEvent Session=12345",
                     "GET /CGI/CameraStatus?NewFirmwareVersion Session=12345",
                     "GET /CGI/CameraStatus?Adaptor Session=12345", "GET /CGI/CameraStatus?SD Session=12345",
                     "GET /CGI/CameraStatus?Space Session=12345",
                     "GET /CGI/CameraStatus?FwUpgradeStatus Session=12345",
                     "POST /CGI/RemoteControl Session=12345\n"
                     "HTTP/1.1\nContent-Length: 58\nContent-Type: application/x-www-form-urlencoded\n\r\n\r\n"
                     "<RemoteControl><Action>UPGRADE_FW</Action></RemoteControl>"}));
    EXPECT_FALSE(file_exists(kReserve));
}

TEST_F(UpgradeRequest, EventsValueDoesNotMatter) {
    camera_answers({{kEvent, {element("NewFirmwareEvent", "")}}});
    EXPECT_NE(log_of_started_request().find("iFwEvent=0, iSpace=2048, iAdaptor=1\n"), std::string::npos);
}

TEST_F(UpgradeRequest, EachFetchHasSixTries) {
    const auto at_last = [](const CameraReply &reply) {
        std::vector<CameraReply> replies(5, CameraReply{.status = 500});
        replies.push_back(reply);
        return replies;
    };
    camera_answers({{kEvent, at_last(element("NewFirmwareEvent", "1"))},
                    {kVersion, at_last(element("NewFirmwareVersion", "2"))},
                    {kAdaptor, at_last(element("Adaptor", "1"))},
                    {kCard, at_last(element("SD", "1"))},
                    {kSpace, at_last(element("Space", "9"))}});
    errors_of([] { log_of_started_request(); });
    Texts expected;
    for (const char *command : {kEvent, kVersion, kAdaptor, kCard, kSpace}) {
        expected.insert(expected.end(), 6, command);
    }
    expected.push_back(kStatus);
    expected.push_back("UPGRADE_FW");
    const Texts seen = commands(camera);
    ASSERT_GE(seen.size(), expected.size());
    EXPECT_EQ(Texts(seen.begin(), seen.begin() + static_cast<long>(expected.size())), expected);
    for (const std::string &pause : fake_os::pauses()) EXPECT_EQ(pause, "5 s");
}

TEST_F(UpgradeRequest, EachFetchHasNoSeventhTry) {
    camera_answers({{kEvent, {{.status = 500}}}});
    errors_of([] { output_of([] { EXPECT_NE(doOTA(), 0); }); });
    const Texts seen = commands(camera);
    EXPECT_EQ(std::count(seen.begin(), seen.end(), kEvent), 6);
}

// A value of that text is what a device says that could not ask its camera.
TEST_F(UpgradeRequest, AnErrorForAValueIsAskedForAgain) {
    camera_answers(
        {{kVersion, {element("NewFirmwareVersion", "ERROR"), element("NewFirmwareVersion", "1.0.4")}}});
    EXPECT_NE(log_of_started_request().find("debug , firmware_newver = 1.0.4,"), std::string::npos);
    const Texts seen = commands(camera);
    EXPECT_EQ(std::count(seen.begin(), seen.end(), kVersion), 2);
}

// --- Refusals

struct RefusalRow {
    const char *name;
    CameraScript changed;
    int result;
    std::string last_log;     // the end of what the request prints
    const char *last_errors;  // the end of what it prints on standard error
    Texts last_commands;      // the camera's last ones
};

void PrintTo(const RefusalRow &row, std::ostream *out) {
    *out << row.name;
}

class Refusal : public UpgradeRequest, public testing::WithParamInterface<RefusalRow> {};

// The length in characters of `expected` once its open numbers are filled in is not known: compares from the
// last occurrence of its first line.
std::string from_last(const std::string &text, const std::string &expected) {
    const std::string start = expected.substr(0, expected.find_first_of("<\n"));
    const size_t found = text.rfind(start);
    return found == std::string::npos ? text : text.substr(found);
}

TEST_P(Refusal, EndsTheRequest) {
    const RefusalRow &row = GetParam();
    camera_answers(row.changed);
    std::string log;
    const std::string errors = errors_of([&] { log = log_of_request(row.result); });
    EXPECT_LOG(from_last(log, row.last_log), row.last_log);
    const std::string last_errors = row.last_errors;
    EXPECT_LOG(last_errors.empty() ? errors : from_last(errors, last_errors), last_errors);
    Texts seen = commands(camera);
    ASSERT_GE(seen.size(), row.last_commands.size());
    seen.erase(seen.begin(), seen.end() - static_cast<long>(row.last_commands.size()));
    EXPECT_EQ(seen, row.last_commands);
    EXPECT_TRUE(file_exists(kReserve));
    EXPECT_EQ(load_shared(ota_enable), 0);
}

const std::vector<CameraReply> kNothing = {{.status = 404}};

INSTANTIATE_TEST_SUITE_P(
    Checks, Refusal,
    testing::Values(
        RefusalRow{.name = "NoEventReply",
                   .changed = {{kEvent, kNothing}},
                   .result = -1,
                   .last_log = "[GET CameraStatus?NewFirmwareEvent]\n[failed]\n",
                   .last_errors = "local_response is null:   (platform/Z55/ak_model, <N>)\n",
                   .last_commands = Texts(6, kEvent)},
        RefusalRow{.name = "NoEvent",
                   .changed = {{kEvent, {refused(12)}}},
                   .result = 12,
                   .last_log = "fwEvent ErrorCode: 12\n",
                   .last_errors = "",
                   .last_commands = {kEvent}},
        RefusalRow{.name = "NeitherEventNorError",
                   .changed = {{kEvent, {{.body = "nothing"}}}},
                   .result = 0,
                   .last_log = "fwEvent ErrorCode: 0\n",
                   .last_errors = "",
                   .last_commands = {kEvent}},
        RefusalRow{.name = "NoNewVersion",
                   .changed = {{kVersion, kNothing}},
                   .result = -1,
                   .last_log = "res !=CURLE_OK: platform/Z55/ak_model,line <N>\n",
                   .last_errors = "curl failed : No error  (platform/Z55/ak_model, <N>)\n",
                   .last_commands = Texts(6, kVersion)},
        RefusalRow{.name = "NoAdaptorStatus",
                   .changed = {{kAdaptor, kNothing}},
                   .result = -1,
                   .last_log = "res !=CURLE_OK: platform/Z55/ak_model,line <N>\n",
                   .last_errors = "curl failed : No error  (platform/Z55/ak_model, <N>)\n",
                   .last_commands = Texts(6, kAdaptor)},
        RefusalRow{.name = "NoCardStatus",
                   .changed = {{kCard, kNothing}},
                   .result = -1,
                   .last_log = "res !=CURLE_OK: platform/Z55/ak_model,line <N>\n",
                   .last_errors = "curl failed : No error  (platform/Z55/ak_model, <N>)\n",
                   .last_commands = Texts(6, kCard)},
        RefusalRow{.name = "NoSpaceReply",
                   .changed = {{kSpace, kNothing}},
                   .result = -1,
                   .last_log =
                       "[GET CameraStatus?Space]\n[failed]\nres !=CURLE_OK: platform/Z55/ak_model,line <N>\n",
                   .last_errors = "",
                   .last_commands = Texts(6, kSpace)},
        RefusalRow{.name = "NoSpace",
                   .changed = {{kSpace, {refused(-3)}}},
                   .result = -3,
                   .last_log = "space ErrorCode: -3\n",
                   .last_errors = "",
                   .last_commands = {kSpace}},
        RefusalRow{.name = "Downloading",
                   .changed = {{kStatus, {element("FwUpgradeStatus", "Downloading")}}},
                   .result = -1,
                   .last_log = "Firmware Upgrade Downloading...\n",
                   .last_errors = "",
                   .last_commands = {kSpace, kStatus}},
        RefusalRow{.name = "UnknownStatus",
                   .changed = {{kStatus, kNothing}},
                   .result = -1,
                   .last_log = "Firmware Upgrade ERROR...\n",
                   .last_errors = "curl failed : No error  (platform/Z55/ak_model, <N>)\n",
                   .last_commands = {kSpace, kStatus}},
        RefusalRow{
            .name = "NoCard",
            .changed = {{kCard, {element("SD", "0")}}},
            .result = -1,
            .last_log =
                "iFwEvent=1, iSpace=2048, iAdaptor=1\ncheck SD insert , SD card Space less than 100MB \n ",
            .last_errors = "",
            .last_commands = {kStatus}},
        RefusalRow{.name = "NoAdaptor",
                   .changed = {{kAdaptor, {element("Adaptor", "0")}}},
                   .result = -1,
                   .last_log = "iFwEvent=1, iSpace=2048, iAdaptor=0\ncheck Adaptor, No Adaptor \n ",
                   .last_errors = "",
                   .last_commands = {kStatus}},
        RefusalRow{
            .name = "NeitherCardNorAdaptor",
            .changed = {{kCard, {element("SD", "0")}}, {kAdaptor, {element("Adaptor", "0")}}},
            .result = -1,
            .last_log = "iFwEvent=1, iSpace=2048, iAdaptor=0\n"
                        "check SD insert , SD card Space less than 100MB \n check Adaptor, No Adaptor \n ",
            .last_errors = "",
            .last_commands = {kStatus}},
        RefusalRow{.name = "OtherCardValue",
                   .changed = {{kCard, {element("SD", "2")}}},
                   .result = -1,
                   .last_log = "iFwEvent=1, iSpace=2048, iAdaptor=1\n",
                   .last_errors = "",
                   .last_commands = {kStatus}},
        RefusalRow{.name = "OtherAdaptorValue",
                   .changed = {{kAdaptor, {element("Adaptor", "2")}}},
                   .result = -1,
                   .last_log = "iFwEvent=1, iSpace=2048, iAdaptor=2\n",
                   .last_errors = "",
                   .last_commands = {kStatus}}),
    by_name);

TEST_F(UpgradeRequest, MissingReserveFileEndsTheRequest) {
    unlink(kReserve);
    EXPECT_LOG(log_of_request(-1), kChecksLog +
                                       "!!!***platform/Z55/ak_model <N> ***!!! deleteDummyFile function \n"
                                       "Error:  file not found! check the directory!!\n"
                                       "delete file failure, OTA failure\n");
    EXPECT_EQ(commands(camera).back(), kStatus);
}

TEST_F(UpgradeRequest, RequestThatFailsGivesItsReserveBack) {
    camera_answers({{"UPGRADE_FW", {{.hang_up = true}, taken("UPGRADE_FW")}}});
    EXPECT_LOG(log_of_request(-1), kChecksLog +
                                       "!!!***platform/Z55/ak_model <N> ***!!! deleteDummyFile function \n"
                                       "/tmp/fuse_d/.ota.tmp file deleted successfully.\n"
                                       "delete file success\n"
                                       "[POST RemoteControl]\n"
                                       "[failed]\n"
                                       "(OTA) curl_Post failed . res = 52 , platform/Z55/ak_model:<N>\n"
                                       "!!!***platform/Z55/ak_model <N> ***!!! dummyFileCreator function \n"
                                       "create start\ncreate file end\ncreate file success\n");
    EXPECT_EQ(load_shared(ota_enable), 0);
    EXPECT_TRUE(file_exists(kReserve));
    EXPECT_NE(log_of_started_request().find("curl_Post OK, starting OTA monitoring\n"), std::string::npos);
    EXPECT_FALSE(file_exists(kReserve));
}

}  // namespace
