#include "agent/utils/files.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "agent_test.h"
#include "full_log.h"
#include "intercept.h"

namespace {

constexpr char kPath[] = "/tmp/files/file";
constexpr char kVictim[] = "/tmp/files/victim";

class Files : public AgentTest {
  protected:
    void SetUp() override {
        AgentTest::SetUp();
        std::filesystem::remove_all("/tmp/files");
        mkdir("/tmp/files", 0755);
        write_file(kVictim, "precious");
    }
    static void plant_link() {
        ASSERT_EQ(symlink(kVictim, kPath), 0);
    }
    static mode_t mode_of(const char *path) {
        struct stat now {};
        EXPECT_EQ(lstat(path, &now), 0);
        return now.st_mode & 07777;
    }
    static size_t files_in_folder() {
        size_t count = 0;
        for ([[maybe_unused]] const auto &file : std::filesystem::directory_iterator("/tmp/files")) count++;
        return count;
    }
};

TEST_F(Files, ARegularFileIsOpenedAndNothingElse) {
    EXPECT_EQ(open_regular(kPath), nullptr);
    EXPECT_EQ(errno, ENOENT);
    plant_link();
    EXPECT_EQ(open_regular(kPath), nullptr);
    EXPECT_EQ(errno, ELOOP);
    unlink(kPath);
    ASSERT_EQ(mkfifo(kPath, 0666), 0);
    errno = 0;
    EXPECT_EQ(open_regular(kPath), nullptr) << "and nobody waits for its writer";
    EXPECT_EQ(errno, EINVAL);
    intercept::refuse_next("close");
    EXPECT_EQ(open_regular(kPath), nullptr);
    EXPECT_EQ(errno, EINVAL) << "whatever closing it left there";
    EXPECT_EQ(open_regular("/tmp/files"), nullptr);
    EXPECT_NE(open_regular(kVictim), nullptr);
}

TEST_F(Files, WhatTheSystemIsShortOfIsTold) {
    const auto opened = [] { return output_of([] { EXPECT_EQ(open_regular(kPath), nullptr); }); };
    EXPECT_EQ(opened(), "");
    plant_link();
    EXPECT_EQ(opened(), "");
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const std::string log = output_of([&] {
        const rlimit few{3, limit.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
        EXPECT_EQ(open_regular(kVictim), nullptr);
        EXPECT_EQ(errno, EMFILE);
        setrlimit(RLIMIT_NOFILE, &limit);
    });
    EXPECT_EQ(log, std::string("file not read, ") + kVictim + ":Too many open files\n");
}

TEST_F(Files, AStreamIsReadAsFarAsItIsWanted) {
    const File file = open_regular(kVictim);
    EXPECT_EQ(read_stream(file.get(), kVictim, 3), "pre");
    EXPECT_EQ(read_stream(file.get(), kVictim, 100000), "cious");
    EXPECT_EQ(read_stream(file.get(), kVictim, 100000), "");
    write_file(kPath, std::string(5000, 'x'));
    EXPECT_EQ(read_stream(open_regular(kPath).get(), kPath, 4000), std::string(4000, 'x'));
}

// Its first page is nobody's, and reading it an error.
TEST_F(Files, AStreamThatCannotBeReadIsTold) {
    const File memory = open_regular("/proc/self/mem");
    ASSERT_NE(memory, nullptr);
    EXPECT_EQ(output_of([&] { EXPECT_EQ(read_stream(memory.get(), kPath, 100), std::nullopt); }),
              std::string("file not read, ") + kPath + ":Input/output error\n");
}

TEST_F(Files, WhatCannotBeLookedAtIsNotOpened) {
    intercept::refuse_next("fstat");
    EXPECT_EQ(output_of([] { EXPECT_EQ(open_regular(kVictim), nullptr); }),
              std::string("file not read, ") + kVictim + ":Input/output error\n");
}

TEST_F(Files, ANewFileIsAsOpenAsTheMaskAllows) {
    const mode_t mask = umask(0);
    EXPECT_NE(open_to_append(kPath), nullptr);
    umask(mask);
    EXPECT_EQ(mode_of(kPath), 0666u);
}

TEST_F(Files, AppendingCreatesButFollowsNoLink) {
    for (const char *text : {"a\n", "b\n"}) {
        File file = open_to_append(kPath);
        ASSERT_NE(file, nullptr);
        std::fputs(text, file.get());
        EXPECT_TRUE(close_synced(std::move(file)));
    }
    EXPECT_EQ(read_file(kPath), "a\nb\n");
    EXPECT_EQ(intercept::synced(), (Texts{"/tmp/files", kPath, kPath})) << "a new one's folder too, once";
    unlink(kPath);
    plant_link();
    EXPECT_EQ(open_to_append(kPath), nullptr);
    EXPECT_EQ(read_file(kVictim), "precious");
}

TEST_F(Files, AFileIsReplacedWholeAndDurably) {
    write_file(kPath, "old");
    FILE *reader = fopen(kPath, "r");
    ASSERT_NE(reader, nullptr);
    EXPECT_TRUE(replace_file(kPath, "new", 0600));
    char text[10] = {};
    EXPECT_STREQ(fgets(text, sizeof text, reader), "old") << "who has it open reads the old file";
    fclose(reader);
    EXPECT_EQ(read_file(kPath), "new");
    EXPECT_EQ(mode_of(kPath), 0600u);
    EXPECT_EQ(intercept::synced(), (Texts{"/tmp/files/file.veloagent-new", "/tmp/files"}));
    EXPECT_EQ(files_in_folder(), 2u);
}

TEST_F(Files, ALinkIsReplacedNotFollowed) {
    plant_link();
    EXPECT_TRUE(replace_file(kPath, "new", 0644));
    EXPECT_EQ(read_file(kVictim), "precious");
    EXPECT_EQ(read_file(kPath), "new");
    EXPECT_FALSE(std::filesystem::is_symlink(kPath));
}

// The name leaves no room for the new file's beside it.
TEST_F(Files, AFolderThatTakesNoNewFileHasItWrittenInPlace) {
    const std::string path = "/tmp/files/" + std::string(250, 'c');
    write_file(path, "an old text");
    EXPECT_TRUE(replace_file(path, "new", 0644));
    EXPECT_EQ(read_file(path), "new");
    unlink(path.c_str());
    ASSERT_EQ(symlink(kVictim, path.c_str()), 0);
    EXPECT_FALSE(replace_file(path, "new", 0644));
    EXPECT_EQ(read_file(kVictim), "precious");
    unlink(path.c_str());
    ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);
    EXPECT_FALSE(replace_file(path, "new", 0644)) << "and nobody waits for its reader";
}

// In a folder like /tmp others may keep the new file from being made and have one of theirs in its place.
TEST_F(Files, AFileOfSomebodyElsesIsNotWrittenInPlace) {
    const std::string path = "/tmp/files/" + std::string(250, 'c');
    write_file(path, "planted");
    if (chown(path.c_str(), 1, 1) != 0) GTEST_SKIP() << "there is nobody else in this view";
    EXPECT_FALSE(replace_file(path, "secret", 0600));
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(read_file(path), "planted");
}

TEST_F(Files, AFileWithASecondNameIsNotWrittenInPlace) {
    const std::string path = "/tmp/files/" + std::string(250, 'c');
    ASSERT_EQ(link(kVictim, path.c_str()), 0);
    EXPECT_FALSE(replace_file(path, "new", 0600));
    EXPECT_EQ(read_file(kVictim), "precious");
}

TEST_F(Files, AFileThatIsWrittenInPlaceLosesTheRightsOfOthers) {
    const std::string path = "/tmp/files/" + std::string(250, 'c');
    write_file(path, "old");
    chmod(path.c_str(), 0666);
    EXPECT_TRUE(replace_file(path, "secret", 0600));
    EXPECT_EQ(mode_of(path.c_str()), 0600u);
    chmod(path.c_str(), 0601);
    EXPECT_TRUE(replace_file(path, "secret", 0600));
    EXPECT_EQ(mode_of(path.c_str()), 0600u);
    chmod(path.c_str(), 0666);
    intercept::refuse_next("fstat", 1);  // that looks for the owner
    EXPECT_FALSE(replace_file(path, "another", 0600));
    EXPECT_EQ(read_file(path), "secret");
}

TEST_F(Files, WhoKeepsTheNewFileFromBeingMadeHasNothingWritten) {
    write_file(kPath, "planted");
    ASSERT_EQ(mkdir("/tmp/files/file.veloagent-new", 0755), 0);
    EXPECT_FALSE(replace_file(kPath, "secret", 0600));
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(read_file(kPath), "planted");
}

TEST_F(Files, OneCharacterIsAText) {
    EXPECT_TRUE(replace_file(kPath, "x", 0600));
    EXPECT_EQ(read_file(kPath), "x");
}

TEST_F(Files, AFileOfTheCurrentFolderIsReplacedDurably) {
    ASSERT_EQ(chdir("/tmp/files"), 0);
    EXPECT_TRUE(replace_file("file", "new", 0600));
    EXPECT_EQ(intercept::synced(), (Texts{"/tmp/files/file.veloagent-new", "/tmp/files"}));
    ASSERT_EQ(chdir("/tmp"), 0);
}

TEST_F(Files, TheErrorThatIsLeftIsTheFirst) {
    intercept::refuse_next("fsync");
    intercept::on_sync([](const std::string &path) { unlink(path.c_str()); });  // its removal fails too
    EXPECT_FALSE(replace_file(kPath, "new", 0600));
    EXPECT_EQ(errno, EIO);
}

TEST_F(Files, TheErrorThatIsToldIsTheErrorThatIsLeft) {
    intercept::refuse_next("fstat");
    EXPECT_EQ(error_left_on_a_full_log([] { EXPECT_EQ(open_regular(kVictim), nullptr); }), EIO);
}

TEST_F(Files, TheErrorThatClosingLeavesIsThatOfTheDisk) {
    File file = open_to_append(kPath);
    const int descriptor = fileno(file.get());
    intercept::refuse_next("fsync");
    intercept::on_sync([=](const std::string &) { close(descriptor); });  // so that closing it fails too
    EXPECT_FALSE(close_synced(std::move(file)));
    EXPECT_EQ(errno, EIO);
}

// --- A file that is to be like another one.

struct LikeRow {
    const char *name;
    const char *refused;  // a call that fails
    uid_t owner, group;   // of the old one
    mode_t mode;
    bool in_place;  // what becomes of it: written in place, and the old one's still
};

class LikeTheOldOne : public Files, public testing::WithParamInterface<LikeRow> {};

TEST_P(LikeTheOldOne, IsTheNewOne) {
    const LikeRow &row = GetParam();
    write_file(kPath, "old");
    if (chown(kPath, row.owner, row.group) != 0) GTEST_SKIP() << "there is nobody else in this view";
    chmod(kPath, row.mode);
    struct stat old {
    }, now{};
    ASSERT_EQ(stat(kPath, &old), 0);
    if (*row.refused != '\0') intercept::refuse_next(row.refused);
    EXPECT_TRUE(replace_file(kPath, "new", 0600, &old));
    EXPECT_EQ(read_file(kPath), "new");
    ASSERT_EQ(stat(kPath, &now), 0);
    EXPECT_EQ(now.st_ino == old.st_ino, row.in_place);
    EXPECT_EQ(now.st_uid, row.owner);
    EXPECT_EQ(now.st_gid, row.group);
    EXPECT_EQ(now.st_mode & 07777, row.mode);
    EXPECT_EQ(*row.refused != '\0' && intercept::still_refuses(row.refused), false);
    EXPECT_EQ(files_in_folder(), 2u);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, LikeTheOldOne,
    testing::Values(
        LikeRow{.name = "ours", .refused = "", .owner = 0, .group = 0, .mode = 0640, .in_place = false},
        LikeRow{.name = "beyond the mask",
                .refused = "",
                .owner = 0,
                .group = 0,
                .mode = 0666,
                .in_place = false},
        LikeRow{.name = "somebody elses",
                .refused = "",
                .owner = 12,
                .group = 34,
                .mode = 0600,
                .in_place = false},
        LikeRow{.name = "another groups",
                .refused = "",
                .owner = 0,
                .group = 34,
                .mode = 0640,
                .in_place = false},
        LikeRow{.name = "another owners",
                .refused = "",
                .owner = 12,
                .group = 0,
                .mode = 06755,
                .in_place = false},
        LikeRow{
            .name = "unknown", .refused = "fstat", .owner = 0, .group = 0, .mode = 0600, .in_place = true},
        LikeRow{.name = "not to be given away",
                .refused = "fchown",
                .owner = 12,
                .group = 34,
                .mode = 0600,
                .in_place = true},
        LikeRow{.name = "not to be opened",
                .refused = "fchmod",
                .owner = 0,
                .group = 0,
                .mode = 0666,
                .in_place = true}),
    by_name);

TEST_F(Files, AMissingFolderIsAFailureThatSaysWhy) {
    EXPECT_FALSE(replace_file("/tmp/files/none/file", "new", 0644));
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(Files, ARemovalIsDurable) {
    write_file(kPath, "");
    EXPECT_TRUE(remove_file(kPath));
    EXPECT_FALSE(file_exists(kPath));
    EXPECT_EQ(intercept::synced(), Texts{"/tmp/files"});
    EXPECT_FALSE(remove_file(kPath));
    EXPECT_EQ(errno, ENOENT);
}

}  // namespace
