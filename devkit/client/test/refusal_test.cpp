// What is refused before anybody is asked: a sentence with the nearest name and the list, and the exit code.
#include "desk_fixture.h"
#include "row_names.h"

namespace {

struct RefusalCase {
    const char *arguments;
    int exit_code;
    const char *sentence;  // begins with
};

const RefusalCase kRefusals[] = {
    {"levitate", 1, "levitate is no command. There are: camera run read write"},
    {"alarm", 1, "alarm is no command; did you mean alarms? There are: camera"},
    {"camera vanisch", 1, "vanisch is no command of desk camera; did you mean vanish? There are: state set"},
    {"camera", 1, "desk camera what? There are: state set"},
    {"camera set SD", 2, "usage: desk camera set KEY VALUE    sets a status (desk camera set MotionEvent 1)"},
    {"camera heal all", 2, "usage: desk camera heal    ends all misbehaviour (desk camera heal)"},
    {"alarms --folow", 2, "--folow is no option; did you mean --follow? There are: --follow --help --json"},
    {"log --grep", 2, "--grep needs a TEXT"},
    {"status Batery", 1, "Batery is no status; did you mean Battery? There are: Battery Adapt"},
    {"read md_arm", 1, "md_arm is no parameter that can be read; did you mean md_armed? There are: md_armed"},
    {"read csd_armed", 1, "csd_armed is no parameter that can be read; did you mean"},
    {"write doota 1", 1, "doota is no parameter or action; did you mean doOTA?"},
    {"write md_armed 2", 1, "2 is no value of md_armed. There are: 0 1"},
    {"write td_up warm", 1, "VALUE is a whole number from -100 to 100, not warm"},
    {"write td_up 101", 1, "VALUE is a whole number from -100 to 100, not 101"},
    {"write td_up 20x", 1, "VALUE is a whole number from -100 to 100, not 20x"},
    {"write td_up ''", 1, "VALUE is a whole number from -100 to 100, not \"\""},
    {"ptz abc def", 1, "abc is no remote operation. There are: 1 2 4 5 30 40"},
    {"ptz 40 9", 1, "9 is no value of 40. There are: 0 1 2 3"},
    {"camera set Motion 1", 1, "Motion is no status of the camera; did you mean MotionEvent?"},
    {"camera setting MOTION ENABLE ON", 1, "MOTION is no group of settings; did you mean MOTION_DETECTION?"},
    {"camera setting MOTION_DETECTION MAX 1", 1, "MAX is no element of MOTION_DETECTION. There are: ENABLE"},
    {"camera setting AUDIO_DETECTION ENABLE 1", 1, "1 is no value. There are: ON OFF"},
    {"camera config photobytes 1", 1, "photobytes is no property; did you mean photo_bytes?"},
    {"camera config error_zero maybe", 1, "maybe is no value of error_zero. There are: true false"},
    {"camera fault Status hang", 1, "Status is no endpoint. There are: *"},
    {"camera fault CameraInfo hangs", 1,
     "hangs is no misbehaviour; did you mean hang? There are: error_code"},
    {"camera fault CameraInfo hang 1 2", 1, "what is 2? There is a value and how often"},
    {"camera event MotionEvent 0", 1, "POLLS is a whole number from 1 to 2000000000, not 0"},
    {"camera audio x /tmp/a.wav", 1, "CLIP is a whole number from 1"},
    {"capture stall true", 1, "stall is no property; did you mean stalled? There are: stalled init_result"},
    {"connection 2", 1, "2 is no value. There are: 0 1"},
    {"record start long", 1, "SECONDS is a whole number from 0 to 2000000000, not long"},
    {"save a b x", 1, "LENGTH is a whole number from 1 to 3600, not x"},
    {"snapshot a.jpg 2", 1, "MODE is a whole number from 0 to 1, not 2"},
    {"talk /tmp/none.wav", 1, "cannot read /tmp/none.wav: No such file or directory"},
    {"talk /tmp", 1, "cannot read /tmp: it is a folder"},
    {"talk /tmp/none.wav slow", 1, "slow is no value. There are: real fast bent"},
    {"call get_status Battery", 1, "get_status is no handler"},
    {"variable-set NTP_FAIL x", 1, "NUMBER is a whole number"},
    {"send cloud GET /state", 1, "cloud is no value. There are: camera sdk"},
    {"send sdk FETCH /state", 1, "FETCH is no method"},
    {"send sdk PUT /table '{x'", 1, "this is no JSON: {x"},
    {"log --module poling", 1, "poling is no module; did you mean polling? There are: main loginout"},
    {"help vanish", 1, "vanish is no command"},
};

class DeskRefusal : public Desk, public testing::WithParamInterface<RefusalCase> {};

TEST_P(DeskRefusal, says_what_there_is) {
    const Outcome result = run_desk(GetParam().arguments);
    EXPECT_EQ(result.output.substr(0, result.output.find('\n'))
                  .rfind(std::string("desk: ") + GetParam().sentence, 0),
              0U)
        << result.output;
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1) << result.output;
    EXPECT_EQ(result.exit_code, GetParam().exit_code);
    EXPECT_EQ(asked(), "");
}

INSTANTIATE_TEST_SUITE_P(Words, DeskRefusal, testing::ValuesIn(kRefusals),
                         [](const auto &row) { return case_name(row.param.arguments); });

TEST_F(Desk, refusal_with_json_is_an_object) {
    EXPECT_EQ(run_desk("connection 2 --json").output, "{\"error\":\"2 is no value. There are: 0 1\"}\n");
    EXPECT_EQ(run_shell("(" DESK " connection 2 --json 2>&1 >/dev/null)").output,
              "{\"error\":\"2 is no value. There are: 0 1\"}\n");
}

}  // namespace
