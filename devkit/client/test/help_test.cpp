// Help, completion and colour.
#include <fcntl.h>
#include <pty.h>
#include <unistd.h>

#include <regex>

#include "desk_fixture.h"
#include "row_names.h"

namespace {

using nlohmann::json;

std::vector<json> all_commands() {
    std::vector<json> rows;
    std::istringstream lines(run_desk("help --json").output);
    for (std::string line; std::getline(lines, line);) rows.push_back(json::parse(line));
    return rows;
}

TEST(DeskHelp, lists_the_groups_and_their_commands) {
    for (const char *asking : {"", "help", "--help", "-h"}) {
        const Outcome help = run_desk(asking);
        EXPECT_EQ(help.exit_code, 0);
        EXPECT_NE(help.output.find("\nTrouble with the camera (trouble)\n  camera fault ENDPOINT"),
                  std::string::npos);
        EXPECT_NE(help.output.find("\n  alarms [SINCE] [--follow] "), std::string::npos);
    }
}

TEST(DeskHelp, of_a_group_lists_that_one) {
    const std::string help = run_desk("help trouble").output;
    EXPECT_NE(help.find("camera heal"), std::string::npos);
    EXPECT_EQ(help.find("camera set"), std::string::npos);
    EXPECT_NE(run_desk("help record").output.find("record log"), std::string::npos);
    EXPECT_EQ(run_desk("record --help").output, run_desk("help record").output);
}

TEST(DeskHelp, each_command_has_its_help_and_an_example_that_is_of_it) {
    const std::vector<json> rows = all_commands();
    EXPECT_GT(rows.size(), 40U);
    for (const json &row : rows) {
        const std::string words = row.at("command"), example = row.at("example");
        const Outcome help = run_desk("help " + words);
        EXPECT_EQ(help.exit_code, 0) << words;
        EXPECT_EQ(help.output.rfind("usage: desk " + words, 0), 0U) << help.output;
        EXPECT_NE(help.output.find("\nexample: desk " + example + "\n"), std::string::npos) << help.output;
        EXPECT_EQ(example.rfind(words, 0), 0U) << example;
        if (words != "help" && words != "complete") {
            EXPECT_EQ(run_desk(words + " --help").output, help.output);
        }
    }
}

// An example is sent, or fails for want of a file or a useful answer: it is never refused as not understood.
TEST_F(Desk, examples_are_understood) {
    for (const json &row : all_commands()) {
        const std::string example = row.at("example");
        if (example.find("--follow") != std::string::npos || example.starts_with("save")) continue;
        const Outcome result = run_desk(example);
        EXPECT_NE(result.exit_code, 2) << result.output;
        EXPECT_EQ(result.output.find("There are: "), std::string::npos) << result.output;
    }
}

struct CompletionCase {
    const char *arguments;  // behind "complete"
    const char *words;      // that come of it
};

const CompletionCase kCompletions[] = {
    {"al", "alarms\n"},
    {"camera fau", "fault\nfaults\n"},
    {"status Ba", "Battery\n"},
    {"--notes status Ba", "Battery:%\n"},
    {"read td_", "td_armed\ntd_up\ntd_down\n"},
    {"write md_armed ''", "0\n1\n"},
    {"write manual_record ''", "0\n1\n"},
    {"ptz 40 ''", "0\n1\n2\n3\n"},
    {"camera set Motion", "MotionEvent\n"},
    {"camera setting TEMPERATURE_ALERT M", "MAX\nMIN\n"},
    {"camera setting TEMPERATURE_ALERT ENABLE ''", "ON\nOFF\n"},
    {"camera fault CameraStatus http", "http_status\nhttp10\n"},
    {"capture profile ''", "RTP_H264_WQVGA\nRTP_H264_WVGA\nRTP_H264_HD\n"},
    {"talk file.wav ''", "real\nfast\nbent\n"},
    {"snapshot ph", ""},
    {"alarms --f", "--follow\n"},
    {"log --follow --module agent/al", "agent/alarm_latch\nagent/alarm_rules\n"},
    {"help camera fau", "fault\nfaults\n"},
    {"nothing at all", ""},
};

class DeskCompletion : public testing::TestWithParam<CompletionCase> {};

TEST_P(DeskCompletion, knows_names_and_values) {
    const Outcome result = run_desk(std::string("complete ") + GetParam().arguments);
    EXPECT_EQ(result.output, GetParam().words);
    EXPECT_EQ(result.exit_code, 0);
}

INSTANTIATE_TEST_SUITE_P(Words, DeskCompletion, testing::ValuesIn(kCompletions),
                         [](const auto &row) { return case_name(row.param.arguments); });

TEST(DeskInShell, completes_in_bash) {
    const std::string script =
        ". " DESK_COMPLETION "/desk.bash; complete -p desk; DESK_PROGRAM=" DESK
        "; COMP_WORDS=(desk status Ba); COMP_CWORD=2; _desk; echo ${COMPREPLY[*]}"
        "; COMP_WORDS=(desk write md_armed ''); COMP_CWORD=3; _desk; echo ${COMPREPLY[*]}";
    EXPECT_EQ(
        run_shell("bash --norc -c \"" + std::regex_replace(script, std::regex("\\$"), "\\$") + "\"").output,
        "complete -o default -F _desk desk\nBattery\n0 1\n");
}

TEST(DeskInShell, completes_in_zsh) {
    if (run_shell("command -v zsh").exit_code != 0) GTEST_SKIP() << "there is no zsh";
    const std::string script = "autoload -U compinit; compinit -D; . " DESK_COMPLETION
                               "/desk.zsh; echo $_comps[desk]; DESK_PROGRAM=" DESK
                               "; _describe() { print -l -- \"${(@)${(P)2}}\" }; _files() { echo files }"
                               "; words=(desk status Ba); CURRENT=3; _desk; words=(desk snapshot ph); _desk";
    std::ofstream("/tmp/completion.zsh") << script;
    EXPECT_EQ(run_shell("zsh -f /tmp/completion.zsh").output, "_desk\nBattery:%\nfiles\n");
}

// What the command prints on a terminal.
std::string on_terminal(const char *environment, const std::string &arguments) {
    int master = -1;
    const pid_t child = forkpty(&master, nullptr, nullptr, nullptr);
    if (child == 0) {
        const std::string command = std::string("env ") + environment + " " DESK " " + arguments;
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        _exit(127);
    }
    std::string output;
    char piece[512];
    for (ssize_t length; (length = read(master, piece, sizeof piece)) > 0;)
        output.append(piece, static_cast<size_t>(length));
    close(master);
    waitpid(child, nullptr, 0);
    return output;
}

TEST_F(Desk, colours_only_where_they_are_wanted) {
    answer(R"({"total":1,"alarms":[{"seq":4,"index":1,"name":"alarm","status":1,"result":0,"time":61}]})");
    const std::string plain = "00:01:01  motion  {1, \"alarm\", 1}  seq 4";
    EXPECT_EQ(on_terminal("-u NO_COLOR TERM=xterm TZ=UTC", "alarms").find(plain), std::string::npos);
    EXPECT_EQ(on_terminal("TERM=xterm NO_COLOR=1 TZ=UTC", "alarms"), plain + "\r\n");
    EXPECT_EQ(on_terminal("-u NO_COLOR TERM=dumb TZ=UTC", "alarms"), plain + "\r\n");
    EXPECT_EQ(run_shell("env -u NO_COLOR TERM=xterm TZ=UTC " DESK " alarms").output, plain + "\n");
    EXPECT_EQ(on_terminal("TERM=xterm TZ=UTC", "--json alarms").find('\033'), std::string::npos);
    EXPECT_EQ(on_terminal("-u NO_COLOR TERM=xterm", "levitate").rfind("\033[31mdesk:\033[0m levitate", 0),
              0U);
    EXPECT_EQ(on_terminal("TERM=xterm NO_COLOR=1", "levitate").find('\033'), std::string::npos);
}

}  // namespace
