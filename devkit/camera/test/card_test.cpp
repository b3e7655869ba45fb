// What the camera does on its SD card: recordings, photos, formatting; and the upgrade.

#include <algorithm>
#include <fstream>

#include "camera_fixture.h"

namespace {

class CardTest : public CameraTest {
  protected:
    std::filesystem::path media(const std::string &name) const {
        return card / "DCIM" / "100MEDIA" / name;
    }
    // Takes a photo and returns what its path on the camera answers once it is there.
    std::string photo() {
        const std::string reply = remote("<Action>PHOTO_TO_MOBILE</Action>");
        const auto from = reply.find("<URI>") + 5, to = reply.find("</URI>");
        if (to == reply.npos) return reply;
        const std::string uri = reply.substr(from, to - from);
        EXPECT_LT(uri.size(), 32u);
        EXPECT_LE(reply.size(), 128u);
        EXPECT_TRUE(eventually([&] { return cgi_reply(uri).starts_with("HTTP/1.1 200"); }));
        return cgi(uri);
    }
};

// Whether the bytes are a chain of JPEG segments from the first marker to the picture data, ended by the last
// one.
bool is_jpeg(const std::string &bytes) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(bytes.at(i)); };
    if (bytes.size() < 200 || !bytes.starts_with("\xFF\xD8") || !bytes.ends_with("\xFF\xD9")) return false;
    for (std::size_t at = 2; at + 4 < bytes.size(); at += 2 + byte(at + 2) * 256u + byte(at + 3)) {
        if (byte(at) != 0xFF) return false;
        if (byte(at + 1) == 0xDA) return true;
    }
    return false;
}

TEST_F(CardTest, a_recording_grows_until_it_is_stopped) {
    EXPECT_EQ(cgi("/CGI/VideoList?start=1&end=1"), "<VideoList></VideoList>");
    EXPECT_EQ(remote("<Action>VIDEO_START</Action>"),
              "<RemoteControl><Action>VIDEO_START</Action></RemoteControl>");
    EXPECT_EQ(cgi("/CGI/CameraStatus?Recording"), "<CameraStatus><Recording>1</Recording></CameraStatus>");
    EXPECT_TRUE(eventually([&] { return std::filesystem::file_size(media("AAAA0001.MP4")) > 60000; }));
    EXPECT_EQ(remote("<Action>VIDEO_STOP</Action>"),
              "<RemoteControl><Action>VIDEO_STOP</Action></RemoteControl>");
    EXPECT_EQ(cgi("/CGI/CameraStatus?Recording"), "<CameraStatus><Recording>0</Recording></CameraStatus>");
    EXPECT_TRUE(is_jpeg(file_text(media("AAAA0001.THM"))));
    EXPECT_TRUE(is_jpeg(file_text(media("AAAA0001.JPG"))));
    remote("<Action>VIDEO_START</Action>");
    EXPECT_EQ(cgi("/CGI/VideoList?start=1&end=1"),
              "<VideoList><Video><Name>AAAA0002.MP4</Name></Video></VideoList>");
    EXPECT_EQ(state()["recording"], json({{"active", true}, {"name", "AAAA0002.MP4"}}));
}

TEST_F(CardTest, a_recording_is_refused_or_quietly_ignored_as_configured) {
    control("PATCH", "/config", {{"recording_refuse", -7}});
    EXPECT_EQ(remote("<Action>VIDEO_START</Action>"),
              "<RemoteControl><ErrorCode>-7</ErrorCode></RemoteControl>");
    control("PATCH", "/config", {{"recording_refuse", 0}, {"recording_ignore", 1}});
    for (const std::string recording : {"0", "1"}) {
        EXPECT_EQ(remote("<Action>VIDEO_START</Action>"),
                  "<RemoteControl><Action>VIDEO_START</Action></RemoteControl>");
        EXPECT_EQ(state()["status"]["Recording"], recording);
    }
}

TEST_F(CardTest, without_a_card_nothing_is_stored) {
    control("PATCH", "/status", {{"SD", "0"}});
    for (const std::string action : {"VIDEO_START", "PHOTO_TO_MOBILE", "FORMATSD"})
        EXPECT_EQ(remote("<Action>" + action + "</Action>"),
                  "<RemoteControl><ErrorCode>-5</ErrorCode></RemoteControl>");
}

TEST_F(CardTest, a_photo_has_exactly_the_ordered_size) {
    control("PATCH", "/config", {{"photo_delay_ms", 0}});
    const std::string plain = photo();
    EXPECT_TRUE(is_jpeg(plain));
    // Around the largest comment segment, whose end must not leave a rest too small for another one.
    for (std::size_t bytes = plain.size() + 65525; bytes < plain.size() + 65555; ++bytes) {
        control("PATCH", "/config", {{"photo_bytes", bytes}});
        const std::string padded = photo();
        EXPECT_EQ(padded.size(), bytes);
        EXPECT_TRUE(is_jpeg(padded)) << bytes;
    }
    control("PATCH", "/config", {{"photo_bytes", 5242880}});
    const std::string bytes = photo();
    EXPECT_EQ(bytes.size(), 5242880u);
    EXPECT_EQ(control_bytes("/photo-last"), bytes);
    EXPECT_EQ(state()["photos"], 32);
}

TEST_F(CardTest, a_photo_appears_after_its_delay_and_not_during_a_recording) {
    control("PATCH", "/config", {{"photo_delay_ms", 1e9}});
    EXPECT_EQ(remote("<Action>PHOTO_TO_MOBILE</Action>"),
              "<RemoteControl><Action>PHOTO_TO_MOBILE</Action><URI>/DCIM/100MEDIA/AAAA0001.JPG</URI></"
              "RemoteControl>");
    EXPECT_TRUE(cgi_reply("/DCIM/100MEDIA/AAAA0001.JPG").starts_with("HTTP/1.1 404"));
    remote("<Action>VIDEO_START</Action>");
    EXPECT_EQ(remote("<Action>PHOTO_TO_MOBILE</Action>"),
              "<RemoteControl><ErrorCode>-6</ErrorCode></RemoteControl>");
}

TEST_F(CardTest, only_the_card_is_served) {
    std::ofstream(folder / "private") << "x";
    std::ofstream(card / "open") << "y";
    EXPECT_TRUE(cgi_reply("/../private").starts_with("HTTP/1.1 404"));
    EXPECT_EQ(cgi("/open"), "y");
}

TEST_F(CardTest, formatting_empties_the_card) {
    std::ofstream(card / ".ota.tmp") << "x";
    remote("<Action>VIDEO_START</Action>");
    EXPECT_EQ(remote("<Action>FORMATSD</Action>"),
              "<RemoteControl><ErrorCode>-6</ErrorCode></RemoteControl>");
    remote("<Action>VIDEO_STOP</Action>");
    EXPECT_EQ(remote("<Action>FORMATSD</Action>"),
              "<RemoteControl><Action>FORMATSD</Action></RemoteControl>");
    EXPECT_TRUE(std::filesystem::is_empty(card));
}

TEST_F(CardTest, an_upgrade_walks_to_the_new_firmware) {
    control("PATCH", "/config", {{"upgrade", {{"steps", 3}, {"step_ms", 4000}}}});
    EXPECT_EQ(remote("<Action>UPGRADE_FW</Action>"),
              "<RemoteControl><Action>UPGRADE_FW</Action></RemoteControl>");
    EXPECT_EQ(remote("<Action>UPGRADE_FW</Action>"),
              "<RemoteControl><ErrorCode>-6</ErrorCode></RemoteControl>");
    std::vector<std::string> seen;
    EXPECT_TRUE(eventually([&] {
        const json now = state();
        const std::string text = now["status"]["FwUpgradeStatus"].get<std::string>() + " " +
                                 now["status"]["FwDownloadProgress"].get<std::string>();
        if (seen.empty() || seen.back() != text) seen.push_back(text);
        return now["restarts"] == 1;
    }));
    const std::vector<std::string> walk{"Downloading 0",   "Downloading 33", "Downloading 66",
                                        "Downloading 100", "Upgrading 100",  "Idle 0"};
    // A machine under load may sleep through a step; nothing may show out of order, and the end always does.
    auto next = walk.begin();
    for (const auto &text : seen) {
        next = std::find(next, walk.end(), text);
        ASSERT_NE(next, walk.end()) << text;
    }
    EXPECT_EQ(next + 1, walk.end());
    EXPECT_GE(seen.size(), 4u);
    EXPECT_EQ(state()["config"]["fwver"], "1.0.4");
    session = login();
    EXPECT_EQ(session, "2000002");
    EXPECT_EQ(cgi("/CGI/CameraStatus?NewFirmwareVersion"),
              "<CameraStatus><NewFirmwareVersion>1.0.5</NewFirmwareVersion></CameraStatus>");
    EXPECT_TRUE(eventually([&] { return file_text(folder / "reboots") == "reboot\n"; }));
}

TEST_F(CardTest, an_upgrade_fails_in_the_ordered_way) {
    const struct {
        const char *outcome, *status, *progress;
        int restarts;
    } rows[] = {{"fail_download", "Idle", "0", 0},
                {"fail_upgrade", "Idle", "0", 1},
                {"stuck", "Downloading", "50", 1}};
    for (const auto &row : rows) {
        control("PATCH", "/config",
                {{"upgrade", {{"steps", 4}, {"step_ms", 400}, {"outcome", row.outcome}}}});
        session = login();
        remote("<Action>UPGRADE_FW</Action>");
        EXPECT_TRUE(eventually([&] {
            const json now = state();
            return now["restarts"] == row.restarts && now["status"]["FwUpgradeStatus"] == row.status &&
                   now["status"]["FwDownloadProgress"] == row.progress;
        })) << row.outcome;
    }
    EXPECT_EQ(state()["config"]["fwver"], "1.0.3");
}

}  // namespace
