// get_device_status: each status's source, result and log; every failure; unusable input; many threads.
#include "ak_model/status_read.h"

#include <curl/curl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>
#include <vector>

#include "handler_test.h"

namespace {

constexpr char kTotalCommand[] =
    "sh -c 'df -m' | /bin/grep /tmp/fuse_d  | /usr/bin/awk '{print $2}' > /tmp/total";
constexpr char kSpaceCommand[] =
    "sh -c 'df -m' | /bin/grep /tmp/fuse_d  | /usr/bin/awk '{print $4}' > /tmp/space";

Outcome read(const char *name) {
    return read_with(get_device_status, name);
}

std::string start_log(const std::string &name) {
    return "!!!***platform/Z55/ak_model <N> ***!!!\n status_name=" + name +
           "\n , status_length =" + std::to_string(name.size()) + "\n";
}

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
    const Outcome outcome = read(name);
    EXPECT_EQ(outcome.text, value);
    EXPECT_EQ(outcome.result, static_cast<int>(value.size()));
    EXPECT_LOG(start_log(name) + "[GET " + target + "]\n" + value_log(value) + end_log(name), outcome.log);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(camera.seen(), Texts{get_request(target)});
}

INSTANTIATE_TEST_SUITE_P(
    Rows, StatusReadCameraKey,
    testing::Values(KeyRow{"Battery", "Battery"}, KeyRow{"Adapt", "Adaptor"},
                    KeyRow{"firmware_newver", "NewFirmwareVersion"}, KeyRow{"Sdcard", "SD"},
                    KeyRow{"Upgrade_SW_status", "FwUpgradeStatus"},
                    KeyRow{"Upgrade_SW_process", "FwDownloadProgress"},
                    KeyRow{"Temp_now_status", "Temperature"}, KeyRow{"LullabyPlay", "LullabyPlay"},
                    KeyRow{"LullabySong", "LullabySong"}, KeyRow{"LullabyTime", "LullabyTime"},
                    KeyRow{"LullabyPlayingTime", "LullabyPlayingTime"}, KeyRow{"LullabyMode", "LullabyMode"},
                    KeyRow{"LullabyVolume", "LullabyVolume"}, KeyRow{"Nightlight", "Nightlight"},
                    KeyRow{"Recording", "Recording"}),
    name_of_row<KeyRow>);

TEST_F(StatusRead, WordsAreNotTranslated) {
    for (const char *value : {"ON", "OFF", "", "0", " 21 "}) {
        camera.reply("/CGI/CameraStatus?Nightlight", std::string("<Nightlight>") + value + "</Nightlight>");
        EXPECT_EQ(read("Nightlight").text, value);
    }
}

TEST_F(StatusRead, ACameraThatCannotBeReachedIsAnError) {
    camera.go_away();
    const Outcome outcome = read("Sdcard");
    EXPECT_EQ(outcome.text, "ERROR");
    EXPECT_EQ(outcome.result, 5);
    EXPECT_LOG(start_log("Sdcard") +
                   "[GET CameraStatus?SD]\n[failed]\n"
                   "res !=CURLE_OK: platform/Z55/ak_model,line <N>\n",
               outcome.log);
    EXPECT_LOG(std::string("curl failed : ") + curl_easy_strerror(CURLE_COULDNT_CONNECT) +
                   "  (platform/Z55/ak_model, <N>)\n",
               outcome.errors);
}

TEST_F(StatusRead, AnyStatusBut200CountsAsNoAnswer) {
    camera.reply("/CGI/CameraStatus?SD", {CameraReply{.body = "<SD>1</SD>", .status = 404}});
    const Outcome outcome = read("Sdcard");
    EXPECT_EQ(outcome.text, "ERROR");
    EXPECT_EQ(outcome.result, 5);
}

TEST_F(StatusRead, AMissingElementIsAnError) {
    camera.reply("/CGI/CameraStatus?Battery", "<ErrorCode>-3</ErrorCode>");
    const Outcome outcome = read("Battery");
    EXPECT_EQ(outcome.text, "ERROR");
    EXPECT_EQ(outcome.result, 5);
    EXPECT_LOG(start_log("Battery") + "[GET CameraStatus?Battery]\n" + value_log("(null)"), outcome.log);
    EXPECT_LOG("local_response is null: (platform/Z55/ak_model, <N>)\n", outcome.errors);
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
    const Outcome outcome = read(name);
    EXPECT_EQ(outcome.text, "29000");
    EXPECT_EQ(outcome.result, 5);
    EXPECT_LOG(start_log(name) + end_log(name), outcome.log);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(fake_os::shell_commands(), Texts{command});
    EXPECT_EQ(camera.seen(), Texts{});
}

TEST_P(StatusReadCard, WithoutACardIsTheName) {
    df_says("");
    const Outcome outcome = read(GetParam().name);
    EXPECT_EQ(outcome.text, GetParam().name);
    EXPECT_EQ(outcome.result, static_cast<int>(outcome.text.size()));
    EXPECT_LOG(start_log(GetParam().name) + end_log(GetParam().name), outcome.log);
}

TEST_P(StatusReadCard, IsReadOneCharacterShortOfTheFile) {
    df_says("123");
    EXPECT_EQ(read(GetParam().name).text, "12");
    df_says("1\n22\n");
    EXPECT_EQ(read(GetParam().name).text, "1\n");  // only a single line loses its line end
    df_says(std::string(10'000, '7'));
    EXPECT_EQ(read(GetParam().name).text, std::string(129, '7'));
}

TEST_P(StatusReadCard, WithADfThatFailsIsTheName) {
    fake_os::on_shell([file = std::string(GetParam().file)](const std::string &) {
        write_file(file, "29000\n");
        return fake_os::ShellResult{.status = 256};
    });
    EXPECT_EQ(read(GetParam().name).text, GetParam().name);
}

TEST_P(StatusReadCard, IsDfsAndNotWhatStoodInTheFile) {
    write_file(GetParam().file, "29000\n");
    fake_os::on_shell({});  // which writes nothing
    EXPECT_EQ(read(GetParam().name).text, GetParam().name);
}

TEST_P(StatusReadCard, FileIsNotTheOneThatALinkPointsTo) {
    write_file("/tmp/victim", "mine");
    std::filesystem::create_symlink("/tmp/victim", GetParam().file);
    df_says("29000\n");
    EXPECT_EQ(read(GetParam().name).text, "29000");
    EXPECT_EQ(read_file("/tmp/victim"), "mine");
}

TEST_P(StatusReadCard, WithoutDfsFileIsAnError) {
    std::filesystem::create_directory(GetParam().file);
    const Outcome outcome = read(GetParam().name);
    std::filesystem::remove(GetParam().file);
    EXPECT_EQ(outcome.text, "ERROR");
    EXPECT_EQ(outcome.result, 5);
}

INSTANTIATE_TEST_SUITE_P(Rows, StatusReadCard,
                         testing::Values(CardRow{"Sdsize", kTotalCommand, "/tmp/total"},
                                         CardRow{"sdcardquota", kSpaceCommand, "/tmp/space"}),
                         name_of_row<CardRow>);

TEST_F(StatusRead, QuotaWithoutACardHasElevenCharacters) {
    fake_os::on_shell([](const std::string &) {
        write_file("/tmp/space", "");
        return fake_os::ShellResult{};
    });
    const Outcome outcome = read("sdcardquota");
    EXPECT_EQ(outcome.text, "sdcardquota");
    EXPECT_EQ(outcome.result, 11);
}

TEST_F(StatusRead, FirmwareVersionIsTheFilesLastLine) {
    write_file("/tmp/FWVER.txt", "1.0.3\n1.0.14\n");
    const Outcome outcome = read("firmware_ver");
    EXPECT_EQ(outcome.text, "1.0.14\n");
    EXPECT_EQ(outcome.result, 7);
    EXPECT_LOG(start_log("firmware_ver") +
                   "Retrieved line of length 6 :\n1.0.3\nRetrieved line of length 7 :\n1.0.14\n"
                   "FirmwareVer *get_result = 1.0.14\n\n" +
                   end_log("firmware_ver"),
               outcome.log);
    EXPECT_EQ(camera.seen(), Texts{});
    write_file("/tmp/FWVER.txt", "2.0");
    EXPECT_EQ(read("firmware_ver").text, "2.0");
    write_file("/tmp/FWVER.txt", std::string(10'000, '9'));
    EXPECT_EQ(read("firmware_ver").text, std::string(129, '9'));
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
    const Outcome outcome = read("firmware_ver");
    EXPECT_EQ(outcome.text, "ERROR");
    EXPECT_EQ(outcome.result, 5);
    EXPECT_LOG(start_log("firmware_ver"), outcome.log);
    EXPECT_EQ(read_firmware_version(), std::nullopt);
}

TEST_F(StatusRead, ResolutionCapabilityIsAConstant) {
    const Outcome outcome = read("resolution_capability");
    EXPECT_EQ(outcome.text, std::to_string(0xC0800));
    EXPECT_EQ(outcome.result, 6);
    EXPECT_LOG(start_log("resolution_capability") + end_log("resolution_capability"), outcome.log);
    EXPECT_EQ(camera.seen(), Texts{});
    EXPECT_EQ(fake_os::shell_commands(), Texts{});
}

// --- Unusable input.

class StatusReadUndefined : public StatusRead, public testing::WithParamInterface<const char *> {};

TEST_P(StatusReadUndefined, IsAnError) {
    const Outcome outcome = read(GetParam());
    EXPECT_EQ(outcome.text, "ERROR");
    EXPECT_EQ(outcome.result, 5);
    EXPECT_LOG(start_log(GetParam()) + "get_device_param This parameter undefined\n", outcome.log);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(camera.seen(), Texts{});
}

INSTANTIATE_TEST_SUITE_P(Names, StatusReadUndefined,
                         testing::Values("battery", "Adaptor", "SD", "", "Battery ", "md_armed",
                                         "Temperature"));

TEST_F(StatusRead, UnusableInputIsAnErrorAndNoCrash) {
    const Outcome null_name = read(nullptr);
    EXPECT_EQ(null_name.text, "ERROR");
    EXPECT_EQ(null_name.result, 5);
    const std::string overlong(10'000, 'n');
    const Outcome long_name = read(overlong.c_str());
    EXPECT_EQ(long_name.text, "ERROR");
    EXPECT_LOG(start_log(overlong) + "get_device_param This parameter undefined\n", long_name.log);
    for (const char *name : {"Battery", "Sdsize", "resolution_capability", "nothing"}) {
        EXPECT_EQ(outcome_of([&] { return get_device_status(name, nullptr); }).result, 5) << name;
    }
    camera.reply("/CGI/CameraStatus?Battery", "<Battery>" + overlong + "</Battery>");
    const Outcome long_value = read("Battery");
    EXPECT_EQ(long_value.text, std::string(129, 'n'));
    EXPECT_EQ(long_value.result, 129);
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
    constexpr std::pair<const char *, const char *> kExpected[] = {
        {"Sdsize", "29000"}, {"sdcardquota", "7"}, {"Sdcard", "1"}, {"Sdsize", "29000"}};
    std::atomic<int> wrong{0};
    output_of([&] {
        std::vector<std::thread> threads;
        for (int i = 0; i < 16; i++) {
            threads.emplace_back([&, i] {
                for (int round = 0; round < 10; round++) {
                    if (device_status(kExpected[i % 4].first) != kExpected[i % 4].second) wrong++;
                }
            });
        }
        for (std::thread &thread : threads) thread.join();
    });
    EXPECT_EQ(wrong, 0);
}

}  // namespace
