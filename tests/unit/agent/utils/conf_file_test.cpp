#include "agent/utils/conf_file.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <thread>

#include "agent_test.h"
#include "exports.h"
#include "full_log.h"
#include "intercept.h"

namespace {

constexpr char kFile[] = "/tmp/working/test.conf";

class ConfFile : public AgentTest {
  protected:
    void SetUp() override {
        AgentTest::SetUp();
        std::filesystem::remove_all("/tmp/working");
        mkdir("/tmp/working", 0755);
    }
    static std::string value_in(const std::string &text, const char *key) {
        write_file(kFile, text);
        char out[2000] = "untouched";
        EXPECT_EQ(read_conf_value(key, out, kFile), 0);
        return out;
    }
    static std::string after_writing(const std::string &text, const char *key, const std::string &value) {
        write_file(kFile, text);
        EXPECT_EQ(write_conf_value(key, value, kFile), 0);
        return read_file(kFile);
    }
    static size_t files_in_folder() {
        size_t count = 0;
        for ([[maybe_unused]] const auto &file : std::filesystem::directory_iterator("/tmp/working")) count++;
        return count;
    }
};

TEST_F(ConfFile, PathIsTheDevices) {
    EXPECT_STREQ(kConfPath, "/tmp/working/VeloAgent.conf");
}

TEST_F(ConfFile, BlanksAroundALineAreTrimmed) {
    EXPECT_EQ(value_in("  hostIP=192.168.1.10  \n", "hostIP"), "192.168.1.10");
}

TEST_F(ConfFile, EveryWhiteSpaceAroundALineIsTrimmed) {
    for (const char blank : {' ', '\t', '\r', '\v', '\f'}) {
        const std::string text = std::string(2, blank) + "A=1" + std::string(2, blank) + "\n";
        EXPECT_EQ(value_in(text, "A"), "1") << "code " << int{blank};
    }
    EXPECT_EQ(trim_line(" \t\n\r\v\fmid dle \t\n\r\v\f"), "mid dle");
    EXPECT_EQ(trim_line(" \t "), "");
    EXPECT_EQ(trim_line(""), "");
}

TEST_F(ConfFile, AReaderWritesNoMoreThanTheValueAndItsEnd) {
    write_file(kFile, "A=123\n");
    char out[] = "########";
    EXPECT_EQ(read_conf_value("A", out, kFile), 0);
    EXPECT_EQ(std::string(out, 8), std::string("123\0####", 8));
}

TEST_F(ConfFile, BlanksAroundTheEqualsSignBelongToKeyAndValue) {
    EXPECT_EQ(value_in("hostIP = 192.168.1.10\n", "hostIP"), "untouched");
    EXPECT_EQ(value_in("hostIP = 192.168.1.10\n", "hostIP "), " 192.168.1.10");
}

TEST_F(ConfFile, TheFirstEqualsSignSplits) {
    EXPECT_EQ(value_in("A=b=c\n", "A"), "b=c");
}

TEST_F(ConfFile, CommentsAreIgnored) {
    EXPECT_EQ(value_in("#hostIP=1.2.3.4\n", "hostIP"), "untouched");
    EXPECT_EQ(value_in("   #hostIP=1.2.3.4\n", "#hostIP"), "untouched");
    EXPECT_EQ(value_in("#hostIP=1.2.3.4\nhostIP=5.6.7.8#9\n", "hostIP"), "5.6.7.8#9");
}

TEST_F(ConfFile, AnEmptyValueIsTheEmptyText) {
    EXPECT_EQ(value_in("SESSION_KEY=\n", "SESSION_KEY"), "");
}

TEST_F(ConfFile, LinesWithoutEqualsSignAreSkipped) {
    EXPECT_EQ(value_in("\n   \njunk\nA\nA=1\n", "A"), "1");
    EXPECT_EQ(value_in("A=1", "A"), "1") << "no line end at the end of the file";
}

TEST_F(ConfFile, TheFirstLineWithAKeyWins) {
    EXPECT_EQ(value_in("A=1\nA=2\n", "A"), "1");
}

TEST_F(ConfFile, KeysMatchExactly) {
    EXPECT_EQ(value_in("hostIP=1\n", "hostip"), "untouched");
    EXPECT_EQ(value_in("hostIP=1\n", "host"), "untouched");
    EXPECT_EQ(value_in("hostIP=1\n", "hostIP2"), "untouched");
    EXPECT_EQ(value_in("LULLABY_SONG=x\n", "LULLABY_SONG"), "x");
}

TEST_F(ConfFile, AKeyThatNoLineCanHaveIsNotFound) {
    for (const char *key : {"A=b", " A", "#A", "A=", "A\n"}) {
        EXPECT_EQ(value_in(" A=b=c\n#A=1\nA\n=x", key), "untouched") << key;
    }
    EXPECT_EQ(value_in("A=1\n=x\n", ""), "x") << "a line may begin with its equals sign";
    write_file(kFile, "A=1\n");
    EXPECT_EQ(conf_value(std::string_view("A\0", 2), kFile), "");
}

TEST_F(ConfFile, ALineIsFoundWhereverABlockOfTheFileEnds) {
    for (const size_t before : {2040, 2044, 2045, 2046, 2047, 2048, 4090, 4096}) {
        std::string text;
        while (text.size() + 64 < before) text += std::string(63, 'x') + "\n";
        text += std::string(before - text.size() - 1, 'x') + "\nKEY=value\n";
        EXPECT_EQ(value_in(text, "KEY"), "value") << before;
    }
}

TEST_F(ConfFile, AReaderWaitsForNoMoreThanTheLineOfTheKey) {
    ASSERT_EQ(mkfifo(kFile, 0600), 0);
    const int writer = open(kFile, O_RDWR);  // it stays open: the file has no end
    ASSERT_EQ(write(writer, "A=1\nB=2\n", 8), 8);
    EXPECT_EQ(conf_value("A", kFile), "1");
    close(writer);
}

TEST_F(ConfFile, AMissingFileIsTheOnlyReadFailure) {
    char out[] = "untouched";
    EXPECT_EQ(read_conf_value("A", out, "/tmp/working/none.conf"), 1);
    EXPECT_EQ(read_conf_value("A", out, "/tmp/working"), 1);
    EXPECT_STREQ(out, "untouched");
    EXPECT_FALSE(conf_value("A", "/tmp/working/none.conf"));
    EXPECT_FALSE(read_conf_pairs("/tmp/working/none.conf"));
}

TEST_F(ConfFile, AFileThatCannotBeReadIsToldUnlessItIsMissing) {
    mkdir(kFile, 0755);
    const auto read = [](const char *path) { return output_of([path] { (void)conf_value("A", path); }); };
    EXPECT_EQ(read(kFile), std::string("configuration not read, ") + kFile + ":Is a directory\n");
    EXPECT_EQ(read("/tmp/working/missing.conf"), "");
    EXPECT_EQ(read("/tmp/working/test.conf/below"), "");
    EXPECT_EQ(read("/dev/null/below"), "configuration not read, /dev/null/below:Not a directory\n");
}

TEST_F(ConfFile, ASignalKeepsNobodyFromReading) {
    write_file(kFile, "A=1\n");
    intercept::interrupt_next_read();
    EXPECT_EQ(conf_value("A", kFile), "1");
    errno = EINTR;  // of a call that somebody else made
    EXPECT_EQ(conf_value("none", kFile), "");
}

TEST_F(ConfFile, AnErrorInTheMidstOfAFileIsAFailure) {
    std::string text;
    while (text.size() < 3000) text += "A=" + std::string(61, 'x') + "\n";
    write_file(kFile, text);
    intercept::refuse_next("read", 1);
    const std::string log = output_of([] {
        EXPECT_FALSE(conf_value("none", kFile));
        EXPECT_EQ(errno, EIO);
    });
    EXPECT_EQ(log, std::string("configuration not read, ") + kFile + ":Input/output error\n");
}

TEST_F(ConfFile, TheReasonStaysWhereTheFileCannotBeClosedEither) {
    mkdir(kFile, 0755);
    (void)output_of([] {
        intercept::refuse_next("close");
        EXPECT_FALSE(conf_value("A", kFile));
        EXPECT_EQ(errno, EISDIR);
        EXPECT_FALSE(intercept::still_refuses("close"));
    });
}

TEST_F(ConfFile, TheErrorThatIsToldIsTheErrorThatIsLeft) {
    write_file(kFile, "A=1\n");
    intercept::refuse_next("read");
    EXPECT_EQ(error_left_on_a_full_log([] { EXPECT_FALSE(conf_value("A", kFile)); }), EIO);
}

TEST_F(ConfFile, NullArgumentsAreAReadFailure) {
    char out[] = "untouched";
    write_file(kFile, "A=1\n");
    EXPECT_EQ(read_conf_value(nullptr, out, kFile), 1);
    EXPECT_EQ(read_conf_value("A", nullptr, kFile), 1);
    EXPECT_EQ(read_conf_value("A", out, nullptr), 1);
    EXPECT_STREQ(out, "untouched");
}

TEST_F(ConfFile, ALineIsReadInPiecesOf1022Characters) {
    const std::string text = "A=" + std::string(1020, 'x') + "B=2\nC=3\n";
    EXPECT_EQ(value_in(text, "A"), std::string(1020, 'x'));
    EXPECT_EQ(value_in(text, "B"), "2");
    EXPECT_EQ(value_in(text, "C"), "3");
    EXPECT_EQ(value_in("A=" + std::string(1019, 'x') + "\nB=2\n", "A"), std::string(1019, 'x'));
}

TEST_F(ConfFile, AnOverlongKeyIsNotFound) {
    EXPECT_EQ(value_in("A=1\n", std::string(10'000, 'A').c_str()), "untouched");
}

TEST_F(ConfFile, PairsComeInFileOrder) {
    write_file(kFile, "#c\nB=2\n\njunk\n A=1 \nB=3\n");
    const auto pairs = read_conf_pairs(kFile);
    ASSERT_TRUE(pairs);
    Texts texts;
    for (const conf_pair &pair : *pairs) texts.push_back(pair.key + ":" + pair.value);
    EXPECT_EQ(texts, (Texts{"B:2", "A:1", "B:3"}));
}

TEST_F(ConfFile, ValuesAreCutToTheirBuffers) {
    char small[4] = "old";
    EXPECT_FALSE(conf_value_into(small, "A"));
    EXPECT_STREQ(small, "");
    write_conf({{"A", "12345"}});
    EXPECT_TRUE(conf_value_into(small, "A"));
    EXPECT_STREQ(small, "123");
    EXPECT_TRUE(conf_value_into(small, "B"));
    EXPECT_STREQ(small, "");
}

TEST_F(ConfFile, NumbersReadAsDecimalsAndZeroOtherwise) {
    EXPECT_FALSE(conf_number("A", 0));
    write_conf({{"A", "42"}, {"B", "-7x"}, {"C", ""}, {"D", "x"}, {"E", "99999999999"}});
    EXPECT_EQ(conf_number("A", 0), 42);
    EXPECT_EQ(conf_number("B", 0), -7);
    EXPECT_EQ(conf_number("C", 0), 0);
    EXPECT_EQ(conf_number("D", 0), 0);
    EXPECT_EQ(conf_number("E", 0), 2147483647);
    EXPECT_EQ(conf_number("none", 0), 0);
    write_conf({{"A", std::string(14, '0') + "123"}});
    EXPECT_EQ(conf_number("A", 0), 1) << "a number is read from the value's first 15 characters";
}

TEST_F(ConfFile, ARewriteChangesOneValueAndDropsAllButTheEntries) {
    EXPECT_EQ(after_writing("#c\n\n A=1\nB=2\njunk\nC=\n", "B", "new"), "A=1\nB=new\nC=\n");
    EXPECT_EQ(after_writing("A=1\nB=2\n", "B", ""), "A=1\nB=\n");
}

TEST_F(ConfFile, AnAbsentKeyIsNotAddedButTheFileIsRewritten) {
    EXPECT_EQ(after_writing("#c\nA=1\n", "B", "2"), "A=1\n");
}

TEST_F(ConfFile, TheWriterChangesOnlyTheFirstOfTwoLines) {
    EXPECT_EQ(after_writing("A=1\nA=2\n", "A", "9"), "A=9\nA=2\n");
}

TEST_F(ConfFile, AMissingFileIsCreatedEmpty) {
    EXPECT_EQ(write_conf_value("A", "1", kFile), 0);
    EXPECT_TRUE(file_exists(kFile));
    EXPECT_EQ(read_file(kFile), "");
    EXPECT_EQ(files_in_folder(), 1u);
}

TEST_F(ConfFile, ACreatedFileIsAsOpenAsTheMaskAllows) {
    const mode_t mask = umask(0);
    EXPECT_EQ(write_conf_value("A", "1", kFile), 0);
    umask(mask);
    struct stat now {};
    stat(kFile, &now);
    EXPECT_EQ(now.st_mode & 07777, 0666u);
}

TEST_F(ConfFile, TheDefaultPathIsRewritten) {
    write_conf({{"A", "1"}});
    EXPECT_EQ(write_conf_value("A", "2"), 0);
    EXPECT_EQ(conf_text(), "A=2\n");
    EXPECT_EQ(conf_value("A"), "2");
}

TEST_F(ConfFile, AFileThatCannotBeOpenedForWritingIsAFailure) {
    EXPECT_EQ(write_conf_value("A", "1", "/tmp/working/none/test.conf"), 1);
    EXPECT_EQ(write_conf_value("A", "1", "/tmp/working"), 1);
}

TEST_F(ConfFile, NoEntryIsLostHoweverMany) {
    std::string text, expected;
    for (int i = 0; i < 500; i++) {
        const std::string key = "KEY" + std::to_string(i) + "=";
        text += key + "old\n";
        expected += key + (i == 499 ? "new" : "old") + "\n";
    }
    EXPECT_EQ(after_writing(text, "KEY499", "new"), expected);
}

TEST_F(ConfFile, AValueEndsAtItsFirstLineEnd) {
    EXPECT_EQ(after_writing("A=\nB=2\n", "A", "1\nC=3"), "A=1\nB=2\n");
    EXPECT_EQ(after_writing("A=\nB=2\n", "A", "1\rC=3"), "A=1\nB=2\n");
}

TEST_F(ConfFile, AnOverlongValueIsCutToWhatOneReadTakes) {
    const std::string text = after_writing("LONG=1\nB=2\n", "LONG", std::string(10'000, 'x'));
    EXPECT_EQ(text, "LONG=" + std::string(1016, 'x') + "\nB=2\n");
    EXPECT_EQ(conf_value("LONG", kFile), std::string(1016, 'x'));
    const std::string key(1500, 'K');
    EXPECT_EQ(write_conf_value(key, "v", kFile), 0) << "a key of more than a line is no pair";
    EXPECT_EQ(read_file(kFile), text);
}

TEST_F(ConfFile, ModeAndOwnerStay) {
    write_file(kFile, "A=1\n");
    chmod(kFile, 0640);
    const bool owned = chown(kFile, 12, 34) == 0;  // an ordinary user's view has but one owner
    EXPECT_EQ(write_conf_value("A", "2", kFile), 0);
    struct stat now {};
    ASSERT_EQ(stat(kFile, &now), 0);
    EXPECT_EQ(now.st_mode & 07777, 0640u);
    if (owned) {
        EXPECT_EQ(now.st_uid, 12u);
        EXPECT_EQ(now.st_gid, 34u);
    }
    EXPECT_EQ(files_in_folder(), 1u);
}

TEST_F(ConfFile, TheFileIsReplacedWhole) {
    write_file(kFile, "A=1\n");
    FILE *reader = fopen(kFile, "r");
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(write_conf_value("A", "2", kFile), 0);
    char line[20] = {};
    EXPECT_STREQ(fgets(line, sizeof line, reader), "A=1\n") << "who has it open reads the old file";
    fclose(reader);
}

TEST_F(ConfFile, ASymbolicLinkIsKeptAndItsTargetRewritten) {
    mkdir("/tmp/working/flash", 0755);
    write_file("/tmp/working/flash/real.conf", "A=1\n");
    ASSERT_EQ(symlink("flash/real.conf", kFile), 0);
    EXPECT_EQ(write_conf_value("A", "2", kFile), 0);
    EXPECT_EQ(read_file("/tmp/working/flash/real.conf"), "A=2\n");
    EXPECT_TRUE(std::filesystem::is_symlink(kFile));
}

TEST_F(ConfFile, ALinkWithoutTargetGetsOne) {
    ASSERT_EQ(symlink("real.conf", kFile), 0);
    EXPECT_EQ(write_conf_value("A", "2", kFile), 0);
    EXPECT_TRUE(file_exists("/tmp/working/real.conf"));
    EXPECT_TRUE(std::filesystem::is_symlink(kFile));
}

TEST_F(ConfFile, TheNewFileIsOnTheDiskBeforeItsNameAndTheNameBeforeTheReturn) {
    write_file(kFile, "A=1\n");
    EXPECT_EQ(write_conf_value("A", "2", kFile), 0);
    const Texts synced = intercept::synced();
    ASSERT_EQ(synced.size(), 2u);
    EXPECT_EQ(synced[0].find(std::string(kFile) + "."), 0u) << synced[0];
    EXPECT_EQ(synced[1], "/tmp/working");
}

// The name leaves no room for the temporary file's.
TEST_F(ConfFile, AFolderThatTakesNoTemporaryFileIsWrittenInPlace) {
    const std::string path = "/tmp/working/" + std::string(250, 'c');
    write_file(path, "A=long value\n#comment\nB=2\n");
    struct stat before {
    }, after{};
    stat(path.c_str(), &before);
    EXPECT_EQ(write_conf_value("A", "1", path.c_str()), 0);
    EXPECT_EQ(read_file(path), "A=1\nB=2\n");
    stat(path.c_str(), &after);
    EXPECT_EQ(after.st_ino, before.st_ino);
}

// --- What is not written, and what is told of a failure.

TEST_F(ConfFile, AValueThatTheFileHoldsIsNotWrittenAgain) {
    for (const std::string text : {"A=1\nB=2\n", "#c\n\n A=1\n"}) {
        write_file(kFile, text);
        struct stat before {
        }, after{};
        stat(kFile, &before);
        EXPECT_EQ(write_conf_value("A", "1", kFile), 0);
        EXPECT_EQ(write_conf_value("A", "1\nB=3", kFile), 0) << "as it would be stored";
        stat(kFile, &after);
        EXPECT_EQ(after.st_ino, before.st_ino);
        EXPECT_EQ(read_file(kFile), text);
    }
    EXPECT_EQ(intercept::synced(), Texts{});
}

TEST_F(ConfFile, AnAbsentKeyRewritesOnlyAFileWithSomethingToDrop) {
    EXPECT_EQ(after_writing("#c\nA=1\n", "B", "2"), "A=1\n");
    EXPECT_EQ(intercept::synced().size(), 2u);
    EXPECT_EQ(write_conf_value("B", "2", kFile), 0);
    EXPECT_EQ(intercept::synced().size(), 2u);
}

TEST_F(ConfFile, AFailedWriteLeavesOneLineWithoutTheValue) {
    const std::string log = output_of(
        [] { EXPECT_EQ(write_conf_value("PASSWORD", "geheim", "/tmp/working/none/test.conf"), 1); });
    EXPECT_EQ(log, "write_conf_value failed: key = PASSWORD, No such file or directory\n");
}

TEST_F(ConfFile, WhatAPowerCutLeftGoesWithTheNextWriteAndNothingElseDoes) {
    write_file(kFile, "A=1\n");
    write_file(std::string(kFile) + ".veloagent-new", "A=half of a pass");
    write_file(std::string(kFile) + ".backup", "A=0\n");
    EXPECT_EQ(write_conf_value("A", "2", kFile), 0);
    EXPECT_EQ(read_file(kFile), "A=2\n");
    EXPECT_EQ(read_file(std::string(kFile) + ".backup"), "A=0\n");
    EXPECT_EQ(files_in_folder(), 2u);
}

TEST_F(ConfFile, ALinkInThePlaceOfTheNewFileIsNotFollowed) {
    write_file(kFile, "A=1\n");
    write_file("/tmp/working/victim", "precious");
    ASSERT_EQ(symlink("victim", (std::string(kFile) + ".veloagent-new").c_str()), 0);
    EXPECT_EQ(write_conf_value("A", "2", kFile), 0);
    EXPECT_EQ(read_file("/tmp/working/victim"), "precious");
    EXPECT_EQ(read_file(kFile), "A=2\n");
}

class FullDisk : public ConfFile {
  protected:
    void SetUp() override {
        ConfFile::SetUp();
        std::signal(SIGXFSZ, SIG_IGN);
    }
    static void limit(rlim_t bytes) {
        rlimit now{};
        getrlimit(RLIMIT_FSIZE, &now);
        now.rlim_cur = bytes;
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &now), 0);
    }
    void TearDown() override {
        limit(RLIM_INFINITY);
    }
};

TEST_F(FullDisk, LeavesTheOldFileAndNoOther) {
    write_file(kFile, "A=1\nB=2\n");
    limit(10);
    EXPECT_EQ(write_conf_value("A", "a value that does not fit", kFile), 1);
    EXPECT_EQ(read_file(kFile), "A=1\nB=2\n");
    EXPECT_EQ(files_in_folder(), 1u);
}

TEST_F(FullDisk, CostsNoEntryBeyondTheRefusedBytesInPlace) {
    const std::string path = "/tmp/working/" + std::string(250, 'c');
    write_file(path, "A=1\nB=2\nC=3\n");
    limit(8);
    EXPECT_EQ(write_conf_value("A", "9", path.c_str()), 1);
    EXPECT_EQ(read_file(path), "A=9\nB=2\nC=3\n");
}

TEST_F(ConfFile, WritersOfDifferentKeysLoseNothingAndReadersSeeWholeFiles) {
    constexpr int kWriters = 8, kRounds = 25;
    Conf entries;
    for (int i = 0; i < kWriters; i++) entries.emplace_back("K" + std::to_string(i), "0");
    write_conf(entries);
    std::atomic<bool> done{false};
    std::atomic<int> torn{0};
    std::thread reader([&] {
        while (!done) {
            const auto pairs = read_conf_pairs(kConfPath);
            if (!pairs || pairs->size() != kWriters) torn++;
        }
    });
    std::vector<std::thread> writers;
    for (int i = 0; i < kWriters; i++) {
        writers.emplace_back([i] {
            for (int round = 1; round <= kRounds; round++) {
                (void)write_conf_value("K" + std::to_string(i), std::to_string(round));
            }
        });
    }
    for (std::thread &writer : writers) writer.join();
    done = true;
    reader.join();
    EXPECT_EQ(torn, 0);
    for (auto &[key, value] : entries) EXPECT_EQ(conf_value(key), std::to_string(kRounds)) << key;
}

TEST_F(ConfFile, NoDescriptorIsLeftOpen) {
    const auto descriptors = [] {
        size_t count = 0;
        for ([[maybe_unused]] const auto &d : std::filesystem::directory_iterator("/proc/self/fd")) count++;
        return count;
    };
    write_file(kFile, "A=1\n");
    const size_t before = descriptors();
    char out[10];
    for (int i = 0; i < 20; i++) {
        read_conf_value("A", out, kFile);
        read_conf_value("none", out, kFile);
        (void)write_conf_value("A", "2", kFile);
        (void)write_conf_value("A", "2", "/tmp/working");
    }
    EXPECT_EQ(descriptors(), before);
}

}  // namespace
