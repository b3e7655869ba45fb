// Snapshots: a photo taken now, the newest thumbnail, and everything that can go wrong with either.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "wire.h"

namespace {

namespace fs = std::filesystem;

constexpr char kMedia[] = "/tmp/fuse_d/DCIM/100MEDIA/";
constexpr char kPicture[] = "/tmp/picture.jpg";

json snapshot(const Desk &desk, int mode) {
    fs::remove(kPicture);
    return desk.call("get_camera_snapshot", {mode}, {{"save", kPicture}});
}

void write_file(const std::string &name, const std::string &text) {
    std::ofstream(kMedia + name) << text;
}

using Sent = std::vector<std::string>;

std::string action(const std::string &name) {
    return "POST /CGI/RemoteControl \r\n\r\n<RemoteControl><Action>" + name + "</Action></RemoteControl>";
}

void clear_media() {
    fs::remove_all(kMedia);
    fs::create_directories(kMedia);
}

}  // namespace

class Photo : public testing::TestWithParam<int> {};

TEST_P(Photo, ArrivesWhole) {
    DeskOptions options;
    options.camera_config = {{"photo_bytes", GetParam()}, {"photo_delay_ms", 0}};
    Desk desk(options);
    desk.fault({{"endpoint", "photo"}, {"kind", "pieces"}, {"pieces", 7}, {"ms", 1}});
    const long since = desk.last_request();
    const json taken = snapshot(desk, 0);
    EXPECT_EQ(taken["result"], 0);
    EXPECT_EQ(taken["word0"], 0);
    EXPECT_EQ(taken["kind"], 11);
    EXPECT_EQ(taken["byte8"], 0);
    EXPECT_EQ(taken["word3"], 1);
    EXPECT_EQ(taken["word4"], 0);
    EXPECT_EQ(taken["word5"], 0);
    EXPECT_GT(taken["capture_time"], 1'500'000'000);
    const std::string picture = file_text(kPicture);
    EXPECT_EQ(taken["length"], picture.size());
    if (GetParam() > 0) {
        EXPECT_EQ(picture.size(), static_cast<size_t>(GetParam()));
    }
    EXPECT_EQ(picture.substr(0, 2), "\xFF\xD8");
    EXPECT_EQ(picture.substr(picture.size() - 2), "\xFF\xD9");
    const Sent sent = commands(desk, since);
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(sent[0], get("CameraStatus?Recording"));
    EXPECT_EQ(sent[1], action("PHOTO_TO_MOBILE"));
    EXPECT_EQ(desk.requests("photo", since).at(0)["cookie"], "");
    const double pause = desk.requests("photo", since).at(0)["time_ms"].get<double>() -
                         desk.requests("RemoteControl", since).at(0)["time_ms"].get<double>();
    EXPECT_GE(pause * desk.speed(), 3000);
}

INSTANTIATE_TEST_SUITE_P(Snapshot, Photo, testing::Values(0, 5'000'000),
                         [](const auto &row) { return row.param > 0 ? "Large" : "AsItIs"; });

TEST(Snapshot, NoneIsTakenWhileTheCameraRecords) {
    Desk desk;
    desk.set_status("Recording", "1");
    const long since = desk.last_request();
    EXPECT_EQ(snapshot(desk, 0)["result"], 1);
    EXPECT_EQ(commands(desk, since), Sent{get("CameraStatus?Recording")});
}

TEST(Snapshot, TheCamerasErrorsArePassedOn) {
    DeskOptions options;
    options.camera_config = {{"photo_delay_ms", 0}};
    Desk desk(options);
    const json recording = {{"endpoint", "CameraStatus"}, {"match", "?Recording"}, {"count", 1}};
    const json photo = {{"endpoint", "RemoteControl"}, {"match", "PHOTO_TO_MOBILE"}, {"count", 1}};
    const auto faulty = [&](json order, const json &fault) {
        order.update(fault);
        desk.fault(order);
        return snapshot(desk, 0)["result"];
    };
    EXPECT_EQ(faulty(recording, {{"kind", "reset"}}), -1);
    EXPECT_EQ(faulty(recording, {{"kind", "error_code"}, {"value", -5}}), -5);
    EXPECT_EQ(faulty(photo, {{"kind", "error_code"}, {"value", -6}}), -6);
    EXPECT_EQ(faulty(photo, {{"kind", "http_status"}, {"status", 500}}), -1);
    EXPECT_EQ(faulty(photo, {{"kind", "body"}, {"text", "<A>PHOTO_TO_MOBILE</A>"}}), -1);
    EXPECT_EQ(faulty({{"endpoint", "photo"}, {"count", 1}}, {{"kind", "truncate"}}), -1);
    EXPECT_EQ(snapshot(desk, 0)["result"], 0);
}

TEST(Snapshot, ReadsTheNewestThumbnail) {
    Desk desk;
    clear_media();
    for (const char *name : {"AAAA0001.JPG", "AAAA0001.THM", "AAAA0002.JPG", "AAAA0002.THM"})
        write_file(name, std::string("this is ") + name);
    const json taken = snapshot(desk, 1);
    EXPECT_EQ(taken["result"], 0);
    EXPECT_EQ(file_text(kPicture), "this is AAAA0002.THM");
    desk.wait_for_log("JPG_File_is:AAAA0002.THM\n");
    EXPECT_EQ(desk.call("get_camera_snapshot", {1}, {{"save", kPicture}, {"buffer", 100000}})["length"], 20);
}

TEST(Snapshot, FiveThousandFilesAreNoTrouble) {
    Desk desk;
    clear_media();
    for (int i = 0; i < 5000; i++) {
        char name[16];
        std::snprintf(name, sizeof name, "A%07d.%s", i, i % 2 == 0 ? "THM" : "JPG");
        write_file(name, std::to_string(i));
    }
    EXPECT_EQ(snapshot(desk, 1)["result"], 0);
    EXPECT_EQ(file_text(kPicture), "4998");
}

TEST(Snapshot, LocalFailuresAreMinusNinetyNine) {
    Desk desk;
    clear_media();
    EXPECT_EQ(snapshot(desk, 1)["result"], -99) << "an empty folder";
    write_file("AAAA0001.JPG", "x");
    EXPECT_EQ(snapshot(desk, 1)["result"], -99) << "no thumbnail";
    fs::create_directory(std::string(kMedia) + "AAAA0002.THM");
    EXPECT_EQ(snapshot(desk, 1)["result"], -99) << "a folder";
    fs::remove(std::string(kMedia) + "AAAA0002.THM");
    fs::create_symlink("/nowhere", std::string(kMedia) + "AAAA0003.THM");
    EXPECT_EQ(snapshot(desk, 1)["result"], -99) << "a dead link";
    desk.wait_for_log("open file failed\n");
    fs::remove_all(kMedia);
    EXPECT_EQ(snapshot(desk, 1)["result"], -99) << "no folder";
    EXPECT_EQ(desk.call("get_camera_snapshot", {1}, {{"null_record", true}})["result"], -1);
}
