#include "ak_model/reserve_file.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ostream>

#include "agent_test.h"
#include "leaks.h"

namespace {

constexpr char kCard[] = "/tmp/fuse_d";
constexpr char kReserve[] = "/tmp/fuse_d/.ota.tmp";
constexpr char kFill[] = "/bin/dd if=/dev/zero of=/tmp/fuse_d/.ota.tmp bs=1024000 count=100";
constexpr char kVictim[] = "/tmp/victim";

const std::string kCreating = "!!!***platform/Z55/ak_model <N> ***!!! dummyFileCreator function \n";
const std::string kCreated = kCreating + "create start\ncreate file end\ncreate file success\n";
const std::string kNotCreated = kCreating + "create start\ncreate file end\ncreate file failure\n";
const std::string kExists = kCreating + "file exist!!\n";
const std::string kDeleting = "!!!***platform/Z55/ak_model <N> ***!!! deleteDummyFile function \n";

class Reserve : public AgentTest {
  protected:
    void SetUp() override {
        AgentTest::SetUp();
        unlink(kReserve);
        write_file(kVictim, "precious");
        fake_os::on_shell([](const std::string &command) { return shell(command, 0); });
    }
    // dd, which puts something into the file that it is told, and what removes that file.
    static fake_os::ShellResult shell(const std::string &command, int status_of_dd) {
        if (command != kFill) return {system(command.c_str())};
        if (status_of_dd != -1) write_file(kReserve, "zeros");
        return {status_of_dd};
    }
    static std::string log_of_making(int result) {
        return output_of([=] { EXPECT_EQ(dummyFileCreator(), result); });
    }
    static std::string log_of_deleting(int result) {
        return output_of([=] { EXPECT_EQ(deleteDummyFile(), result); });
    }
};

TEST_F(Reserve, IsMadeByDd) {
    EXPECT_LOG(log_of_making(0), kCreated);
    EXPECT_EQ(fake_os::shell_commands(), Texts{kFill});
    EXPECT_EQ(fake_os::shell_limits(), std::vector{600}) << "a slow card takes its time";
    EXPECT_TRUE(file_exists(kReserve));
}

TEST_F(Reserve, IsAsOpenAsTheMaskAllowsAndNotKeptOpen) {
    log_of_making(0);  // what prints may open a file of its own
    unlink(kReserve);
    const long before = open_descriptors();
    const mode_t mask = umask(0);
    log_of_making(0);
    umask(mask);
    EXPECT_EQ(open_descriptors(), before);
    struct stat made {};
    ASSERT_EQ(stat(kReserve, &made), 0);
    EXPECT_EQ(made.st_mode & 07777, 0666u);
}

TEST_F(Reserve, ThatExistsIsLeftAlone) {
    write_file(kReserve, "space");
    EXPECT_LOG(log_of_making(-1), kExists);
    EXPECT_TRUE(fake_os::shell_commands().empty());
    EXPECT_EQ(read_file(kReserve), "space");
}

TEST_F(Reserve, HalfOfWhichDdCouldMakeDoesNotStay) {
    for (const int status : {256, 9, -1}) {
        fake_os::on_shell([=](const std::string &command) { return shell(command, status); });
        EXPECT_LOG(log_of_making(-1), kNotCreated);
        EXPECT_FALSE(file_exists(kReserve)) << "what is too small must not pass for the reserve";
    }
}

TEST_F(Reserve, IsDeleted) {
    write_file(kReserve, "space");
    EXPECT_LOG(log_of_deleting(0), kDeleting + "/tmp/fuse_d/.ota.tmp file deleted successfully.\n");
    EXPECT_FALSE(file_exists(kReserve));
    EXPECT_LOG(log_of_deleting(-1), kDeleting + "Error:  file not found! check the directory!!\n");
}

TEST_F(Reserve, ThatCannotBeDeleted) {
    mkdir(kReserve, 0755);
    std::string log;
    const std::string errors = errors_of([&] { log = log_of_deleting(-1); });
    EXPECT_LOG(log, kDeleting + "Unable to delete the file\n");
    EXPECT_EQ(errors, "Error: Is a directory\n");
    EXPECT_EQ(errors_on_a_full_log([] { EXPECT_EQ(deleteDummyFile(), -1); }), errors);
    rmdir(kReserve);
}

// --- The card

struct CardRow {
    const char *name;
    void (*take_away)();
};

void PrintTo(const CardRow &row, std::ostream *out) {
    *out << row.name;
}

class WithoutCard : public Reserve {
  protected:
    void SetUp() override {
        Reserve::SetUp();
        umount2(kCard, MNT_DETACH);
    }
    void TearDown() override {
        umount2("/tmp/elsewhere", MNT_DETACH);
        unlink(kCard);
        mkdir(kCard, 0755);
        mount("tmpfs", kCard, "tmpfs", 0, "size=512m");
    }
};

class NoCard : public WithoutCard, public testing::WithParamInterface<CardRow> {};

void link_elsewhere() {
    rmdir(kCard);
    mkdir("/tmp/elsewhere", 0755);
    ASSERT_EQ(mount("tmpfs", "/tmp/elsewhere", "tmpfs", 0, nullptr), 0);
    ASSERT_EQ(symlink("/tmp/elsewhere", kCard), 0);
}

// A reserve in memory would take what the agent lives on.
TEST_P(NoCard, NoReserve) {
    GetParam().take_away();
    EXPECT_LOG(log_of_making(-1), kNotCreated);
    EXPECT_TRUE(fake_os::shell_commands().empty());
    EXPECT_FALSE(file_exists(kReserve));
}

INSTANTIATE_TEST_SUITE_P(Reserve, NoCard,
                         testing::Values(CardRow{.name = "NotMounted", .take_away = [] {}},
                                         CardRow{.name = "NoFolder", .take_away = [] { rmdir(kCard); }},
                                         CardRow{.name = "LinkElsewhere", .take_away = link_elsewhere}),
                         by_name);

TEST_F(WithoutCard, BehindALinkedFolderIsNoReserveOfOurs) {
    link_elsewhere();
    write_file(kReserve, "precious");
    EXPECT_LOG(log_of_making(-1), kNotCreated);
    EXPECT_LOG(log_of_deleting(-1), kDeleting + "Error:  file not found! check the directory!!\n");
    EXPECT_EQ(read_file(kReserve), "precious");
}

// --- The upgrade that has its space

TEST_F(Reserve, IsNotMadeWhileAnUpgradeHasItsSpace) {
    write_file(kReserve, "space");
    log_of_deleting(0);
    EXPECT_LOG(log_of_making(-1), kNotCreated);
    EXPECT_FALSE(file_exists(kReserve));
    EXPECT_LOG(output_of([] { EXPECT_EQ(restore_reserve(), 0); }), kCreated);
    EXPECT_EQ(read_file(kReserve), "zeros");
}

TEST_F(Reserve, DoesNotOutliveAnUpgradesRequestThatComesBeforeDdHasOpenedIt) {
    fake_os::on_shell([](const std::string &command) {
        if (command == kFill) {
            EXPECT_EQ(deleteDummyFile(), 0);
        }
        return shell(command, 0);
    });
    EXPECT_LOG(log_of_making(-1),
               kCreating + "create start\n" + kDeleting +
                   "/tmp/fuse_d/.ota.tmp file deleted successfully.\ncreate file end\ncreate file failure\n");
    EXPECT_FALSE(file_exists(kReserve));
}

// --- What others put in its place

struct PlantRow {
    const char *name;
    int (*plant)();
};

void PrintTo(const PlantRow &row, std::ostream *out) {
    *out << row.name;
}

class Planted : public Reserve, public testing::WithParamInterface<PlantRow> {};

TEST_P(Planted, IsReplacedByTheReserve) {
    ASSERT_EQ(GetParam().plant(), 0);
    EXPECT_LOG(log_of_making(0), kCreated);
    struct stat kind {};
    EXPECT_EQ(lstat(kReserve, &kind), 0);
    EXPECT_TRUE(S_ISREG(kind.st_mode));
    EXPECT_EQ(read_file(kReserve), "zeros");
    EXPECT_EQ(read_file(kVictim), "precious");
    EXPECT_FALSE(file_exists("/tmp/created"));
}

TEST_P(Planted, IsNoReserveToDelete) {
    ASSERT_EQ(GetParam().plant(), 0);
    EXPECT_LOG(log_of_deleting(-1), kDeleting + "Error:  file not found! check the directory!!\n");
    EXPECT_EQ(read_file(kVictim), "precious");
}

INSTANTIATE_TEST_SUITE_P(
    Reserve, Planted,
    testing::Values(PlantRow{.name = "LinkToAFile", .plant = [] { return symlink(kVictim, kReserve); }},
                    PlantRow{.name = "LinkToNothing",
                             .plant = [] { return symlink("/tmp/created", kReserve); }},
                    PlantRow{.name = "Fifo", .plant = [] { return mkfifo(kReserve, 0666); }}),
    by_name);

}  // namespace
