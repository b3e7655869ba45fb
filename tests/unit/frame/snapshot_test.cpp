#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <ostream>
#include <string>
#include <thread>

#include "agent_test.h"
#include "camera_script.h"
#include "exports.h"
#include "intercept.h"
#include "leaks.h"
#include "marked_log.h"
#include "shared.h"

namespace {

constexpr char kFolder[] = "/tmp/fuse_d/DCIM/100MEDIA/";
constexpr char kRecording[] = "CameraStatus?Recording";
constexpr char kPhoto[] = "PHOTO_TO_MOBILE";
constexpr int kTakePhoto = 0;
constexpr int kNewestThumbnail = 1;

// What the status query prints until it has its answer, and after a good one.
constexpr char kStatusLog[] =
    "\n***(get camera status) curl_perform starts ***\n"
    "\n***(get camera status) curl_perform ends ***\n"
    "\n***(After clean) curl_perform ends ***\n";
constexpr char kStatusDoneLog[] = "CURL: PHOTO_TO_MOBILE: 0\n";

class Snapshot : public CameraTest {
  protected:
    void SetUp() override {
        CameraTest::SetUp();
        std::filesystem::remove_all(kFolder);
        std::filesystem::create_directories(kFolder);
        std::memset(&record, 0xEE, sizeof record);
        record.data = nullptr;
        record.length = 0;
    }
    void TearDown() override {
        std::free(record.data);
    }
    void camera_answers(const CameraScript &changed) {
        CameraScript script = {
            {kRecording, {{.body = "<Recording>0</Recording>"}}},
            {kPhoto, {{.body = "<Action>PHOTO_TO_MOBILE</Action><URI>/DCIM/P0001.JPG</URI>"}}},
            {"/DCIM/P0001.JPG", {{.body = "a picture"}}},
        };
        for (const auto &[command, replies] : changed) script[command] = replies;
        play_script(camera, script);
    }
    std::string log_of(int mode, int expected_result) {
        return marked_log(output_of([&] { EXPECT_EQ(get_camera_snapshot(&record, mode), expected_result); }));
    }
    std::string picture() const {
        return std::string(reinterpret_cast<const char *>(record.data), record.length);
    }
    static void add_file(const std::string &name, const std::string &text) {
        write_file(kFolder + name, text);
    }
    // What an earlier call has left in the record.
    void hold_picture(const std::string &text) {
        record.data = static_cast<uint8_t *>(std::malloc(text.size()));
        record.length = static_cast<uint32_t>(text.size());
        text.copy(reinterpret_cast<char *>(record.data), text.size());
    }
    snapshot_record record;
};

// --- Both modes

TEST_F(Snapshot, NullRecordGivesMinusOne) {
    EXPECT_EQ(output_of([] { EXPECT_EQ(get_camera_snapshot(nullptr, kTakePhoto), -1); }), "");
    EXPECT_TRUE(camera.seen().empty());
}

// The record as the SDK expects it, padding left alone.
TEST_F(Snapshot, RecordToTheByte) {
    for (const int mode : {kNewestThumbnail, kTakePhoto}) {
        camera_answers({});
        add_file("A.THM", "thumbnail");
        fake_os::set_wall(1700000123);
        snapshot_record expected;
        std::memset(&expected, 0xEE, sizeof expected);
        std::memset(&record, 0xEE, sizeof record);
        record.data = nullptr;
        log_of(mode, 0);
        expected.word0 = 0;
        expected.kind = 11;
        expected.byte8 = 0;
        expected.word3 = 1;
        expected.word4 = 0;
        expected.word5 = 0;
        expected.capture_time = 1700000123;
        expected.length = 9;
        expected.data = record.data;
        EXPECT_EQ(std::memcmp(&record, &expected, sizeof record), 0) << mode;
        std::free(record.data);
        record.data = nullptr;
    }
}

TEST_F(Snapshot, FixedFieldsAreSetOnFailureToo) {
    log_of(kNewestThumbnail, -99);
    EXPECT_EQ(record.kind, 11);
    EXPECT_EQ(record.word3, 1);
    EXPECT_EQ(record.capture_time, 1700000000);
}

TEST_F(Snapshot, WaitsForASessionKey) {
    camera.reply("/CGI/CameraStatus", "<Recording>1</Recording>");
    set_session_key("");
    int result = 0;
    output_of([&] {
        std::thread asking([&] { result = get_camera_snapshot(&record, kTakePhoto); });
        log_in(camera, "777");
        asking.join();
    });
    EXPECT_EQ(result, 1);
    EXPECT_EQ(camera.seen().at(1), "GET /CGI/CameraStatus?Recording Session=777");
}

// --- A photo taken now

TEST_F(Snapshot, PhotoIsTakenAndFetched) {
    camera_answers({});
    store_shared(res, 7);
    EXPECT_EQ(log_of(kTakePhoto, 0), std::string(kStatusLog) + kStatusDoneLog +
                                         "[ACTION]\n"
                                         "\n***(photo to mobile) curl_perform starts ***\n"
                                         "realloc memory, size: 9\n"
                                         "\n***(photo to mobile) curl_perform ends ***\n"
                                         "CURL: PHOTO_TO_MOBILE: 0\n");
    EXPECT_EQ(picture(), "a picture");
    EXPECT_EQ(camera.seen(), (Texts{"GET /CGI/CameraStatus?Recording Session=12345",
                                    "POST /CGI/RemoteControl Session=12345\n"
                                    "\r\n\r\n<RemoteControl><Action>PHOTO_TO_MOBILE</Action></RemoteControl>",
                                    "GET /DCIM/P0001.JPG -"}));
    EXPECT_EQ(fake_os::pauses(), Texts{"3000 ms"});
    EXPECT_EQ(load_shared(res), 0);
}

TEST_F(Snapshot, PhotoIsFetchedAfterThePause) {
    camera_answers({});
    size_t requests_before = 0;
    fake_os::on_pause([&](const std::string &) { requests_before = camera.seen().size(); });
    log_of(kTakePhoto, 0);
    EXPECT_EQ(requests_before, 2u);
}

TEST_F(Snapshot, PhotoReplacesTheSdksBuffer) {
    camera_answers({});
    record.data = static_cast<uint8_t *>(std::malloc(100));
    record.length = 100;
    log_of(kTakePhoto, 0);
    EXPECT_EQ(picture(), "a picture");
}

TEST_F(Snapshot, PhotoInManyPieces) {
    std::string whole;
    Texts pieces;
    for (int i = 0; i < 300; i++) {
        pieces.push_back(std::string(17 + static_cast<size_t>(i), static_cast<char>(i)));
        whole += pieces.back();
    }
    camera_answers({{"/DCIM/P0001.JPG", {{.chunks = pieces}}}});
    log_of(kTakePhoto, 0);
    EXPECT_EQ(picture(), whole);
    EXPECT_EQ(record.data[record.length], '\0');
}

TEST_F(Snapshot, PhotoOf5Megabytes) {
    std::string whole(5 * 1024 * 1024, 'p');
    for (size_t i = 0; i < whole.size(); i += 1000) whole[i] = static_cast<char>(i / 1000);
    camera_answers({{"/DCIM/P0001.JPG", {{.body = whole}}}});
    log_of(kTakePhoto, 0);
    EXPECT_EQ(record.length, whole.size());
    EXPECT_TRUE(picture() == whole);
}

TEST_F(Snapshot, UriIsCutAt31Characters) {
    const std::string uri = "/DCIM/" + std::string(25, 'u');
    camera_answers(
        {{kPhoto, {{.body = "PHOTO_TO_MOBILE<URI>" + uri + "more</URI>"}}}, {uri, {{.body = "cut"}}}});
    log_of(kTakePhoto, 0);
    EXPECT_EQ(picture(), "cut");
}

TEST_F(Snapshot, NoPhotoWhileTheCameraRecords) {
    camera_answers({{kRecording, {{.body = "<Recording>1</Recording>"}}}});
    EXPECT_EQ(log_of(kTakePhoto, 1), std::string(kStatusLog) + kStatusDoneLog);
    EXPECT_EQ(commands(camera), Texts{kRecording});
    EXPECT_TRUE(fake_os::pauses().empty());
}

TEST_F(Snapshot, RecordingsValueIsReturnedAsItIs) {
    camera_answers({{kRecording, {{.body = "<Recording>-7</Recording>"}}}});
    log_of(kTakePhoto, -7);
}

TEST_F(Snapshot, StatusThatGetsNoAnswer) {
    camera_answers({{kRecording, {{.hang_up = true}}}});
    EXPECT_LOG(log_of(kTakePhoto, -1), std::string(kStatusLog) +
                                           "res !=CURLE_OK: platform/Z55/z55cgi,line 227\n"
                                           "After res !=CURLE_OK: platform/Z55/z55cgi,line 229\n"
                                           "curl_res = -1 != 0 \n --platform/Z55/ak_model,line <N>--\n");
    EXPECT_EQ(commands(camera), Texts{kRecording});
}

TEST_F(Snapshot, StatusThatTheCameraRefuses) {
    camera_answers({{kRecording, {refused(-20)}}});
    EXPECT_EQ(log_of(kTakePhoto, -20),
              std::string(kStatusLog) + kStatusDoneLog + "VIDEO_START ErrorCode: -20\n");
    EXPECT_EQ(load_shared(res), -20);
    EXPECT_EQ(commands(camera), Texts{kRecording});
}

struct PhotoRow {
    const char *name;
    CameraReply reply;
    int result;
    const char *log;  // after the request's mark
};

void PrintTo(const PhotoRow &row, std::ostream *out) {
    *out << row.name;
}

class PhotoFailure : public Snapshot, public testing::WithParamInterface<PhotoRow> {};

TEST_P(PhotoFailure, IsReturned) {
    camera_answers({{kPhoto, {GetParam().reply}}});
    EXPECT_EQ(log_of(kTakePhoto, GetParam().result),
              std::string(kStatusLog) + kStatusDoneLog + "[ACTION]\n" + GetParam().log);
    EXPECT_EQ(commands(camera), (Texts{kRecording, kPhoto}));
    EXPECT_TRUE(fake_os::pauses().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Replies, PhotoFailure,
    testing::Values(
        PhotoRow{
            .name = "Refused", .reply = refused(-8), .result = -8, .log = "PHOTO_TO_MOBILE  ErrorCode: -8\n"},
        PhotoRow{.name = "NoAnswer",
                 .reply = {.hang_up = true},
                 .result = -1,
                 .log = "res !=CURLE_OK, res = 52. (platform/Z55/z55cgi,line 75\n)"
                        "After res !=CURLE_OK: platform/Z55/z55cgi,line 77\n"
                        "PHOTO_TO_MOBILE  ErrorCode: 0\n"},
        PhotoRow{.name = "BadStatus",
                 .reply = {.body = "<ErrorCode>-5</ErrorCode>", .status = 500},
                 .result = -5,
                 .log = "status != 200, status code = 500  (platform/Z55/z55cgi: 82)\n"
                        "PHOTO_TO_MOBILE  ErrorCode: -5\n"},
        PhotoRow{.name = "NothingAtAll",
                 .reply = {.body = "ok"},
                 .result = 0,
                 .log = "PHOTO_TO_MOBILE  ErrorCode: 0\n"},
        PhotoRow{.name = "NoUri", .reply = {.body = "PHOTO_TO_MOBILE"}, .result = -1, .log = ""},
        PhotoRow{
            .name = "EmptyUri", .reply = {.body = "PHOTO_TO_MOBILE<URI></URI>"}, .result = -1, .log = ""},
        PhotoRow{.name = "UriWithoutItsSlash",
                 .reply = {.body = "PHOTO_TO_MOBILE<URI>DCIM/P0001.JPG</URI>"},
                 .result = -1,
                 .log = ""},
        PhotoRow{.name = "UriOfAnotherHost",
                 .reply = {.body = "PHOTO_TO_MOBILE<URI>@127.0.0.1:8080/x</URI>"},
                 .result = -1,
                 .log = ""},
        PhotoRow{.name = "UriOfAnotherPort",
                 .reply = {.body = "PHOTO_TO_MOBILE<ErrorCode>44</ErrorCode><URI>0/x</URI>"},
                 .result = 44,
                 .log = ""},
        PhotoRow{.name = "NoUriButAnErrorCode",
                 .reply = {.body = "PHOTO_TO_MOBILE<ErrorCode>44</ErrorCode>"},
                 .result = 44,
                 .log = ""}),
    by_name);

TEST_F(Snapshot, PhotoThatCannotBeFetched) {
    camera_answers({{"/DCIM/P0001.JPG", {{.body = "not found", .status = 404}}}});
    const std::string log = log_of(kTakePhoto, -1);
    EXPECT_NE(log.find("status != 200, status code = 404  (platform/Z55/z55cgi: 174)\n"), std::string::npos);
}

TEST_F(Snapshot, PhotoThatBreaksOffLeavesTheOldOne) {
    camera_answers({{"/DCIM/P0001.JPG", {{.raw = "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nhalf"}}}});
    hold_picture("old");
    log_of(kTakePhoto, -1);
    EXPECT_EQ(picture(), "old");
}

// The SDK may show the picture that it has while the next one comes.
TEST_F(Snapshot, OldPictureStaysWhileThePhotoComes) {
    hold_picture("old");
    std::string meanwhile;
    camera_answers({{"/DCIM/P0001.JPG", {{.body = "a picture", .before = [&](const CameraRequest &) {
                                              meanwhile = picture();
                                          }}}}});
    log_of(kTakePhoto, 0);
    EXPECT_EQ(meanwhile, "old");
    EXPECT_EQ(picture(), "a picture");
}

// --- The newest thumbnail

TEST_F(Snapshot, NewestThumbnailIsTheLastByName) {
    for (const char *name : {"AAAA0001.JPG", "AAAA0001.THM", "AAAA0002.JPG"}) add_file(name, "other");
    add_file("AAAA0002.THM", "the newest");
    EXPECT_EQ(log_of(kNewestThumbnail, 0), "JPG_File_is:AAAA0002.THM\n");
    EXPECT_EQ(picture(), "the newest");
    EXPECT_TRUE(camera.seen().empty());
}

TEST_F(Snapshot, EveryOtherModeReadsTheThumbnail) {
    add_file("A.THM", "x");
    for (const int mode : {-1, 2, 1000}) EXPECT_EQ(log_of(mode, 0), "JPG_File_is:A.THM\n");
}

struct NamesRow {
    const char *name;
    Texts files;
    const char *chosen;  // "" for none
};

void PrintTo(const NamesRow &row, std::ostream *out) {
    *out << row.name;
}

class ThumbnailNames : public Snapshot, public testing::WithParamInterface<NamesRow> {};

TEST_P(ThumbnailNames, AreChosenFrom) {
    for (const std::string &file : GetParam().files) add_file(file, file);
    const std::string chosen = GetParam().chosen;
    EXPECT_EQ(log_of(kNewestThumbnail, chosen.empty() ? -99 : 0),
              chosen.empty() ? "" : "JPG_File_is:" + chosen + "\n");
    if (chosen.empty()) return;
    EXPECT_EQ(picture(), chosen);
}

INSTANTIATE_TEST_SUITE_P(
    Folders, ThumbnailNames,
    testing::Values(
        NamesRow{.name = "Empty", .files = {}, .chosen = ""},
        NamesRow{.name = "OnlyPictures", .files = {"A.JPG", "B.JPG"}, .chosen = ""},
        NamesRow{.name = "ExtensionMayGoOn", .files = {"A.THM", "B.THMX"}, .chosen = "B.THMX"},
        NamesRow{.name = "FirstDotDecides", .files = {"A.THM", "B.x.THM"}, .chosen = "A.THM"},
        NamesRow{.name = "FirstDotDecidesForIt", .files = {"A.JPG", "B.THM.old"}, .chosen = "B.THM.old"},
        NamesRow{.name = "CapitalsOnly", .files = {"A.THM", "B.thm"}, .chosen = "A.THM"},
        NamesRow{.name = "ShorterExtension", .files = {"B.TH"}, .chosen = ""},
        NamesRow{.name = "NoDot", .files = {"THM"}, .chosen = ""},
        NamesRow{.name = "NothingBeforeTheDot", .files = {".THM"}, .chosen = ".THM"},
        NamesRow{.name = "ByByteValue", .files = {"Z.THM", "a.THM"}, .chosen = "a.THM"},
        NamesRow{.name = "LongerNameIsLater", .files = {"A1.THM", "A.THM"}, .chosen = "A1.THM"}),
    by_name);

TEST_F(Snapshot, NoMediaFolder) {
    std::filesystem::remove_all(kFolder);
    EXPECT_EQ(log_of(kNewestThumbnail, -99), "");
}

TEST_F(Snapshot, FolderOf5000Files) {
    for (int i = 0; i < 5000; i++) {
        add_file("F" + std::to_string(10000 + i) + (i % 2 ? ".THM" : ".JPG"), std::to_string(i));
    }
    log_of(kNewestThumbnail, 0);
    EXPECT_EQ(picture(), "4999");
}

TEST_F(Snapshot, SdksBufferGrows) {
    const std::string large(200000, 'L');
    add_file("A.THM", large);
    record.data = static_cast<uint8_t *>(std::malloc(1));
    record.length = 1;
    log_of(kNewestThumbnail, 0);
    EXPECT_TRUE(picture() == large);
}

TEST_F(Snapshot, LeavesNothingBehindButThePicture) {
    camera_answers({});
    add_file("A.THM", "thumbnail");
    for (const int mode : {kNewestThumbnail, kTakePhoto}) expect_nothing_left([=, this] { log_of(mode, 0); });
}

TEST_F(Snapshot, EmptyThumbnail) {
    add_file("A.THM", "");
    log_of(kNewestThumbnail, 0);
    EXPECT_EQ(record.length, 0u);
    EXPECT_NE(record.data, nullptr);
}

TEST_F(Snapshot, ThumbnailThatCannotBeOpened) {
    ASSERT_EQ(symlink("/tmp/nowhere", (kFolder + std::string("A.THM")).c_str()), 0);
    EXPECT_EQ(log_of(kNewestThumbnail, -99), "JPG_File_is:A.THM\nopen file failed\n");
    EXPECT_EQ(record.data, nullptr);
}

struct PlantedRow {
    const char *name;
    int (*plant)(const char *path);
};

void PrintTo(const PlantedRow &row, std::ostream *out) {
    *out << row.name;
}

// Whoever writes the card must not get at other files, nor hold or starve the SDK's thread.
class PlantedThumbnail : public Snapshot, public testing::WithParamInterface<PlantedRow> {};

TEST_P(PlantedThumbnail, IsNotRead) {
    write_file("/tmp/secret", "of the host");
    ASSERT_EQ(GetParam().plant((kFolder + std::string("A.THM")).c_str()), 0);
    hold_picture("old");
    EXPECT_EQ(log_of(kNewestThumbnail, -99), "JPG_File_is:A.THM\nopen file failed\n");
    EXPECT_EQ(picture(), "old");
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, PlantedThumbnail,
    testing::Values(PlantedRow{.name = "Folder", .plant = [](const char *path) { return mkdir(path, 0755); }},
                    PlantedRow{.name = "Fifo", .plant = [](const char *path) { return mkfifo(path, 0644); }},
                    PlantedRow{.name = "Link",
                               .plant = [](const char *path) { return symlink("/tmp/secret", path); }},
                    PlantedRow{.name = "LargerThan32MiB",
                               .plant =
                                   [](const char *path) {
                                       write_file(path, "");
                                       return truncate(path, 32 * 1024 * 1024 + 1);
                                   }}),
    by_name);

TEST_F(Snapshot, ThumbnailOf32MiBIsRead) {
    add_file("A.THM", "");
    ASSERT_EQ(truncate((kFolder + std::string("A.THM")).c_str(), 32 * 1024 * 1024), 0);
    log_of(kNewestThumbnail, 0);
    EXPECT_EQ(record.length, 32u * 1024 * 1024);
}

TEST_F(Snapshot, ThumbnailThatMemoryIsTooSmallFor) {
    add_file("A.THM", "x");
    record.data = static_cast<uint8_t *>(std::malloc(1));
    record.length = 1;
    intercept::refuse_next("malloc");
    EXPECT_EQ(log_of(kNewestThumbnail, -99), "JPG_File_is:A.THM\nrealloc memory failed\n");
    EXPECT_EQ(record.length, 1u);
}

TEST_F(Snapshot, ThumbnailThatIsReadShort) {
    add_file("A.THM", "x");
    hold_picture("old");
    intercept::refuse_next("fread");
    EXPECT_EQ(log_of(kNewestThumbnail, -99), "JPG_File_is:A.THM\nfread file failed\n");
    EXPECT_EQ(picture(), "old");
}

TEST_F(Snapshot, MediaFolderThatCannotBeRead) {
    std::filesystem::remove_all(kFolder);
    write_file(std::string(kFolder, std::strlen(kFolder) - 1), "");
    EXPECT_EQ(log_of(kNewestThumbnail, -99),
              std::string("folder not read, ") + kFolder + ":Not a directory\n");
    std::filesystem::remove(std::string(kFolder, std::strlen(kFolder) - 1));
}

// None stays open, whatever came of the call.
TEST_F(Snapshot, FilesAreClosed) {
    add_file("A.THM", "x");
    const auto open_files = [] {
        const std::filesystem::directory_iterator all("/proc/self/fd");
        return std::distance(begin(all), end(all));
    };
    log_of(kNewestThumbnail, 0);
    const auto before = open_files();
    for (const char *failing : {"none", "malloc", "fread"}) {
        intercept::refuse_next(failing);
        log_of(kNewestThumbnail, failing == std::string("none") ? 0 : -99);
    }
    EXPECT_EQ(open_files(), before);
}

}  // namespace
