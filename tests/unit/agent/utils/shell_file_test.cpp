#include "agent/utils/shell_file.h"

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string>

#include "agent_test.h"
#include "intercept.h"
#include "leaks.h"

namespace {

constexpr char kPath[] = "/tmp/shell_file";

class ShellFile : public AgentTest {
  protected:
    // What asking logs, where the command ends with `status` after it has written `written`.
    std::string log_of_asking(int status) {
        fake_os::on_shell([=, this](const std::string &) {
            write_file(kPath, written);
            return fake_os::ShellResult{status};
        });
        return output_of([this] { text = shell_file_text("command > shell_file", kPath, &answered); });
    }
    std::string written = "text";
    std::optional<std::string> text;
    bool answered = false;
};

TEST_F(ShellFile, IsReadAndNothingIsSaid) {
    EXPECT_EQ(log_of_asking(0), "");
    EXPECT_EQ(text, "text");
    EXPECT_TRUE(answered);
}

TEST_F(ShellFile, MayHoldASingleCharacter) {
    written = "0";
    EXPECT_EQ(log_of_asking(0), "");
    EXPECT_EQ(text, "0");
}

TEST_F(ShellFile, IsForEverybodyToReadAndItsOwnersToWrite) {
    const mode_t usual = umask(022);
    log_of_asking(0);
    umask(usual);
    EXPECT_EQ(std::filesystem::status(kPath).permissions(), std::filesystem::perms{0644});
}

TEST_F(ShellFile, LeavesNothingOpen) {
    expect_nothing_left([this] { log_of_asking(0); });
}

TEST_F(ShellFile, OfACommandThatFailsIsNotRead) {
    answered = true;
    EXPECT_EQ(log_of_asking(256), "");
    EXPECT_EQ(text, "");
    EXPECT_FALSE(answered);
}

TEST_F(ShellFile, ThatCannotBeReadIsTold) {
    intercept::refuse_next("read");
    EXPECT_EQ(log_of_asking(0), std::string("shell output not read, ") + kPath + ":Input/output error\n");
    EXPECT_FALSE(answered);
}

TEST_F(ShellFile, IsReadOnAfterASignal) {
    intercept::interrupt_next_read();
    EXPECT_EQ(log_of_asking(0), "");
    EXPECT_EQ(text, "text");
    EXPECT_TRUE(answered);
}

}  // namespace
