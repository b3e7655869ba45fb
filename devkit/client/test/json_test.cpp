// --json: one object a line and nothing else.
#include "desk_fixture.h"
#include "row_names.h"

namespace {

constexpr auto by_arguments = [](const auto &row) { return case_name(row.param.arguments); };

struct JsonCase {
    const char *arguments, *reply, *output;
    int exit_code;
};

const JsonCase kJson[] = {
    {.arguments = "alarms --json",
     .reply = R"({"alarms":[{"seq":4,"index":1,"name":"alarm","status":1,"result":0,"time":61}]})",
     .output =
         R"({"clock":"00:01:01","index":1,"meaning":"motion","name":"alarm","result":0,"seq":4,"status":1,"time":61})"
         "\n",
     .exit_code = 0},
    {.arguments = "--json camera state stream",
     .reply = R"({"stream":"HD"})",
     .output = "{\"stream\":\"HD\"}\n",
     .exit_code = 0},
    {.arguments = "camera state --json",
     .reply = R"({"a":{"b":1}})",
     .output = "{\"a\":{\"b\":1}}\n",
     .exit_code = 0},
    {.arguments = "camera faults --json",
     .reply = R"([{"id":1},{"id":2}])",
     .output = "{\"id\":1}\n{\"id\":2}\n",
     .exit_code = 0},
    {.arguments = "--json camera faults", .reply = "[]", .output = "", .exit_code = 0},
    {.arguments = "camera heal --json", .reply = "{}", .output = "{\"done\":true}\n", .exit_code = 0},
    {.arguments = "camera requests --json",
     .reply = R"([{"seq":7,"time_ms":12,"status":200,"method":"GET","target":"/","body":""}])",
     .output = R"({"body":"","method":"GET","seq":7,"status":200,"target":"/","time_ms":12})"
               "\n",
     .exit_code = 0},
    {.arguments = "status Battery --json",
     .reply = R"({"results":[{"result":2,"value":"90"}]})",
     .output = R"({"name":"Battery","unit":"%","value":"90"})"
               "\n",
     .exit_code = 0},
    {.arguments = "record start 5 --json",
     .reply = R"({"results":[{"result":-10}]})",
     .output = R"({"meaning":"a recording runs already","result":-10})"
               "\n",
     .exit_code = 1},
    {.arguments = "status --json Battery",
     .reply = R"({"results":[{"result":5,"value":"ERROR"}]})",
     .output = R"({"error":"status Battery: ERROR: the camera did not answer, or does not have it"})"
               "\n",
     .exit_code = 1},
};

class DeskJson : public Desk, public testing::WithParamInterface<JsonCase> {};

TEST_P(DeskJson, is_an_object_a_line) {
    answer(GetParam().reply);
    const Outcome result = run_desk(GetParam().arguments);
    EXPECT_EQ(result.output, GetParam().output);
    EXPECT_EQ(result.exit_code, GetParam().exit_code);
}

INSTANTIATE_TEST_SUITE_P(Commands, DeskJson, testing::ValuesIn(kJson), by_arguments);

// Whatever is asked and whatever answers: each line of each command is an object.
TEST_F(Desk, json_is_never_mixed_with_text) {
    std::istringstream rows(run_desk("help --json").output);
    for (std::string row; std::getline(rows, row);) {
        const std::string example = nlohmann::json::parse(row).at("example");
        if (example.find("--follow") != std::string::npos || example.starts_with("save")) continue;
        for (const char *reply : {"{}", "[]", "no JSON", R"({"results":[{"result":0,"value":"1"}]})"}) {
            answer(reply);
            std::istringstream lines(run_desk("--json " + example).output);
            for (std::string line; std::getline(lines, line);)
                EXPECT_TRUE(nlohmann::json::parse(line, nullptr, false).is_object())
                    << example << ": " << line;
        }
    }
}

}  // namespace
