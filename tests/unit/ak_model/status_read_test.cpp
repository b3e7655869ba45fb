// get_device_status: each status's source, result and log; every failure; unusable input; many threads.
#include "ak_model/status_read.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "read_handler_test.h"

namespace {

constexpr char kTotalCommand[] =
    "sh -c 'df -m' | /bin/grep /tmp/fuse_d  | /usr/bin/awk '{print $2}' > /tmp/total";
constexpr char kSpaceCommand[] =
    "sh -c 'df -m' | /bin/grep /tmp/fuse_d  | /usr/bin/awk '{print $4}' > /tmp/space";

constexpr ReadHandler kStatus{get_device_status, "status"};

std::string value_log(const std::string &value) {
    return "!!!***platform/Z55/ak_model <N> ***!!!\n xml_value " + value + " find\n";
}

std::string end_log(const std::string &name) {
    return "!!!***platform/Z55/ak_model <N> ***!!! status_name=" + name + "\n";
}

class StatusRead : public HandlerTest {
  protected:
    void SetUp() override {
        HandlerTest::SetUp();
        for (const char *path : {"/tmp/total", "/tmp/space", "/tmp/FWVER.txt"}) unlink(path);
    }
};

struct KeyRow {
    const char *name, *key;
};

class StatusReadCameraKey : public StatusRead, public testing::WithParamInterface<KeyRow> {};

TEST_P(StatusReadCameraKey, IsAskedOfTheCamera) {
    const auto [name, key] = GetParam();
    const std::string target = std::string("CameraStatus?") + key;
    const std::string value = std::string("value of ") + key;
    camera.reply("/CGI/" + target, std::string("<Status><") + key + ">" + value + "</" + key + "></Status>");
    const Outcome outcome = kStatus.read(name);
    expect_value(outcome, value);
    EXPECT_LOG(outcome.log,
               kStatus.start_log(name) + "[GET " + target + "]\n" + value_log(value) + end_log(name));
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(camera.seen(), Texts{get_request(target)});
}

INSTANTIATE_TEST_SUITE_P(Rows, StatusReadCameraKey,
                         testing::Values(KeyRow{.name = "Battery", .key = "Battery"},
                                         KeyRow{.name = "Adapt", .key = "Adaptor"},
                                         KeyRow{.name = "firmware_newver", .key = "NewFirmwareVersion"},
                                         KeyRow{.name = "Sdcard", .key = "SD"},
                                         KeyRow{.name = "Upgrade_SW_status", .key = "FwUpgradeStatus"},
                                         KeyRow{.name = "Upgrade_SW_process", .key = "FwDownloadProgress"},
                                         KeyRow{.name = "Temp_now_status", .key = "Temperature"},
                                         KeyRow{.name = "LullabyPlay", .key = "LullabyPlay"},
                                         KeyRow{.name = "LullabySong", .key = "LullabySong"},
                                         KeyRow{.name = "LullabyTime", .key = "LullabyTime"},
                                         KeyRow{.name = "LullabyPlayingTime", .key = "LullabyPlayingTime"},
                                         KeyRow{.name = "LullabyMode", .key = "LullabyMode"},
                                         KeyRow{.name = "LullabyVolume", .key = "LullabyVolume"},
                                         KeyRow{.name = "Nightlight", .key = "Nightlight"},
                                         KeyRow{.name = "Recording", .key = "Recording"}),
                         by_name);

TEST_F(StatusRead, WordsAreNotTranslated) {
    for (const char *value : {"ON", "OFF", "", "0", " 21 "}) {
        camera.reply("/CGI/CameraStatus?Nightlight", std::string("<Nightlight>") + value + "</Nightlight>");
        EXPECT_EQ(kStatus.read("Nightlight").text, value);
    }
}

TEST_F(StatusRead, ACameraThatCannotBeReachedIsAnError) {
    camera.go_away();
    expect_unreachable(kStatus, "Sdcard", "CameraStatus?SD");
}

TEST_F(StatusRead, AnyStatusBut200CountsAsNoAnswer) {
    camera.reply("/CGI/CameraStatus?SD", {CameraReply{.body = "<SD>1</SD>", .status = 404}});
    const Outcome outcome = kStatus.read("Sdcard");
    expect_error(outcome);
}

TEST_F(StatusRead, AMissingElementIsAnError) {
    camera.reply("/CGI/CameraStatus?Battery", "<ErrorCode>-3</ErrorCode>");
    const Outcome outcome = kStatus.read("Battery");
    expect_error(outcome);
    EXPECT_LOG(outcome.log,
               kStatus.start_log("Battery") + "[GET CameraStatus?Battery]\n" + value_log("(null)"));
    EXPECT_LOG(outcome.errors, "local_response is null: (platform/Z55/ak_model, <N>)\n");
}

// --- Local sources.

struct CardRow {
    const char *name, *command, *file;
};

class StatusReadCard : public StatusRead, public testing::WithParamInterface<CardRow> {
  protected:
    static void df_says(const std::string &output) {
        fake_os::on_shell([output, file = std::string(GetParam().file)](const std::string &) {
            write_file(file, output);
            return fake_os::ShellResult{};
        });
    }
};

TEST_P(StatusReadCard, IsDfsNumberWithoutItsLineEnd) {
    const auto [name, command, file] = GetParam();
    df_says("29000\n");
    const Outcome outcome = kStatus.read(name);
    expect_value(outcome, "29000");
    EXPECT_LOG(outcome.log, kStatus.start_log(name) + end_log(name));
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(fake_os::shell_commands(), Texts{command});
    EXPECT_EQ(camera.seen(), Texts{});
}

TEST_P(StatusReadCard, WithoutACardIsTheName) {
    df_says("");
    const Outcome outcome = kStatus.read(GetParam().name);
    expect_value(outcome, GetParam().name);
    EXPECT_LOG(outcome.log, kStatus.start_log(GetParam().name) + end_log(GetParam().name));
}

TEST_P(StatusReadCard, IsReadOneCharacterShortOfTheFile) {
    df_says("123");
    EXPECT_EQ(kStatus.read(GetParam().name).text, "12");
    df_says("1\n22\n");
    EXPECT_EQ(kStatus.read(GetParam().name).text, "1\n");  // only a single line loses its line end
    df_says(std::string(10'000, '7'));
    EXPECT_EQ(kStatus.read(GetParam().name).text, std::string(129, '7'));
}

TEST_P(StatusReadCard, WithADfThatFailsIsTheName) {
    fake_os::on_shell([file = std::string(GetParam().file)](const std::string &) {
        write_file(file, "29000\n");
        return fake_os::ShellResult{.status = 256};
    });
    EXPECT_EQ(kStatus.read(GetParam().name).text, GetParam().name);
}

TEST_P(StatusReadCard, IsDfsAndNotWhatStoodInTheFile) {
    write_file(GetParam().file, "29000\n");
    fake_os::on_shell({});  // which writes nothing
    EXPECT_EQ(kStatus.read(GetParam().name).text, GetParam().name);
}

TEST_P(StatusReadCard, FileIsNotTheOneThatALinkPointsTo) {
    write_file("/tmp/victim", "mine");
    std::filesystem::create_symlink("/tmp/victim", GetParam().file);
    df_says("29000\n");
    EXPECT_EQ(kStatus.read(GetParam().name).text, "29000");
    EXPECT_EQ(read_file("/tmp/victim"), "mine");
}

TEST_P(StatusReadCard, WithoutDfsFileIsAnError) {
    std::filesystem::create_directory(GetParam().file);
    const Outcome outcome = kStatus.read(GetParam().name);
    std::filesystem::remove(GetParam().file);
    expect_error(outcome);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, StatusReadCard,
    testing::Values(CardRow{.name = "Sdsize", .command = kTotalCommand, .file = "/tmp/total"},
                    CardRow{.name = "sdcardquota", .command = kSpaceCommand, .file = "/tmp/space"}),
    by_name);

TEST_F(StatusRead, QuotaWithoutACardHasElevenCharacters) {
    fake_os::on_shell([](const std::string &) {
        write_file("/tmp/space", "");
        return fake_os::ShellResult{};
    });
    const Outcome outcome = kStatus.read("sdcardquota");
    expect_value(outcome, "sdcardquota");
}

TEST_F(StatusRead, FirmwareVersionIsTheFilesLastLine) {
    write_file("/tmp/FWVER.txt", "1.0.3\n1.0.14\n");
    const Outcome outcome = kStatus.read("firmware_ver");
    expect_value(outcome, "1.0.14\n");
    EXPECT_LOG(outcome.log, kStatus.start_log("firmware_ver") +
                                "Retrieved line of length 6 :\n1.0.3\nRetrieved line of length 7 :\n1.0.14\n"
                                "FirmwareVer *get_result = 1.0.14\n\n" +
                                end_log("firmware_ver"));
    EXPECT_EQ(camera.seen(), Texts{});
    write_file("/tmp/FWVER.txt", "2.0");
    EXPECT_EQ(kStatus.read("firmware_ver").text, "2.0");
    write_file("/tmp/FWVER.txt", std::string(10'000, '9'));
    EXPECT_EQ(kStatus.read("firmware_ver").text, std::string(129, '9'));
}

TEST_F(StatusRead, FirmwareVersionOfAnOverlongFileEndsAt16KiB) {
    write_file("/tmp/FWVER.txt", std::string(16'380, '\n') + "1.0.3 and more");
    output_of([] { EXPECT_EQ(read_firmware_version(), "1.0."); });
}

TEST_F(StatusRead, FirmwareVersionIsReadFromARegularFileOnly) {
    write_file("/tmp/other", "6.6.6");
    std::filesystem::create_symlink("/tmp/other", "/tmp/FWVER.txt");
    EXPECT_EQ(read_firmware_version(), std::nullopt);
    unlink("/tmp/FWVER.txt");
    mkfifo("/tmp/FWVER.txt", 0644);
    EXPECT_EQ(read_firmware_version(), std::nullopt);
}

TEST_F(StatusRead, FirmwareVersionWithoutItsFileIsAnError) {
    const Outcome outcome = kStatus.read("firmware_ver");
    expect_error(outcome);
    EXPECT_LOG(outcome.log, kStatus.start_log("firmware_ver"));
    EXPECT_EQ(read_firmware_version(), std::nullopt);
}

TEST_F(StatusRead, ResolutionCapabilityIsAConstant) {
    const Outcome outcome = kStatus.read("resolution_capability");
    expect_value(outcome, std::to_string(0xC0800));
    EXPECT_LOG(outcome.log, kStatus.start_log("resolution_capability") + end_log("resolution_capability"));
    EXPECT_EQ(camera.seen(), Texts{});
    EXPECT_EQ(fake_os::shell_commands(), Texts{});
}

// --- Unusable input.

class StatusReadUndefined : public StatusRead, public testing::WithParamInterface<UndefinedRow> {};

TEST_P(StatusReadUndefined, IsAnError) {
    expect_undefined(kStatus, GetParam().text);
    EXPECT_EQ(camera.seen(), Texts{});
}

INSTANTIATE_TEST_SUITE_P(Names, StatusReadUndefined,
                         testing::Values(UndefinedRow{.name = "small letters", .text = "battery"},
                                         UndefinedRow{.name = "the key of the adaptor", .text = "Adaptor"},
                                         UndefinedRow{.name = "the key of the card", .text = "SD"},
                                         UndefinedRow{.name = "empty", .text = ""},
                                         UndefinedRow{.name = "blank behind it", .text = "Battery "},
                                         UndefinedRow{.name = "a parameter", .text = "md_armed"},
                                         UndefinedRow{.name = "the key of the temperature",
                                                      .text = "Temperature"}),
                         by_name);

TEST_F(StatusRead, UnusableInputIsAnErrorAndNoCrash) {
    expect_unusable_input_is_refused(kStatus, {"Battery", "Sdsize", "resolution_capability", "nothing"});
    camera.reply("/CGI/CameraStatus?Battery", "<Battery>" + std::string(10'000, 'n') + "</Battery>");
    expect_value(kStatus.read("Battery"), std::string(129, 'n'));
}

TEST_F(StatusRead, OtherPartsReadItAsText) {
    camera.reply("/CGI/CameraStatus?Battery", "<Battery>77</Battery>");
    output_of([] {
        EXPECT_EQ(device_status("Battery"), "77");
        EXPECT_EQ(device_status("nothing"), "ERROR");
    });
}

// Two df answers of different lengths must never mix.
TEST_F(StatusRead, SixteenThreadsGetTheirOwnAnswers) {
    camera.reply("/CGI/CameraStatus?SD", "<SD>1</SD>");
    fake_os::on_shell([](const std::string &command) {
        const std::string file = command.substr(command.rfind(' ') + 1);
        write_file(file, "");
        write_file(file, file == "/tmp/total" ? "29000\n" : "7\n");
        return fake_os::ShellResult{};
    });
    expect_own_answers(kStatus,
                       {{"Sdsize", "29000"}, {"sdcardquota", "7"}, {"Sdcard", "1"}, {"Sdsize", "29000"}}, 10);
}

}  // namespace
