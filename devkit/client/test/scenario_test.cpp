// desk run: steps as they are taken, questions and answers; what is said of a name that is none.
#include "follower.h"

namespace {

constexpr char kList[] =
    R"([{"name":"bad-night","title":"A bad night"},{"name":"router-restart","title":"Router restart"}])";
constexpr char kTwoSteps[] = R"("title":"A bad night","said":["Somebody walks by","Its sessions end"])";
constexpr char kAnswer[] = R"({"ask":"Was it told?","count":"alarms:1","found":1,"good":true})";

std::string ended(const std::string &answers, const char *stopped = "false") {
    return std::string("{") + kTwoSteps + R"(,"running":false,"stopped":)" + stopped + R"(,"answers":[)" +
           answers + "]}";
}

TEST_F(Desk, run_prints_steps_questions_and_answers) {
    answer(ended(kAnswer));
    const Outcome result = run_desk("run bad-night | sed 's/^[0-9:]*  //'");
    EXPECT_EQ(result.output, "Somebody walks by\nIts sessions end\nYes  Was it told?  (1 x alarms:1)\n");
    EXPECT_EQ(run_desk("run bad-night").exit_code, 0);
    EXPECT_NE(asked().find("POST /api/scenarios/bad-night\n"), std::string::npos) << asked();
}

TEST_F(Desk, run_with_json_prints_an_object_a_line) {
    answer(ended(kAnswer));
    const Outcome result = run_desk("run bad-night --json | sed 's/\"clock\":\"[0-9:]*\",//'");
    EXPECT_EQ(result.output,
              "{\"said\":\"Somebody walks by\",\"step\":1}\n{\"said\":\"Its sessions end\",\"step\":2}\n" +
                  nlohmann::json::parse(kAnswer).dump() + "\n");
}

TEST_F(Desk, run_ends_with_1_where_an_answer_is_not_the_right_one) {
    answer(ended(R"({"ask":"Was it told?","count":"alarms:1","found":0,"good":false})"));
    const Outcome result = run_desk("run bad-night");
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_NE(result.output.find("No   Was it told?  (0 x alarms:1)\n"), std::string::npos) << result.output;
    answer(ended(kAnswer, "true"));
    EXPECT_EQ(run_desk("run bad-night").exit_code, 1);
}

TEST_F(Desk, run_of_no_scenario_names_the_nearest_and_all) {
    answer(kList);
    const Outcome result = run_desk("run router-restrat");
    EXPECT_EQ(result.output,
              "desk: router-restrat is no scenario; did you mean router-restart? There are: bad-night "
              "router-restart\n");
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_EQ(asked().find("POST"), std::string::npos);
}

TEST_F(Desk, run_is_completed_and_helped_with_what_there_is) {
    answer(kList);
    EXPECT_EQ(run_desk("complete run ro").output, "router-restart\n");
    const std::string help = run_desk("run --help").output;
    EXPECT_NE(help.find("  router-restart          Router restart\n"), std::string::npos) << help;
    EXPECT_NE(help.find("\nexample: desk run router-restart\n"), std::string::npos) << help;
}

TEST_F(Desk, run_tells_what_the_console_refuses) {
    answer(R"({"error":"a scenario runs already"})", 400);
    const Outcome result = run_desk("run bad-night");
    EXPECT_EQ(result.output, "desk: the console answers 400: a scenario runs already\n");
    EXPECT_EQ(result.exit_code, 1);
}

TEST_F(Desk, run_shows_a_step_as_it_is_said_and_stops_at_ctrl_c) {
    answer(R"({"said":["Somebody walks by"],"running":true,"stopped":false,"answers":null})");
    Follower client("run bad-night");
    EXPECT_NE(client.line().find("  Somebody walks by"), std::string::npos);
    answer(
        R"({"said":["Somebody walks by","Its sessions end"],"running":true,"stopped":false,"answers":null})");
    EXPECT_NE(client.line().find("  Its sessions end"), std::string::npos);
    client.interrupt();
    EXPECT_NE(client.line().find("desk: stopped"), std::string::npos);
    EXPECT_EQ(client.end_of_reading(), 130);
    EXPECT_NE(asked().find("DELETE /api/scenarios\n"), std::string::npos);
}

TEST(DeskRun, without_a_desk_says_so) {
    const Outcome result = run_shell("env DESK_RUN=/nowhere " DESK " run bad-night");
    EXPECT_NE(result.output.find("nothing is running here"), std::string::npos);
    EXPECT_EQ(result.exit_code, 1);
}

}  // namespace
