#include "agent/loginout.h"
#include "agent/session_key.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "agent_test.h"
#include "exports.h"
#include "intercept.h"
#include "leaks.h"
#include "read_only_conf.h"
#include "vanishing_conf.h"

namespace {

mode_t mode_of(const std::string &path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0);
    return status.st_mode & 07777;
}

constexpr char kGoodBody[] = "<CameraLogin><FWVER>V1.07.03</FWVER></CameraLogin>";

CameraReply good_reply(const std::string &key) {
    return {.body = kGoodBody, .headers = {"Set-Cookie: Session=" + key + "; path=/"}};
}

// The login runs on the calling thread: no queue worker in these tests.
class Login : public AgentTest {
  protected:
    void SetUp() override {
        AgentTest::SetUp();
        unlink("/tmp/FWVER.txt");
        unlink("/tmp/cookie.txt");
        write_conf({{"hostIP", FakeCamera::kHost},
                    {"ITEM_DEVICE", "Cam"},
                    {"ITEM_STREAM", "Live"},
                    {"PASSWORD", "secret"},
                    {"SESSION_KEY", ""},
                    {"COOKIE", "/tmp/cookie.txt"}});
    }
    // The log of one login() with this result; libcurl's own chatter is kept off standard error.
    static std::string log_of_login(int result) {
        std::string log;
        errors_of([&] { log = output_of([&] { EXPECT_EQ(login(), result); }); });
        return log;
    }
    static std::string stored(const char *key) {
        char out[100] = "";
        read_conf_value(key, out, "/tmp/working/VeloAgent.conf");
        return out;
    }
    FakeCamera camera;
};

TEST_F(Login, IsOneFormPostWithoutCookie) {
    camera.reply("/CGI/CameraLogin", {good_reply("998877")});
    log_of_login(0);
    ASSERT_EQ(camera.requests().size(), 1u);
    EXPECT_EQ(camera.seen(), (Texts{"POST /CGI/CameraLogin?Device=Cam&Stream=Live -\npassword=secret"}));
    EXPECT_EQ(camera.requests()[0].header("Content-Type"), "application/x-www-form-urlencoded");
    EXPECT_EQ(camera.requests()[0].version, "HTTP/1.1");
}

TEST_F(Login, LogsItsCourse) {
    camera.reply("/CGI/CameraLogin", {good_reply("998877")});
    EXPECT_LOG(log_of_login(0),
               "Loginning..\n"
               "***(login) curl_perform starts ***\n"
               "header_callback_func, buffer=HTTP/1.1 200 Any\r\n\n"
               "header_callback_func, buffer=Set-Cookie: Session=998877; path=/\r\n\n"
               "header_callback_func, buffer=Content-Length: 50\r\n\n"
               "header_callback_func, buffer=\r\n\n"
               "write_callback_func, buffer=<CameraLogin><FWVER>V1.07.03</FWVER></CameraLogin>\n"
               "***(login) curl_perform ends ***\n"
               "getSessionKeyInHeader\n"
               "header:Set-Cookie: Session=998877; path=/\r\n\n"
               "(login)session_key=998877\n");
}

TEST_F(Login, KeepsKeyAndFirmwareVersion) {
    camera.reply("/CGI/CameraLogin", {good_reply("998877")});
    write_file("/tmp/FWVER.txt", "a longer old version");
    log_of_login(0);
    EXPECT_EQ(stored("SESSION_KEY"), "998877");
    EXPECT_EQ(read_file("/tmp/FWVER.txt"), "V1.07.03");
    EXPECT_EQ(copy_session_key(), nullptr) << "only getSessionKey hands the key out";
}

TEST_F(Login, ShowsLibcurlsCourseOnStandardError) {
    camera.reply("/CGI/CameraLogin", {good_reply("1")});
    const std::string errors = errors_of([] { output_of([] { login(); }); });
    EXPECT_NE(errors.find("> POST /CGI/CameraLogin"), std::string::npos);
}

TEST_F(Login, TheBodyIsGatheredWholeOverItsPieces) {
    CameraReply reply = good_reply("1");
    reply.chunks = {"<FWV", "ER>V2", "</FWVER>"};
    camera.reply("/CGI/CameraLogin", {reply});
    const std::string log = log_of_login(0);
    EXPECT_NE(log.find("write_callback_func, buffer=<FWV\nwrite_callback_func, buffer=ER>V2\n"),
              std::string::npos);
    EXPECT_EQ(read_file("/tmp/FWVER.txt"), "V2");
}

TEST_F(Login, ALongBodyIsGatheredWholeAndATooLongOneFails) {
    CameraReply reply = good_reply("1");
    reply.chunks = {std::string(4'000'000, 'x'), "<FWVER>late</FWVER>"};
    camera.reply("/CGI/CameraLogin", {reply});
    log_of_login(0);
    EXPECT_EQ(read_file("/tmp/FWVER.txt"), "late");

    reply.chunks = {"<FWVER>early</FWVER>", std::string(5'000'000, '#')};
    camera.reply("/CGI/CameraLogin", {reply});
    const std::string log = log_of_login(-1);
    EXPECT_NE(log.find("error: curl perform failed. error code = 23***\n"), std::string::npos);
    EXPECT_GT(4 * 1024 * 1024, std::count(log.begin(), log.end(), '#'));
    EXPECT_EQ(read_file("/tmp/FWVER.txt"), "late");
}

TEST_F(Login, AReplyWithoutMemoryFails) {
    camera.reply("/CGI/CameraLogin", {good_reply("1")});
    for (const int after : {0, 1}) {  // the header's line, the body
        intercept::refuse_next("realloc", after);
        EXPECT_NE(log_of_login(-1).find("error code = 23***\n"), std::string::npos);
    }
    EXPECT_EQ(stored("SESSION_KEY"), "");
}

TEST_F(Login, TheLastSessionHeaderWins) {
    camera.reply(
        "/CGI/CameraLogin",
        {{.body = kGoodBody, .headers = {"Set-Cookie: Session=1", "Set-Cookie: Session=2", "X: Other=3"}}});
    log_of_login(0);
    EXPECT_EQ(stored("SESSION_KEY"), "2");
}

TEST_F(Login, FollowsARedirect) {
    camera.reply("/CGI/CameraLogin", {{.status = 302, .headers = {"Location: /CGI/Elsewhere"}}});
    camera.reply("/CGI/Elsewhere", {good_reply("77")});
    log_of_login(0);
    EXPECT_EQ(stored("SESSION_KEY"), "77");
    EXPECT_EQ(camera.requests().size(), 2u);
}

TEST_F(Login, TheHttpStatusIsIgnored) {
    CameraReply reply = good_reply("55");
    reply.status = 500;
    camera.reply("/CGI/CameraLogin", {reply});
    log_of_login(0);
    EXPECT_EQ(stored("SESSION_KEY"), "55");
}

TEST_F(Login, AMissingFirmwareVersionIsNoFailure) {
    CameraReply reply = good_reply("55");
    reply.body = "<CameraLogin></CameraLogin>";
    camera.reply("/CGI/CameraLogin", {reply});
    const std::string log = log_of_login(0);
    const std::string end =
        "(login)session_key=55\n"
        "res !=CURLE_OK: platform/Z55/agent/loginout,line 285\n"
        "login get FWVER failure\n";
    ASSERT_GE(log.size(), end.size());
    EXPECT_EQ(log.substr(log.size() - end.size()), end);
    EXPECT_EQ(stored("SESSION_KEY"), "55");
    EXPECT_FALSE(file_exists("/tmp/FWVER.txt"));
}

TEST_F(Login, AnEmptyFirmwareVersionIsStoredEmpty) {
    CameraReply reply = good_reply("55");
    reply.body = "<FWVER></FWVER>";
    camera.reply("/CGI/CameraLogin", {reply});
    write_file("/tmp/FWVER.txt", "old");
    log_of_login(0);
    EXPECT_TRUE(file_exists("/tmp/FWVER.txt"));
    EXPECT_EQ(read_file("/tmp/FWVER.txt"), "");
}

TEST_F(Login, AFirmwareFileThatCannotBeOpenedIsSkipped) {
    std::filesystem::create_directory("/tmp/FWVER.txt");
    camera.reply("/CGI/CameraLogin", {good_reply("55")});
    log_of_login(0);
    EXPECT_EQ(stored("SESSION_KEY"), "55");
    std::filesystem::remove("/tmp/FWVER.txt");
}

TEST_F(Login, ReplacesTheFirmwareFileWhole) {
    camera.reply("/CGI/CameraLogin", {good_reply("55")});
    write_file("/tmp/FWVER.txt", "old");
    std::ifstream reader("/tmp/FWVER.txt");
    log_of_login(0);
    std::string text;
    reader >> text;
    EXPECT_EQ(text, "old") << "whoever reads meanwhile sees neither an empty one nor half of one";
    EXPECT_EQ(read_file("/tmp/FWVER.txt"), "V1.07.03");
    EXPECT_EQ(mode_of("/tmp/FWVER.txt"), 0644u);
    const Texts synced = intercept::synced();
    EXPECT_EQ(std::count(synced.begin(), synced.end(), "/tmp/FWVER.txt.veloagent-new"), 1);
}

TEST_F(Login, DoesNotFollowALinkInTheFirmwareFilesPlace) {
    camera.reply("/CGI/CameraLogin", {good_reply("55")});
    write_file("/tmp/victim", "untouched");
    ASSERT_EQ(symlink("/tmp/victim", "/tmp/FWVER.txt"), 0);
    log_of_login(0);
    EXPECT_EQ(read_file("/tmp/victim"), "untouched");
    EXPECT_EQ(read_file("/tmp/FWVER.txt"), "V1.07.03");
}

TEST_F(Login, OfTwoThreadsAtOnceLeavesOneWholeFirmwareFile) {
    camera.reply("/CGI/CameraLogin", {good_reply("55")});
    log_of_login(0);
    errors_of([] {
        output_of([] {
            std::vector<std::thread> threads;
            for (int i = 0; i < 2; i++) {
                threads.emplace_back([] {
                    for (int round = 0; round < 20; round++) {
                        EXPECT_EQ(login(), 0);
                        EXPECT_EQ(read_file("/tmp/FWVER.txt"), "V1.07.03");
                    }
                });
            }
            for (std::thread &thread : threads) thread.join();
        });
    });
    EXPECT_FALSE(file_exists("/tmp/FWVER.txt.veloagent-new"));
}

TEST_F(Login, WithoutASessionHeaderFails) {
    camera.reply("/CGI/CameraLogin", kGoodBody);
    set_conf("SESSION_KEY", "old");
    EXPECT_LOG(log_of_login(-1),
               "Loginning..\n"
               "***(login) curl_perform starts ***\n"
               "header_callback_func, buffer=HTTP/1.1 200 Any\r\n\n"
               "header_callback_func, buffer=Content-Length: 50\r\n\n"
               "header_callback_func, buffer=\r\n\n"
               "write_callback_func, buffer=<CameraLogin><FWVER>V1.07.03</FWVER></CameraLogin>\n"
               "***(login) curl_perform ends ***\n"
               "getSessionKeyInHeader\n");
    EXPECT_EQ(stored("SESSION_KEY"), "old");
    EXPECT_FALSE(file_exists("/tmp/FWVER.txt"));
}

TEST_F(Login, ATransferErrorFails) {
    camera.go_away();
    EXPECT_LOG(log_of_login(-1),
               "Loginning..\n"
               "***(login) curl_perform starts ***\n"
               "***(login) curl_perform ends ***\n"
               "res !=CURLE_OK: platform/Z55/agent/loginout,line 263\n"
               "***(login) error: curl perform failed. error code = 7***\n\n"
               "After res !=CURLE_OK: platform/Z55/agent/loginout,line 266\n");
}

TEST_F(Login, WithoutALibcurlHandleFails) {
    intercept::refuse_next("curl_easy_init");
    EXPECT_LOG(log_of_login(-1),
               "Loginning..\n"
               "res !=CURLE_OK: platform/Z55/agent/loginout,line 263\n"
               "***(login) error: curl perform failed. error code = 2***\n\n"
               "After res !=CURLE_OK: platform/Z55/agent/loginout,line 266\n");
}

TEST_F(Login, SettingsAreCutToTheirBuffers) {
    camera.reply("/CGI/CameraLogin", {good_reply("1")});
    set_conf("hostIP", "127.0.0.1:080809");  // the 15 characters before the 9 are the camera
    set_conf("ITEM_DEVICE", std::string(10'000, 'd'));
    set_conf("ITEM_STREAM", std::string(10'000, 's'));
    set_conf("PASSWORD", std::string(10'000, 'p'));
    log_of_login(0);
    EXPECT_EQ(camera.seen(), (Texts{"POST /CGI/CameraLogin?Device=" + std::string(31, 'd') + "&Stream=" +
                                    std::string(31, 's') + " -\npassword=" + std::string(31, 'p')}));
}

// --- The settings' messages: the file vanishes between two of them.

struct SettingRow {
    const char *name;
    const char *text;
    const char *host, *device, *stream;  // the globals that are loaded by then
};

class MissingSetting : public AgentTest, public testing::WithParamInterface<SettingRow> {
  protected:
    static constexpr char kText[] =
        "hostIP=127.0.0.1:9\nITEM_DEVICE=Cam\nITEM_STREAM=Live\nPASSWORD=secret\n";
};

TEST_P(MissingSetting, EndsTheLoginWithItsText) {
    EXPECT_TRUE(at_some_vanishing(kText, [] {
        int result = 0;
        const std::string log = output_of([&] { result = login(); });
        return result == -1 && log == std::string("Loginning..\n") + GetParam().text;
    }));
}

TEST_P(MissingSetting, EndsTheLoadingOfTheGlobalsWithItsText) {
    EXPECT_TRUE(at_some_vanishing(kText, [] { return output_of(load_login_settings) == GetParam().text; }));
    EXPECT_STREQ(hostIP, GetParam().host);
    EXPECT_STREQ(device, GetParam().device);
    EXPECT_STREQ(stream, GetParam().stream);
    EXPECT_STREQ(password, "");
}

INSTANTIATE_TEST_SUITE_P(Setting, MissingSetting,
                         testing::Values(SettingRow{.name = "Host",
                                                    .text = "read hostIP in login() failed.\n",
                                                    .host = "",
                                                    .device = "",
                                                    .stream = ""},
                                         SettingRow{.name = "Device",
                                                    .text = "read device in login() failed.\n",
                                                    .host = "127.0.0.1:9",
                                                    .device = "",
                                                    .stream = ""},
                                         SettingRow{.name = "Stream",
                                                    .text = "read stream in login() failed.\n",
                                                    .host = "127.0.0.1:9",
                                                    .device = "Cam",
                                                    .stream = ""},
                                         SettingRow{.name = "Password",
                                                    .text = "read password in login() failed.\n",
                                                    .host = "127.0.0.1:9",
                                                    .device = "Cam",
                                                    .stream = "Live"}),
                         by_name);

class LoginGlobals : public AgentTest {};

TEST_F(LoginGlobals, AreLoadedAndCutToTheirSizes) {
    write_conf({{"hostIP", "192.168.100.200:80"},
                {"ITEM_DEVICE", std::string(100, 'd')},
                {"ITEM_STREAM", std::string(100, 's')},
                {"PASSWORD", std::string(100, 'p')}});
    EXPECT_EQ(output_of(load_login_settings), "");
    EXPECT_STREQ(hostIP, "192.168.100.200");
    EXPECT_EQ(device, std::string(29, 'd'));
    EXPECT_EQ(stream, std::string(29, 's'));
    EXPECT_EQ(password, std::string(29, 'p'));
}

// --- The key in the header.

struct HeaderRow {
    const char *name, *header;
    std::optional<std::string> key;
};

class KeyInHeader : public testing::TestWithParam<HeaderRow> {};

TEST_P(KeyInHeader, Is) {
    const HeaderRow &row = GetParam();
    const std::string log = output_of([&] { EXPECT_EQ(getSessionKeyInHeader(row.header), row.key); });
    const std::string missing = row.key ? "" : "Failed : getSessionKeyInHeader, \"Session=\" not found.\n";
    EXPECT_EQ(log, std::string("getSessionKeyInHeader\nheader:") + row.header + "\n" + missing);
}

INSTANTIATE_TEST_SUITE_P(
    Row, KeyInHeader,
    testing::Values(
        HeaderRow{.name = "EndsAtASemicolon",
                  .header = "Set-Cookie: Session=0123456789; path=/\r\n",
                  .key = "0123456789"},
        HeaderRow{.name = "EndsAtTheLineEnd", .header = "Set-Cookie: Session=42\r\n", .key = "42"},
        HeaderRow{.name = "EveryDigitIsPartOfIt", .header = "Session=9876543210;", .key = "9876543210"},
        HeaderRow{.name = "EndsAtABlank", .header = "Set-Cookie: Session=42 43", .key = "42"},
        HeaderRow{.name = "EndsAtTheEnd", .header = "Session=1", .key = "1"},
        HeaderRow{.name = "EndsAtALetter", .header = "Session=42a7", .key = "42"},
        HeaderRow{.name = "AnyFirstCharacterIsTaken", .header = "Session=x42y", .key = "x42"},
        HeaderRow{.name = "DirectlyFollowedByALineEnd", .header = "Set-Cookie: Session=\r\n", .key = "\r"},
        HeaderRow{.name = "NothingFollows", .header = "Session=", .key = ""},
        HeaderRow{.name = "TheFirstOneCounts", .header = "Session=1 Session=2", .key = "1"},
        HeaderRow{.name = "OtherCookie", .header = "Set-Cookie: session=1\r\n", .key = std::nullopt},
        HeaderRow{.name = "EmptyHeader", .header = "", .key = std::nullopt}),
    by_name);

TEST(KeyInNoHeader, IsNone) {
    EXPECT_EQ(output_of([] { EXPECT_FALSE(getSessionKeyInHeader(nullptr)); }), "getSessionKeyInHeader\n");
}

// --- getSessionKey: tries until a key is held.

class SessionKey : public Login {
  protected:
    static std::string log_of_getting() {
        std::string log;
        errors_of([&] { log = output_of([] { EXPECT_EQ(getSessionKey(session_key_buffer), 0); }); });
        return log;
    }
    // The lines of `log` without those of the logins.
    static std::string without_logins(const std::string &log) {
        std::string rest;
        bool in_login = false;
        for (size_t start = 0; start < log.size();) {
            const size_t end = std::min(log.find('\n', start), log.size() - 1) + 1;
            const std::string line = log.substr(start, end - start);
            if (line == "Loginning..\n") in_login = true;
            if (line.find("(getSessionKey)") != std::string::npos || line.rfind("Session key=", 0) == 0 ||
                line == "read session key in config failed.\n") {
                in_login = false;
            }
            if (!in_login) rest += line;
            start = end;
        }
        return rest;
    }
};

TEST_F(SessionKey, IsHeldAfterOneLogin) {
    camera.reply("/CGI/CameraLogin", {good_reply("998877")});
    EXPECT_EQ(without_logins(log_of_getting()),
              "Getting Session Key...\n"
              "***(getSessionKey) login succeeded. *** \n"
              "Session key=998877\n");
    EXPECT_EQ(read_file("/tmp/cookie.txt"), " Set-Cookie: Session=998877\n");
    EXPECT_EQ(session_key(), "998877");
    EXPECT_STREQ(session_key_buffer, "998877");
    EXPECT_TRUE(fake_os::pauses().empty());
}

TEST_F(SessionKey, IsTriedForEvery5SecondsAndTheStoredOneCleared) {
    camera.go_away();
    set_conf("SESSION_KEY", "stale");
    Texts keys_between;
    fake_os::on_pause([&](const std::string &) {
        keys_between.push_back(stored("SESSION_KEY"));
        if (keys_between.size() == 3) {
            camera.reply("/CGI/CameraLogin", {good_reply("7")});
            camera.come_back();
        }
    });
    const std::string failed =
        "Getting Session Key...\n"
        "*** (getSessionKey) login failed, waiting for next try... ***\n";
    EXPECT_EQ(without_logins(log_of_getting()), failed + failed + failed +
                                                    "Getting Session Key...\n"
                                                    "***(getSessionKey) login succeeded. *** \n"
                                                    "Session key=7\n");
    EXPECT_EQ(fake_os::pauses(), (Texts{"5 s", "5 s", "5 s"}));
    EXPECT_EQ(keys_between, (Texts{"", "", ""}));
    EXPECT_EQ(session_key(), "7");
}

constexpr char kTriedTwice[] =
    "Getting Session Key...\n"
    "***(getSessionKey) login succeeded. *** \n"
    "*** (getSessionKey) failed, waiting for next try... ***\n"
    "Getting Session Key...\n"
    "***(getSessionKey) login succeeded. *** \n"
    "Session key=7\n";

TEST_F(SessionKey, WithoutItsLineInTheFileTheLoginIsRepeated) {
    camera.reply("/CGI/CameraLogin", {good_reply("7")});
    const std::string whole = conf_text();
    write_conf({{"hostIP", FakeCamera::kHost},
                {"ITEM_DEVICE", "Cam"},
                {"ITEM_STREAM", "Live"},
                {"PASSWORD", "secret"}});
    fake_os::on_pause([&](const std::string &) { write_file("/tmp/working/VeloAgent.conf", whole); });
    EXPECT_EQ(without_logins(log_of_getting()), kTriedTwice);
    EXPECT_EQ(fake_os::pauses(), (Texts{"5 s"}));
}

TEST_F(SessionKey, AKeyThatIsOnlyALineEndIsNotKept) {
    camera.reply("/CGI/CameraLogin",
                 {{.body = kGoodBody, .headers = {"Set-Cookie: Session="}}, good_reply("7")});
    EXPECT_EQ(without_logins(log_of_getting()), kTriedTwice);
    EXPECT_EQ(session_key(), "7");
}

// The login stores the key, then the firmware version: in between the configuration is changed.
class StoredKeyChanged : public SessionKey {
  protected:
    void SetUp() override {
        SessionKey::SetUp();
        camera.reply("/CGI/CameraLogin", {good_reply("3"), good_reply("7")});
    }
    // Runs getSessionKey with `change` made once the first login has stored its key.
    std::string log_with(const std::function<void()> &change) {
        fake_os::on_pause([this](const std::string &) {
            key_at_pause = stored("SESSION_KEY");
            write_conf(whole);
        });
        intercept::on_sync([&](const std::string &path) {
            if (path == "/tmp/FWVER.txt.veloagent-new" && stored("SESSION_KEY") == "3") change();
        });
        return without_logins(log_of_getting());
    }
    const Conf whole = {{"hostIP", FakeCamera::kHost},
                        {"ITEM_DEVICE", "Cam"},
                        {"ITEM_STREAM", "Live"},
                        {"PASSWORD", "secret"},
                        {"SESSION_KEY", ""}};
    std::string key_at_pause = "none";
};

TEST_F(StoredKeyChanged, AKeyOfANullTextIsClearedAndTheLoginRepeated) {
    EXPECT_EQ(log_with([] { set_conf("SESSION_KEY", "(null)12"); }), kTriedTwice);
    EXPECT_EQ(key_at_pause, "");
    EXPECT_EQ(session_key(), "7");
}

TEST_F(StoredKeyChanged, AKeyThatOnlyBeginsLikeOneIsKept) {
    EXPECT_EQ(log_with([] { set_conf("SESSION_KEY", "(nul)"); }),
              "Getting Session Key...\n***(getSessionKey) login succeeded. *** \nSession key=(nul)\n");
    EXPECT_EQ(session_key(), "(nul)");
}

TEST_F(StoredKeyChanged, AKeyThatCannotBeReadBackIsTriedAgain) {
    const std::string log = log_with([] { remove_conf(); });
    std::string expected = kTriedTwice;
    expected.insert(expected.find("*** (getSessionKey) failed"), "read session key in config failed.\n");
    EXPECT_EQ(log, expected);
    EXPECT_EQ(fake_os::pauses(), (Texts{"5 s"}));
}

TEST_F(SessionKey, IsCutTo29Characters) {
    camera.reply("/CGI/CameraLogin", {good_reply(std::string(40, '1'))});
    log_of_getting();
    EXPECT_EQ(session_key(), std::string(29, '1'));
    EXPECT_EQ(read_file("/tmp/cookie.txt"), " Set-Cookie: Session=" + std::string(29, '1') + "\n");
}

// --- A configuration that cannot be written.

class UnwrittenKey : public SessionKey {
  protected:
    void SetUp() override {
        SessionKey::SetUp();
        set_conf("SESSION_KEY", "expired");
    }
};

TEST_F(UnwrittenKey, IsUsedFromMemory) {
    camera.reply("/CGI/CameraLogin", {good_reply("7")});
    const ReadOnlyConf read_only;
    EXPECT_EQ(without_logins(log_of_getting()),
              "Getting Session Key...\n"
              "***(getSessionKey) login succeeded. *** \n"
              "Session key=7\n");
    EXPECT_EQ(stored("SESSION_KEY"), "expired");
    EXPECT_EQ(configured_session_key(), "7");
    EXPECT_EQ(session_key(), "7");
    EXPECT_EQ(read_file("/tmp/cookie.txt"), " Set-Cookie: Session=7\n");
}

TEST_F(UnwrittenKey, OfAFailedLoginIsNoKeyAtAll) {
    camera.go_away();
    Texts keys_between;
    fake_os::on_pause([&](const std::string &) {
        keys_between.push_back(configured_session_key().value_or("none"));
        camera.reply("/CGI/CameraLogin", {good_reply("7")});
        camera.come_back();
    });
    const ReadOnlyConf read_only;
    log_of_getting();
    EXPECT_EQ(keys_between, (Texts{""}));
    EXPECT_EQ(session_key(), "7");
}

TEST_F(UnwrittenKey, IsForgottenWithTheNextThatIsWritten) {
    camera.reply("/CGI/CameraLogin", {good_reply("7"), good_reply("8")});
    {
        const ReadOnlyConf read_only;
        log_of_getting();
    }
    EXPECT_EQ(configured_session_key(), "7") << "the file holds one that has expired";
    log_of_getting();
    EXPECT_EQ(stored("SESSION_KEY"), "8");
    set_conf("SESSION_KEY", "9");
    EXPECT_EQ(configured_session_key(), "9");
}

TEST_F(UnwrittenKey, OfWhiteSpaceIsTriedAgainAsAWrittenOne) {
    camera.reply("/CGI/CameraLogin",
                 {{.body = kGoodBody, .headers = {"Set-Cookie: Session= "}}, good_reply("7")});
    const ReadOnlyConf read_only;
    EXPECT_EQ(without_logins(log_of_getting()), kTriedTwice);
}

TEST_F(UnwrittenKey, IsCutTo29Characters) {
    camera.reply("/CGI/CameraLogin", {good_reply(std::string(40, '1'))});
    const ReadOnlyConf read_only;
    log_of_getting();
    EXPECT_EQ(session_key(), std::string(29, '1'));
    EXPECT_EQ(configured_session_key(), std::string(29, '1'));
}

class ConfiguredKey : public AgentTest {};

TEST_F(ConfiguredKey, IsTheFilesCutTo29Characters) {
    EXPECT_EQ(configured_session_key(), std::nullopt);
    write_conf({{"hostIP", "1.2.3.4"}});
    EXPECT_EQ(configured_session_key(), "");
    write_conf({{"SESSION_KEY", std::string(40, '5')}});
    EXPECT_EQ(configured_session_key(), std::string(29, '5'));
}

// --- The cookie file.

class CookieFile : public AgentTest {};

TEST_F(CookieFile, IsItsOwnersAlone) {
    write_conf({{"COOKIE", "/tmp/cookie.txt"}});
    write_file("/tmp/cookie.txt", "old");
    chmod("/tmp/cookie.txt", 0644);
    std::ifstream reader("/tmp/cookie.txt");
    save_cookie_file("42");
    EXPECT_EQ(mode_of("/tmp/cookie.txt"), 0600u);
    std::string text;
    reader >> text;
    EXPECT_EQ(text, "old") << "who had the old one open cannot read the new key";
    const Texts synced = intercept::synced();
    EXPECT_EQ(std::count(synced.begin(), synced.end(), "/tmp/cookie.txt.veloagent-new"), 1);
}

TEST_F(CookieFile, IsNotWrittenThroughALink) {
    write_conf({{"COOKIE", "/tmp/cookie.txt"}});
    write_file("/tmp/victim", "untouched");
    unlink("/tmp/cookie.txt");
    ASSERT_EQ(symlink("/tmp/victim", "/tmp/cookie.txt"), 0);
    save_cookie_file("42");
    EXPECT_EQ(read_file("/tmp/victim"), "untouched");
    EXPECT_EQ(read_file("/tmp/cookie.txt"), " Set-Cookie: Session=42\n");
}

TEST_F(CookieFile, ReplacesWhatWasThere) {
    write_conf({{"COOKIE", "/tmp/cookie.txt"}});
    write_file("/tmp/cookie.txt", std::string(100, 'x'));
    save_cookie_file("42");
    EXPECT_EQ(read_file("/tmp/cookie.txt"), " Set-Cookie: Session=42\n");
}

TEST_F(CookieFile, IsNotWrittenWithoutAPath) {
    const auto files = [] {
        size_t count = 0;
        for ([[maybe_unused]] const auto &file : std::filesystem::directory_iterator("/tmp")) count++;
        return count;
    };
    const size_t before = files();
    write_conf({{"COOKIE", ""}});
    save_cookie_file("42");
    write_conf({{"hostIP", "1.2.3.4"}});
    save_cookie_file("42");
    write_conf({{"COOKIE", "/tmp/no/such/folder/cookie"}});
    save_cookie_file("42");
    EXPECT_EQ(files(), before);
}

TEST_F(CookieFile, ItsPathMayBeOneCharacter) {
    unlink("c");
    write_conf({{"COOKIE", "c"}});
    save_cookie_file("42");
    EXPECT_EQ(read_file("c"), " Set-Cookie: Session=42\n");
}

TEST_F(CookieFile, ItsPathIsCutTo31Characters) {
    const std::string path = "/tmp/" + std::string(26, 'c');
    write_conf({{"COOKIE", path + "more"}});
    save_cookie_file("42");
    EXPECT_TRUE(file_exists(path));
    EXPECT_FALSE(file_exists(path + "more"));
}

// --- The hook.

class KeyHook : public AgentTest {};

TEST_F(KeyHook, AnEmptyKeyIsNullNotAnEmptyText) {
    EXPECT_EQ(copy_session_key(), nullptr);
    EXPECT_EQ(session_key(), std::nullopt);
}

TEST_F(KeyHook, EveryoneGetsACopyOfHisOwn) {
    set_session_key("12345");
    char *first = get_session_key();
    char *second = get_session_key();
    ASSERT_TRUE(first != nullptr && second != nullptr);
    EXPECT_NE(second, first);
    EXPECT_STREQ(first, "12345");
    first[29] = 'x';  // the copy has 30 bytes, whatever the key's length
    EXPECT_STREQ(second, "12345");
    std::free(first);
    std::free(second);
}

TEST_F(KeyHook, OneCharacterIsAKey) {
    set_session_key("1");
    char *copy = get_session_key();
    EXPECT_STREQ(copy, "1");
    std::free(copy);
}

TEST_F(KeyHook, ClearingEmptiesAll30Bytes) {
    set_session_key(std::string(29, '1'));
    clear_session_key();
    EXPECT_EQ(std::string(session_key_buffer, 30), std::string(30, '\0'));
    EXPECT_EQ(session_key(), std::nullopt);
}

TEST_F(KeyHook, IsAskedEachTime) {
    set_session_key("1");
    get_session_key = [] { return strdup("hooked"); };
    EXPECT_EQ(session_key(), "hooked");
    EXPECT_EQ(wait_for_session_key(), "hooked");
}

TEST_F(KeyHook, ItsCopiesAreFreed) {
    get_session_key = [] { return static_cast<char *>(std::calloc(1, 30)); };
    expect_nothing_left([] { EXPECT_EQ(session_key(), ""); });
}

TEST_F(KeyHook, WithoutMemoryForACopyTheKeyIsStillHeld) {
    set_session_key("12345");
    intercept::refuse_next("malloc");
    EXPECT_EQ(session_key(), "12345");
    intercept::refuse_next("malloc");
    EXPECT_EQ(wait_for_session_key(), "12345");
    EXPECT_EQ(output_of([] {
                  intercept::refuse_next("malloc");
                  EXPECT_EQ(copy_session_key(), nullptr);
              }),
              "not enough memory for a session key\n");
}

// Whether the thread sleeps.
bool sleeps(pid_t thread) {
    const std::string status = read_file("/proc/self/task/" + std::to_string(thread) + "/status");
    return status.find("State:\tS") != std::string::npos;
}

[[noreturn]] void exit_while_a_thread_waits() {
    static std::atomic<pid_t> waiter{0};
    std::thread([] {
        waiter = gettid();
        wait_for_session_key();
    }).detach();
    eventually([] { return waiter != 0 && sleeps(waiter); });
    alarm(20);
    std::exit(3);
}

TEST_F(KeyHook, WhoWaitsForAKeyDoesNotHoldTheProcessesEnd) {
    EXPECT_EXIT(exit_while_a_thread_waits(), testing::ExitedWithCode(3), "");
}

// The hook may have no key for long: who waits asks it once for each key that is stored.
TEST_F(KeyHook, WhoWaitsForAKeySleepsMeanwhile) {
    static std::atomic<int> asked{0};
    static std::atomic<bool> has_key{false};
    asked = 0;
    has_key = false;
    char stored[kSessionKeySize];
    store_session_key(stored, "1");
    get_session_key = [] {
        const bool found = has_key;
        asked++;
        return found ? strdup("hooked") : nullptr;
    };
    std::thread waiter([] { EXPECT_EQ(wait_for_session_key(), "hooked"); });
    EXPECT_TRUE(eventually([] { return asked >= 1; }));
    store_session_key(stored, "2");
    EXPECT_TRUE(eventually([] { return asked >= 2; }));
    has_key = true;
    store_session_key(stored, "3");
    waiter.join();
    EXPECT_EQ(asked, 3);
}

TEST_F(KeyHook, CookieText) {
    EXPECT_EQ(session_cookie("12"), "Session=12");
    EXPECT_EQ(session_cookie(""), "Session=");
}

TEST_F(SessionKey, WhoeverWaitsGetsItWhenItArrives) {
    camera.reply("/CGI/CameraLogin", {good_reply("4711")});
    std::atomic<int> got{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; i++) {
        waiters.emplace_back([&] {
            if (wait_for_session_key() == "4711") got++;
        });
    }
    log_of_getting();
    for (std::thread &waiter : waiters) waiter.join();
    EXPECT_EQ(got, 4);
}

TEST_F(SessionKey, IsNeverSeenTornWhileItChanges) {
    camera.on_request([this, n = 0](const CameraRequest &) mutable {
        return good_reply(n++ % 2 == 0 ? std::string(29, '1') : std::string(29, '2'));
    });
    std::atomic<bool> done{false};
    std::atomic<int> torn{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 4; i++) {
        readers.emplace_back([&] {
            while (!done) {
                const auto key = session_key();
                if (key && *key != std::string(29, '1') && *key != std::string(29, '2')) torn++;
            }
        });
    }
    for (int i = 0; i < 10; i++) {
        clear_session_key();
        log_of_getting();
    }
    done = true;
    for (std::thread &reader : readers) reader.join();
    EXPECT_EQ(torn, 0);
}

}  // namespace
