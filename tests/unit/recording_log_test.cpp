#include "recording_log.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <ostream>
#include <string>
#include <thread>

#include "agent_test.h"
#include "camera_script.h"
#include "exports.h"
#include "intercept.h"
#include "marked_log.h"

namespace {

constexpr char kFlag[] = "/tmp/recording.flag";
constexpr char kLog[] = "/tmp/recording.log";
constexpr char kVictim[] = "/tmp/victim";

// The log's path is kept from its first use on: run with others in one process, only the first sees its own.
class RecordingLog : public CameraTest {
  protected:
    void SetUp() override {
        CameraTest::SetUp();
        set_conf("RECORDING_FLAG_FILE", kFlag);
        set_conf("RECORDING_LOG_FILE", kLog);
        unlink(kFlag);
        unlink(kLog);
        std::memset(g_dir, 0, sizeof g_dir);
        setenv("TZ", "UTC", 1);
        tzset();
    }
    void newest_video(const std::string &name) {
        camera.reply("/CGI/VideoList", "<VideoList><Name>" + name + "</Name></VideoList>");
    }
    static int ask_newest(char (&name)[28]) {
        return get_latest_mp4("/anything", name);
    }
};

// --- The flag file

TEST_F(RecordingLog, FlagFileIsMadeEmptyAndDeleted) {
    write_file(kFlag, "old");
    EXPECT_EQ(output_of(touch_recording_flag_temp_file), "touch_recording_flag_temp_file\ntouch succeeded\n");
    EXPECT_TRUE(file_exists(kFlag));
    EXPECT_EQ(read_file(kFlag), "");
    const mode_t mask = umask(0);
    output_of(touch_recording_flag_temp_file);
    umask(mask);
    struct stat flag {};
    EXPECT_EQ(stat(kFlag, &flag), 0);
    EXPECT_EQ(flag.st_mode & 07777, 0666U);
    EXPECT_EQ(output_of(remove_recording_flag_temp_file),
              "remove_recording_flag_temp_file\nremove succeeded\n");
    EXPECT_FALSE(file_exists(kFlag));
    EXPECT_EQ(output_of(remove_recording_flag_temp_file), "remove_recording_flag_temp_file\nremove failed\n");
}

TEST_F(RecordingLog, WithoutItsKeyTheFlagFileFails) {
    set_conf("RECORDING_FLAG_FILE", "");
    EXPECT_EQ(recording_flag_path(), "");
    EXPECT_EQ(output_of(touch_recording_flag_temp_file), "touch_recording_flag_temp_file\ntouch failed\n");
    EXPECT_EQ(output_of(remove_recording_flag_temp_file), "remove_recording_flag_temp_file\nremove failed\n");
    remove_conf();
    EXPECT_EQ(recording_flag_path(), "");
}

TEST_F(RecordingLog, FlagPathIsReadAnewAndCutAt39Characters) {
    const std::string longest = "/tmp/" + std::string(34, 'f');
    set_conf("RECORDING_FLAG_FILE", longest);
    EXPECT_EQ(recording_flag_path(), longest);
    set_conf("RECORDING_FLAG_FILE", longest + "x");
    EXPECT_EQ(recording_flag_path(), longest);
}

TEST_F(RecordingLog, FlagFileOutlivesAPowerCut) {
    output_of(touch_recording_flag_temp_file);
    const Texts made = intercept::synced();
    EXPECT_EQ(std::count(made.begin(), made.end(), "/tmp"), 1) << "the folder knows the file";
    output_of(remove_recording_flag_temp_file);
    const Texts removed = intercept::synced();
    EXPECT_EQ(std::count(removed.begin(), removed.end(), "/tmp"), 2);
}

TEST_F(RecordingLog, LinkInTheFlagFilesPlaceIsReplaced) {
    write_file(kVictim, "precious");
    ASSERT_EQ(symlink(kVictim, kFlag), 0);
    EXPECT_EQ(output_of(touch_recording_flag_temp_file), "touch_recording_flag_temp_file\ntouch succeeded\n");
    EXPECT_EQ(read_file(kVictim), "precious");
    EXPECT_EQ(read_file(kFlag), "");
}

// --- Times

TEST_F(RecordingLog, TimesAreLocal) {
    EXPECT_EQ(recording_time_text(0), "19700101000000");
    EXPECT_EQ(recording_time_text(1700000000), "20231114221320");
    setenv("TZ", "XYZ-9", 1);
    tzset();
    EXPECT_EQ(recording_time_text(1700000000), "20231115071320");
    EXPECT_EQ(recording_time_text(4102444799), "21000101085959");  // beyond a 4-byte time
}

// --- The log line

TEST_F(RecordingLog, LineOfAFinishedRecording) {
    newest_video("DCIM/100MEDIA/A0001.MP4");
    const std::string log = output_of([] { write_recording_log(1700000000, 1700000025, "12345"); });
    EXPECT_EQ(read_file(kLog), "20231114221320_25_DCIM/100MEDIA/A0001.MP4\n");
    EXPECT_STREQ(g_dir, "/tmp/fuse_d/DCIM/100MEDIA/");
    EXPECT_EQ(marked_log(log),
              "starttime: 1700000000, endtime: 1700000025, len: 25\n"
              "[QUERY VideoList?start=1&end=1]\n"
              "(get_latest_mp4) latest mp4 is: DCIM/100MEDIA/A0001.MP4\n"
              "get latest mp4 file: DCIM/100MEDIA/A0001.MP4 \n"
              "buffer:20231114221320_25_DCIM/100MEDIA/A0001.MP4\n"
              "Recording log:20231114221320_25_DCIM/100MEDIA/A0001.MP4\n");
    output_of([] { write_recording_log(1700000100, 1700000099, "12345"); });
    EXPECT_EQ(read_file(kLog),
              "20231114221320_25_DCIM/100MEDIA/A0001.MP4\n20231114221500_-1_DCIM/100MEDIA/A0001.MP4\n");
}

TEST_F(RecordingLog, MediaFolderThatIsSetStays) {
    newest_video("A");
    for (const char *folder : {"/mine/", "/"}) {
        std::strcpy(g_dir, folder);
        output_of([] { write_recording_log(1, 2, "12345"); });
        EXPECT_STREQ(g_dir, folder);
    }
}

TEST_F(RecordingLog, LineWithoutAName) {
    camera.reply("/CGI/VideoList", "<ErrorCode>7</ErrorCode>");
    const std::string log = output_of([] { write_recording_log(1700000000, 1700000003, "12345"); });
    EXPECT_EQ(read_file(kLog), "20231114221320_3_\n");
    EXPECT_EQ(marked_log(log),
              "starttime: 1700000000, endtime: 1700000003, len: 3\n"
              "[QUERY VideoList?start=1&end=1]\n"
              "getvideolist failed due to polling failing.Errorcode: 7 \n"
              "buffer:20231114221320_3_\n"
              "Recording log:20231114221320_3_\n");
}

TEST_F(RecordingLog, NameIsCutAt27Characters) {
    newest_video("123456789012345678901234567890");
    output_of([] { write_recording_log(1700000000, 1700000001, "12345"); });
    EXPECT_EQ(read_file(kLog), "20231114221320_1_123456789012345678901234567\n");
}

TEST_F(RecordingLog, LongestLineIsWhole) {
    newest_video("123456789012345678901234567");
    constexpr time_t kFar = 67767976233532799;  // the last second of year 2147483647
    output_of([] { write_recording_log(kFar, kFar - 2147483647, "12345"); });
    EXPECT_EQ(read_file(kLog), "21474836471231235959_-2147483647_123456789012345678901234567\n");
}

TEST_F(RecordingLog, LogThatCannotBeOpenedIsSkipped) {
    newest_video("A");
    set_conf("RECORDING_LOG_FILE", "/tmp/no/such/folder.log");
    const std::string log = output_of([] { write_recording_log(1700000000, 1700000003, "12345"); });
    EXPECT_EQ(marked_log(log),
              "starttime: 1700000000, endtime: 1700000003, len: 3\n"
              "[QUERY VideoList?start=1&end=1]\n"
              "(get_latest_mp4) latest mp4 is: A\n"
              "get latest mp4 file: A \n"
              "buffer:20231114221320_3_A\n"
              "Recording log:20231114221320_3_A\n"
              "fopen failed, platform/Z55/video_recording:No such file or directory\n");
}

TEST_F(RecordingLog, LineIsOnTheDiskWhenItCountsAsWritten) {
    newest_video("A");
    write_file(kLog, "a line\n");
    output_of([] { write_recording_log(1, 2, "12345"); });
    EXPECT_EQ(intercept::synced(), Texts{kLog});
    output_of(cancel_last_recording_log);
    EXPECT_EQ(intercept::synced(), (Texts{kLog, kLog}));
}

TEST_F(RecordingLog, NewLogOutlivesAPowerCut) {
    newest_video("A");
    output_of([] { write_recording_log(1, 2, "12345"); });
    EXPECT_EQ(intercept::synced(), (Texts{"/tmp", kLog})) << "the folder knows the file";
}

TEST_F(RecordingLog, PieceOfALineIsGoneFromTheDiskBeforeTheNextOneComes) {
    newest_video("A");
    write_file(kLog, "a line\n2023");
    output_of([] { write_recording_log(1, 2, "12345"); });
    EXPECT_EQ(intercept::synced(), (Texts{kLog, kLog}));
}

struct TornRow {
    const char *name;
    std::string left;  // by the power cut
    std::string kept;
};

void PrintTo(const TornRow &row, std::ostream *out) {
    *out << row.name;
}

class TornRecordingLog : public RecordingLog, public testing::WithParamInterface<TornRow> {};

TEST_P(TornRecordingLog, NextLineIsWhole) {
    newest_video("A");
    write_file(kLog, GetParam().left);
    output_of([] { write_recording_log(1, 2, "12345"); });
    EXPECT_EQ(read_file(kLog), GetParam().kept + "19700101000001_1_A\n");
    output_of([] { write_recording_log(1, 3, "12345"); });
    EXPECT_EQ(read_file(kLog), GetParam().kept + "19700101000001_1_A\n19700101000001_2_A\n");
}

const std::string kWhole = "20231114221320_25_A0001.MP4\n";
const std::string kLongestPiece = "20231114221320_" + std::string(48, '1');

INSTANTIATE_TEST_SUITE_P(
    Row, TornRecordingLog,
    testing::Values(
        TornRow{"whole lines", kWhole + kWhole, kWhole + kWhole},
        TornRow{"the first byte of a second line", kWhole + "2", kWhole},
        TornRow{"all but the end of a second line", kWhole + "20231114221320_25_A0002.MP4", kWhole},
        TornRow{"all but the end of the longest line", kWhole + kLongestPiece, kWhole},
        TornRow{"a piece of the first line", "2023", ""}, TornRow{"a first line of one byte", "2", ""},
        TornRow{"the lowest digit", kWhole + "0", kWhole}, TornRow{"the highest digit", kWhole + "9", kWhole},
        TornRow{"what stands before the digits", kWhole + "/1", kWhole + "/1"},
        TornRow{"what stands behind the digits", kWhole + ":1", kWhole + ":1"},
        TornRow{"zeros for a second line", kWhole + std::string(28, '\0'), kWhole},
        TornRow{"a zero behind what is no digit", kWhole + std::string("X\0", 2),
                kWhole + std::string("X\0", 2)},
        TornRow{"zeros for the longest line", kWhole + std::string(64, '\0'), kWhole},
        TornRow{"zeros for the first line", std::string(64, '\0'), ""},
        TornRow{"what is a byte too long for a line", std::string(65, '1'), std::string(65, '1')},
        TornRow{"what is too long for a line", std::string(66, '1'), std::string(66, '1')},
        TornRow{"the X of a cancelled one", kWhole + "X", kWhole + "X"}),
    by_name);

TEST_F(RecordingLog, LogThatCannotBeReadIsLeftAsItIs) {
    newest_video("A");
    write_file(kLog, kWhole + "2023");
    intercept::refuse_next("fread");
    output_of([] { write_recording_log(1, 2, "12345"); });
    EXPECT_EQ(read_file(kLog), kWhole + "202319700101000001_1_A\n");
}

TEST_F(RecordingLog, LinkInTheLogsPlaceIsNotFollowed) {
    newest_video("A");
    write_file(kVictim, "precious");
    ASSERT_EQ(symlink(kVictim, kLog), 0);
    const std::string log = output_of([] { write_recording_log(1, 2, "12345"); });
    EXPECT_NE(log.find("fopen failed, platform/Z55/video_recording:Too many levels of symbolic links\n"),
              std::string::npos);
    EXPECT_NE(output_of(cancel_last_recording_log).find("fopen failed, "), std::string::npos);
    EXPECT_EQ(read_file(kVictim), "precious");
}

TEST_F(RecordingLog, LineThatTheDiskDoesNotTakeIsTold) {
    newest_video("A");
    write_file(kLog, "a line\n");
    intercept::refuse_next("fsync");
    const std::string log = output_of([] { write_recording_log(1, 2, "12345"); });
    EXPECT_NE(log.find("recording log not written, platform/Z55/video_recording:Input/output error\n"),
              std::string::npos)
        << log;
}

TEST_F(RecordingLog, LogPathIsReadUntilThereIsOneAndThenKept) {
    newest_video("A");
    set_conf("RECORDING_LOG_FILE", "");
    output_of([] { write_recording_log(1, 2, "12345"); });
    set_conf("RECORDING_LOG_FILE", kLog);
    output_of([] { write_recording_log(1, 2, "12345"); });
    set_conf("RECORDING_LOG_FILE", "/tmp/another.log");
    output_of([] { write_recording_log(1, 2, "12345"); });
    EXPECT_EQ(read_file(kLog), "19700101000001_1_A\n19700101000001_1_A\n");
    EXPECT_FALSE(file_exists("/tmp/another.log"));
}

TEST_F(RecordingLog, LogPathOfOneCharacterIsKept) {
    newest_video("A");
    set_conf("RECORDING_LOG_FILE", "/");
    output_of([] { write_recording_log(1, 2, "12345"); });
    set_conf("RECORDING_LOG_FILE", kLog);
    output_of([] { write_recording_log(1, 2, "12345"); });
    EXPECT_FALSE(file_exists(kLog));
}

TEST_F(RecordingLog, ConfigurationThatCannotBeReadLeavesNoPath) {
    remove_conf();
    EXPECT_LOG(output_of(cancel_last_recording_log),
               "*** cancel_last_recording_log ***\n"
               "Read conf failed: RECORDING_LOG_FILE. platform/Z55/video_recording:<N>\n"
               "fopen failed, platform/Z55/video_recording:No such file or directory\n");
}

TEST_F(RecordingLog, CancelAppendsAnXWithoutALineEnd) {
    write_file(kLog, "a line\n");
    EXPECT_EQ(output_of(cancel_last_recording_log), "*** cancel_last_recording_log ***\n");
    EXPECT_EQ(read_file(kLog), "a line\nX");
    output_of(cancel_last_recording_log);
    EXPECT_EQ(read_file(kLog), "a line\nXX");
}

// --- The newest video's name

TEST_F(RecordingLog, NewestVideoIsAskedWithTheSessionKey) {
    newest_video("B0002.MP4");
    char name[28] = "";
    EXPECT_EQ(marked_log(output_of([&] { EXPECT_EQ(ask_newest(name), 0); })),
              "[QUERY VideoList?start=1&end=1]\n(get_latest_mp4) latest mp4 is: B0002.MP4\n");
    EXPECT_STREQ(name, "B0002.MP4");
    EXPECT_EQ(camera.seen(), Texts{"GET /CGI/VideoList?start=1&end=1 Session=12345"});
}

TEST_F(RecordingLog, HostIsCutAt15Characters) {
    newest_video("A");
    set_conf("hostIP", "127.0.0.1:080809");
    char name[28] = "";
    output_of([&] { EXPECT_EQ(ask_newest(name), 0); });
}

struct NameRow {
    const char *name;
    const char *sent;
    const char *kept;
};

void PrintTo(const NameRow &row, std::ostream *out) {
    *out << row.name;
}

class NameWithControlCharacters : public RecordingLog, public testing::WithParamInterface<NameRow> {};

TEST_P(NameWithControlCharacters, IsCutAtTheFirst) {
    newest_video(GetParam().sent);
    const std::string log = output_of([] { write_recording_log(1700000000, 1700000025, "12345"); });
    const std::string line = std::string("20231114221320_25_") + GetParam().kept + "\n";
    EXPECT_EQ(read_file(kLog), line);
    EXPECT_NE(log.find("(get_latest_mp4) latest mp4 is: " + std::string(GetParam().kept) + "\n"),
              std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    Names, NameWithControlCharacters,
    testing::Values(NameRow{.name = "LineEnd", .sent = "A.MP4\n20231115000000_9_FORGED.MP4", .kept = "A.MP4"},
                    NameRow{.name = "CarriageReturn", .sent = "A\rB", .kept = "A"},
                    NameRow{.name = "Escape", .sent = "A\x1b[2J", .kept = "A"},
                    NameRow{.name = "Delete", .sent = "A\x7f", .kept = "A"},
                    NameRow{.name = "First", .sent = "\nA", .kept = ""},
                    NameRow{.name = "NoneInOtherAlphabets",
                            .sent = "\xc3\x84 \xe5\xbd\xb1.MP4",
                            .kept = "\xc3\x84 \xe5\xbd\xb1.MP4"}),
    by_name);

struct FailureRow {
    const char *name;
    CameraReply reply;
    const char *log;
};

void PrintTo(const FailureRow &row, std::ostream *out) {
    *out << row.name;
}

class NewestVideoFailure : public RecordingLog, public testing::WithParamInterface<FailureRow> {};

TEST_P(NewestVideoFailure, LeavesTheNameAlone) {
    camera.reply("/CGI/VideoList", std::vector{GetParam().reply});
    char name[28] = "as it was";
    EXPECT_EQ(marked_log(output_of([&] { EXPECT_EQ(ask_newest(name), -1); })),
              std::string("[QUERY VideoList?start=1&end=1]\n") + GetParam().log);
    EXPECT_STREQ(name, "as it was");
}

INSTANTIATE_TEST_SUITE_P(
    Replies, NewestVideoFailure,
    testing::Values(
        FailureRow{.name = "BadStatus",
                   .reply = {.body = "<Name>A</Name>", .status = 403},
                   .log = "[failed]\ngetvideolist failed. response of perform_curl() is null.\n"},
        FailureRow{.name = "NoAnswer",
                   .reply = {.hang_up = true},
                   .log = "[failed]\ngetvideolist failed. response of perform_curl() is null.\n"},
        FailureRow{.name = "ErrorCode",
                   .reply = {.body = "<ErrorCode>-12</ErrorCode>"},
                   .log = "getvideolist failed due to polling failing.Errorcode: -12 \n"},
        FailureRow{.name = "ErrorCodeOfZeroBesideAName",
                   .reply = {.body = "<ErrorCode>0</ErrorCode><Name>A</Name>"},
                   .log = "getvideolist failed due to polling failing.Errorcode: 0 \n"},
        FailureRow{.name = "NoName", .reply = {.body = "<VideoList></VideoList>"}, .log = "value = NULL\n"}),
    by_name);

TEST_F(RecordingLog, WithoutAConfigurationNothingIsAsked) {
    remove_conf();
    char name[28] = "as it was";
    EXPECT_EQ(output_of([&] { EXPECT_EQ(ask_newest(name), -1); }), "read hostIP in login() failed.\n");
    EXPECT_TRUE(camera.seen().empty());
}

TEST_F(RecordingLog, NewestVideoWaitsForASessionKey) {
    newest_video("C.MP4");
    set_session_key("");
    char name[28] = "";
    int result = 1;
    output_of([&] {
        std::thread asking([&] { result = ask_newest(name); });
        log_in(camera, "777");
        asking.join();
    });
    EXPECT_EQ(result, 0);
    EXPECT_STREQ(name, "C.MP4");
    EXPECT_EQ(camera.seen().at(1), "GET /CGI/VideoList?start=1&end=1 Session=777");
}

}  // namespace
