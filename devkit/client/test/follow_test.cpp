// Commands that follow what happens, against a server whose answers change meanwhile.
#include <regex>

#include "follower.h"

namespace {

std::string alarms(int seq, int status) {
    return R"({"total":)" + std::to_string(seq) + R"(,"alarms":[{"seq":)" + std::to_string(seq) +
           R"(,"index":1,"name":"alarm","status":)" + std::to_string(status) + R"(,"result":0,"time":61}]})";
}

TEST_F(Desk, alarms_are_followed) {
    answer(alarms(7, 1));
    Follower follower("alarms --follow");
    EXPECT_EQ(follower.line(), "00:01:01  motion  {1, \"alarm\", 1}  seq 7");
    answer(R"({"total":7,"alarms":[]})");
    wait_until_asked("GET /alarms?since=7");
    answer(alarms(8, 18));
    EXPECT_EQ(follower.line(), "00:01:01  upgrade: starts  {1, \"alarm\", 18}  seq 8");
}

TEST_F(Desk, alarms_are_followed_through_a_reboot) {
    answer(alarms(7, 18));
    Follower follower("alarms --follow --json");
    EXPECT_NE(follower.line().find("\"seq\":7"), std::string::npos);
    answer("{}", 503);
    wait_until_asked("GET /alarms?since=7");
    start_agent(3);
    answer(alarms(8, 19));  // the desk keeps them: the next agent's numbers go on
    EXPECT_NE(follower.line().find("\"meaning\":\"upgrade: succeeded\""), std::string::npos);
}

TEST_F(Desk, alarms_of_a_desk_that_was_started_anew_are_followed_from_the_first_on) {
    answer(alarms(7, 18));
    Follower follower("alarms --follow --json");
    follower.line();
    answer(alarms(1, 19));
    const std::string line = follower.line();
    EXPECT_NE(line.find("\"seq\":1,"), std::string::npos) << line;
    wait_until_asked("GET /alarms?since=1");
}

TEST_F(Desk, following_ends_when_nobody_reads) {
    answer(alarms(7, 1));
    Follower follower("alarms --follow");
    follower.line();
    answer(R"({"total":7,"alarms":[]})");
    EXPECT_EQ(follower.end_of_reading(), 0);
}

TEST(DeskFollow, of_what_does_not_run_is_refused) {
    setenv("DESK_RUN", "/tmp/working", 1);
    for (const char *command : {"alarms --follow", "events --follow", "log --follow"})
        EXPECT_EQ(run_desk(command).exit_code, 1) << command;
}

constexpr char kQuiet[] =
    R"({"total":0,"alarms":[],"network":"up","status":{"Battery":"90"},"pid":4,"requests_total":1})";

TEST_F(Desk, events_are_followed) {
    answer(kQuiet);
    Follower follower("events --follow --json");
    wait_until_asked("GET /alarms");
    answer(
        R"({"total":0,"alarms":[],"network":"vanished","status":{"Battery":"5"},"pid":9,"requests_total":2})");
    std::string told;
    for (int i = 0; i < 3; ++i)
        told += std::regex_replace(follower.line(), std::regex(R"("clock":"[\d:]{8}",)"), "") + "\n";
    EXPECT_EQ(told, R"({"before":"up","name":"network","source":"camera","value":"vanished"}
{"before":"90","name":"status Battery","source":"camera","value":"5"}
{"before":4,"name":"started as process","source":"agent","value":9}
)");
    answer(alarms(1, 13));
    EXPECT_NE(follower.line().find("\"meaning\":\"battery low\""), std::string::npos);
    answer("{}", 500);
    EXPECT_NE(follower.line().find(R"("name":"answers","source":"camera","value":false)"), std::string::npos);
    EXPECT_NE(follower.line().find(R"("name":"answers","source":"agent","value":false)"), std::string::npos);
}

TEST_F(Desk, events_tell_how_it_stands) {
    answer(kQuiet);
    const Outcome result = run_desk("events");
    EXPECT_EQ(std::regex_replace(result.output, std::regex(R"(\d\d:\d\d:\d\d)"), "T"),
              "T  camera  answers  true\nT  camera  network  up\nT  camera  status Battery  90\n"
              "T  agent  answers  true\nT  agent  started as process  4\n");
}

class DeskLog : public testing::Test {
  protected:
    DeskLog() {
        setenv("DESK_RUN", "/tmp", 1);
        std::ofstream("/tmp/agent.log") << "Try log VeloAgent init time...........\n"
                                           "*   Trying 127.0.0.1:1...\n"
                                           "Loginning..\n"
                                           "(poll) SendAlarmData!! index:1, name:alarm, status: 1 \n";
    }

    static void append(const char *text) {
        std::ofstream("/tmp/agent.log", std::ios::app) << text;
    }
};

TEST_F(DeskLog, lines_have_their_module) {
    EXPECT_EQ(run_desk("log").output,
              "--:--:--  agent/main                Try log VeloAgent init time...........\n"
              "--:--:--  -                         *   Trying 127.0.0.1:1...\n"
              "--:--:--  agent/loginout            Loginning..\n"
              "--:--:--  agent/polling             (poll) SendAlarmData!! index:1, name:alarm, status: 1 \n");
}

TEST_F(DeskLog, is_chosen_by_module_and_text) {
    const std::string alarm =
        "--:--:--  agent/polling             (poll) SendAlarmData!! index:1, name:alarm, status: 1 \n";
    EXPECT_EQ(run_desk("log --module polling").output, alarm);
    EXPECT_EQ(run_desk("log --module agent/polling --grep index:1").output, alarm);
    EXPECT_EQ(run_desk("log --module alarm_latch --grep SendAlarmData").output,
              alarm);  // prints the same text
    EXPECT_EQ(run_desk("log --module polling --grep Login").output, "");
    EXPECT_EQ(run_desk("log --grep 'Login' --json").output,
              "{\"clock\":null,\"modules\":[\"agent/loginout\"],\"text\":\"Loginning..\"}\n");
}

TEST_F(DeskLog, is_followed_with_times_and_through_a_new_file) {
    Follower follower("log --follow --module loginout");
    EXPECT_EQ(follower.line(), "--:--:--  agent/loginout            Loginning..");
    append("Log");
    append("inning..\n");
    const std::regex timed(R"(\d\d:\d\d:\d\d  agent/loginout            Loginning\.\.)");
    EXPECT_TRUE(std::regex_match(follower.line(), timed));
    std::ofstream("/tmp/new.log") << "Getting Session Key...\n" << std::string(500, '-') << '\n';
    rename("/tmp/new.log", "/tmp/agent.log");
    EXPECT_TRUE(std::regex_match(follower.line(),
                                 std::regex(R"(\d\d:\d\d:\d\d  agent/loginout +Getting Session Key\.\.\.)")));
}

}  // namespace
