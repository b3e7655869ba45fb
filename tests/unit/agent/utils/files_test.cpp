#include "agent/utils/files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "agent_test.h"
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
        ASSERT_EQ(0, symlink(kVictim, kPath));
    }
    static mode_t mode_of(const char *path) {
        struct stat now {};
        EXPECT_EQ(0, lstat(path, &now));
        return now.st_mode & 07777;
    }
    static size_t files_in_folder() {
        size_t count = 0;
        for ([[maybe_unused]] const auto &file : std::filesystem::directory_iterator("/tmp/files")) count++;
        return count;
    }
};

TEST_F(Files, ARegularFileIsOpenedAndNothingElse) {
    EXPECT_EQ(nullptr, open_regular(kPath));
    EXPECT_EQ(ENOENT, errno);
    plant_link();
    EXPECT_EQ(nullptr, open_regular(kPath));
    EXPECT_EQ(ELOOP, errno);
    unlink(kPath);
    ASSERT_EQ(0, mkfifo(kPath, 0666));
    EXPECT_EQ(nullptr, open_regular(kPath)) << "and nobody waits for its writer";
    EXPECT_EQ(nullptr, open_regular("/tmp/files"));
    EXPECT_NE(nullptr, open_regular(kVictim));
}

TEST_F(Files, AppendingCreatesButFollowsNoLink) {
    for (const char *text : {"a\n", "b\n"}) {
        File file = open_to_append(kPath);
        ASSERT_NE(nullptr, file);
        std::fputs(text, file.get());
        EXPECT_TRUE(close_synced(std::move(file)));
    }
    EXPECT_EQ("a\nb\n", read_file(kPath));
    EXPECT_EQ((Texts{kPath, kPath}), intercept::synced());
    unlink(kPath);
    plant_link();
    EXPECT_EQ(nullptr, open_to_append(kPath));
    EXPECT_EQ("precious", read_file(kVictim));
}

TEST_F(Files, AFileIsReplacedWholeAndDurably) {
    write_file(kPath, "old");
    FILE *reader = fopen(kPath, "r");
    ASSERT_NE(nullptr, reader);
    EXPECT_TRUE(replace_file(kPath, "new", 0600));
    char text[10] = {};
    EXPECT_STREQ("old", fgets(text, sizeof text, reader)) << "who has it open reads the old file";
    fclose(reader);
    EXPECT_EQ("new", read_file(kPath));
    EXPECT_EQ(0600u, mode_of(kPath));
    EXPECT_EQ((Texts{"/tmp/files/file.veloagent-new", "/tmp/files"}), intercept::synced());
    EXPECT_EQ(2u, files_in_folder());
}

TEST_F(Files, ALinkIsReplacedNotFollowed) {
    plant_link();
    EXPECT_TRUE(replace_file(kPath, "new", 0644));
    EXPECT_EQ("precious", read_file(kVictim));
    EXPECT_EQ("new", read_file(kPath));
    EXPECT_FALSE(std::filesystem::is_symlink(kPath));
}

// The name leaves no room for the new file's beside it.
TEST_F(Files, AFolderThatTakesNoNewFileHasItWrittenInPlace) {
    const std::string path = "/tmp/files/" + std::string(250, 'c');
    write_file(path, "an old text");
    EXPECT_TRUE(replace_file(path, "new", 0644));
    EXPECT_EQ("new", read_file(path));
    unlink(path.c_str());
    ASSERT_EQ(0, symlink(kVictim, path.c_str()));
    EXPECT_FALSE(replace_file(path, "new", 0644));
    EXPECT_EQ("precious", read_file(kVictim));
    unlink(path.c_str());
    ASSERT_EQ(0, mkfifo(path.c_str(), 0666));
    EXPECT_FALSE(replace_file(path, "new", 0644)) << "and nobody waits for its reader";
}

// In a folder like /tmp others may keep the new file from being made and have one of theirs in its place.
TEST_F(Files, AFileOfSomebodyElsesIsNotWrittenInPlace) {
    const std::string path = "/tmp/files/" + std::string(250, 'c');
    write_file(path, "planted");
    if (chown(path.c_str(), 1, 1) != 0) GTEST_SKIP() << "there is nobody else in this view";
    EXPECT_FALSE(replace_file(path, "secret", 0600));
    EXPECT_EQ(EPERM, errno);
    EXPECT_EQ("planted", read_file(path));
}

TEST_F(Files, AFileWithASecondNameIsNotWrittenInPlace) {
    const std::string path = "/tmp/files/" + std::string(250, 'c');
    ASSERT_EQ(0, link(kVictim, path.c_str()));
    EXPECT_FALSE(replace_file(path, "new", 0600));
    EXPECT_EQ("precious", read_file(kVictim));
}

TEST_F(Files, AFileThatIsWrittenInPlaceLosesTheRightsOfOthers) {
    const std::string path = "/tmp/files/" + std::string(250, 'c');
    write_file(path, "old");
    chmod(path.c_str(), 0666);
    EXPECT_TRUE(replace_file(path, "secret", 0600));
    EXPECT_EQ(0600u, mode_of(path.c_str()));
}

TEST_F(Files, WhoKeepsTheNewFileFromBeingMadeHasNothingWritten) {
    write_file(kPath, "planted");
    ASSERT_EQ(0, mkdir("/tmp/files/file.veloagent-new", 0755));
    EXPECT_FALSE(replace_file(kPath, "secret", 0600));
    EXPECT_EQ(EEXIST, errno);
    EXPECT_EQ("planted", read_file(kPath));
}

TEST_F(Files, AMissingFolderIsAFailureThatSaysWhy) {
    EXPECT_FALSE(replace_file("/tmp/files/none/file", "new", 0644));
    EXPECT_EQ(ENOENT, errno);
}

TEST_F(Files, ARemovalIsDurable) {
    write_file(kPath, "");
    EXPECT_TRUE(remove_file(kPath));
    EXPECT_FALSE(file_exists(kPath));
    EXPECT_EQ(Texts{"/tmp/files"}, intercept::synced());
    EXPECT_FALSE(remove_file(kPath));
    EXPECT_EQ(ENOENT, errno);
}

}  // namespace
