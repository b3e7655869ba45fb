// ptz_direction_control, formatSD and rebootOperation: documents, results and logs of every command.
#include "ak_model/remote_operations.h"

#include "handler_test.h"

namespace {

#define LULLABY(inner) "<RemoteControl><Action>LULLABY</Action>" inner "</RemoteControl>"

std::string start_log(int command, int param) {
    return "!!!***platform/Z55/ak_model <N> ***!!!\ncommand=" + std::to_string(command) +
           ",param=" + std::to_string(param) + "\n";
}

constexpr char kLullabyLog[] =
    "!!!***platform/Z55/ak_model <N> ***!!!\n ***** sound operation*****\n[GET CameraStatus?LullabyMode]\n";

Outcome control(int command, int param) {
    return outcome_of([&] { return ptz_direction_control(command, param); });
}

class RemoteOperations : public HandlerTest {};

struct DirectionRow {
    const char *name;
    int command;
    const char *text;
};

class Direction : public HandlerTest, public testing::WithParamInterface<DirectionRow> {};

TEST_P(Direction, IsOnlyLogged) {
    const auto [name, command, text] = GetParam();
    const Outcome outcome = control(command, 9);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_LOG(outcome.log, start_log(command, 9) + text + "\n");
    EXPECT_EQ(camera.seen(), Texts{});
}

INSTANTIATE_TEST_SUITE_P(
    Rows, Direction,
    testing::Values(DirectionRow{.name = "up", .command = 1, .text = "PTZ control: UP"},
                    DirectionRow{.name = "down", .command = 2, .text = "PTZ control: DOWN"},
                    DirectionRow{.name = "left", .command = 4, .text = "PTZ control: LEFT"},
                    DirectionRow{.name = "right", .command = 5, .text = "PTZ control: RIGHT"}),
    by_name);

struct UnknownRow {
    const char *name;
    int command;
};

class UnknownCommand : public HandlerTest, public testing::WithParamInterface<UnknownRow> {};

TEST_P(UnknownCommand, IsLoggedAndAccepted) {
    const Outcome outcome = control(GetParam().command, -7);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_LOG(outcome.log, start_log(GetParam().command, -7) + "ptz_direction_control: unknown command= " +
                                std::to_string(GetParam().command) + "\n");
    EXPECT_EQ(camera.seen(), Texts{});
}

INSTANTIATE_TEST_SUITE_P(Rows, UnknownCommand,
                         testing::Values(UnknownRow{.name = "between down and left", .command = 3},
                                         UnknownRow{.name = "below the first", .command = 0},
                                         UnknownRow{.name = "below 0", .command = -1},
                                         UnknownRow{.name = "above right", .command = 6},
                                         UnknownRow{.name = "below the light", .command = 29},
                                         UnknownRow{.name = "above the light", .command = 31},
                                         UnknownRow{.name = "below the lullaby", .command = 39},
                                         UnknownRow{.name = "above the resolution", .command = 46},
                                         UnknownRow{.name = "largest", .command = 2147483647},
                                         UnknownRow{.name = "smallest", .command = -2147483647 - 1}),
                         by_name);

struct LullabyRow {
    const char *name;
    int operation, param;
    const char *document;
};

class Lullaby : public HandlerTest, public testing::WithParamInterface<LullabyRow> {};

TEST_P(Lullaby, PostsItsDocument) {
    const auto [name, operation, param, document] = GetParam();
    const Outcome outcome = control(operation, param);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_LOG(outcome.log, start_log(operation, param) + kLullabyLog + "[POST RemoteControl]\n");
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(camera.seen(), (Texts{get_request("CameraStatus?LullabyMode"), control_request(document)}));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, Lullaby,
    testing::Values(
        LullabyRow{.name = "off", .operation = 40, .param = 0, .document = LULLABY("<Setting>OFF</Setting>")},
        LullabyRow{.name = "on", .operation = 40, .param = 1, .document = LULLABY("<Setting>ON</Setting>")},
        LullabyRow{
            .name = "pause", .operation = 40, .param = 2, .document = LULLABY("<Setting>PAUSE</Setting>")},
        LullabyRow{
            .name = "resume", .operation = 40, .param = 3, .document = LULLABY("<Setting>RESUME</Setting>")},
        LullabyRow{.name = "no setting 4", .operation = 40, .param = 4, .document = ""},
        LullabyRow{.name = "no setting 7", .operation = 40, .param = 7, .document = ""},
        LullabyRow{.name = "no setting below 0", .operation = 40, .param = -1, .document = ""},
        LullabyRow{.name = "mode all", .operation = 41, .param = 0, .document = LULLABY("<Mode>ALL</Mode>")},
        LullabyRow{.name = "mode one", .operation = 41, .param = 1, .document = LULLABY("<Mode>ONE</Mode>")},
        LullabyRow{.name = "no mode 2", .operation = 41, .param = 2, .document = ""},
        LullabyRow{.name = "no mode below 0", .operation = 41, .param = -1, .document = ""},
        LullabyRow{.name = "first song",
                   .operation = 42,
                   .param = 0,
                   .document = LULLABY("<Mode>ONE</Mode><Song>1</Song>")},
        LullabyRow{.name = "second song",
                   .operation = 42,
                   .param = 1,
                   .document = LULLABY("<Mode>ONE</Mode><Song>2</Song>")},
        LullabyRow{.name = "sixth song",
                   .operation = 42,
                   .param = 5,
                   .document = LULLABY("<Mode>ONE</Mode><Song>6</Song>")},
        LullabyRow{
            .name = "repeat one", .operation = 43, .param = 0, .document = LULLABY("<Mode>ONE</Mode>")},
        LullabyRow{.name = "repeat at random",
                   .operation = 43,
                   .param = 1,
                   .document = LULLABY("<Mode>RANDOM</Mode>")},
        LullabyRow{
            .name = "repeat all", .operation = 43, .param = 2, .document = LULLABY("<Mode>ALL</Mode>")},
        LullabyRow{.name = "no repeat 3", .operation = 43, .param = 3, .document = ""},
        LullabyRow{.name = "no repeat below 0", .operation = 43, .param = -1, .document = ""},
        LullabyRow{.name = "silent", .operation = 44, .param = 0, .document = LULLABY("<Volume>0</Volume>")},
        LullabyRow{
            .name = "volume", .operation = 44, .param = 57, .document = LULLABY("<Volume>57</Volume>")},
        LullabyRow{.name = "volume below 0",
                   .operation = 44,
                   .param = -3,
                   .document = LULLABY("<Volume>-3</Volume>")}),
    by_name);

TEST_F(RemoteOperations, SongsOutOfRangePostNothing) {
    for (const int song : {6, 7, 100, -1, -2147483647 - 1}) {
        camera.forget();
        const Outcome outcome = control(42, song);
        EXPECT_EQ(outcome.result, 0);
        EXPECT_LOG(outcome.log, start_log(42, song) + kLullabyLog + "Select Song is out of range, error");
        EXPECT_EQ(camera.seen(), Texts{get_request("CameraStatus?LullabyMode")});
    }
}

TEST_F(RemoteOperations, LullabyNeedsAnAnswerButNotItsContent) {
    camera.reply("/CGI/CameraStatus?LullabyMode", "<ErrorCode>-3</ErrorCode>");
    control(40, 1);
    EXPECT_EQ(camera.requests().size(), 2U);
    for (const CameraReply &reply : {CameraReply{.status = 500}, CameraReply{.hang_up = true}}) {
        camera.forget();
        camera.reply("/CGI/CameraStatus?LullabyMode", {reply});
        const Outcome outcome = control(40, 1);
        EXPECT_EQ(outcome.result, 0);
        EXPECT_LOG(outcome.errors, "local_response is null:  (platform/Z55/ak_model, <N>)\n");
        EXPECT_LOG(outcome.log, start_log(40, 1) + kLullabyLog + "[failed]\n");
        for (const CameraRequest &request : camera.requests()) EXPECT_EQ(request.method, "GET");
    }
}

struct LightRow {
    const char *name;
    int param;
    size_t length;  // the number in the pseudo-header
};

class NightLight : public HandlerTest, public testing::WithParamInterface<LightRow> {};

TEST_P(NightLight, PostsItsSettingWithItsLength) {
    const auto [name, param, length] = GetParam();
    const std::string document = "<RemoteControl><Action>NIGHT_LIGHT</Action><Setting>" +
                                 std::to_string(param) + "</Setting></RemoteControl>";
    const Outcome outcome = control(30, param);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_LOG(
        outcome.log,
        start_log(30, param) + "!!!***platform/Z55/ak_model <N> ***!!!\n **********\n[POST RemoteControl]\n");
    EXPECT_EQ(camera.seen(), Texts{"POST /CGI/RemoteControl Session=12345\n" + posted(document, length)});
}

INSTANTIATE_TEST_SUITE_P(
    Rows, NightLight,
    testing::Values(LightRow{.name = "off", .param = 0, .length = 79},
                    LightRow{.name = "one digit", .param = 5, .length = 79},
                    LightRow{.name = "two digits", .param = 50, .length = 80},
                    LightRow{.name = "three digits", .param = 100, .length = 81},
                    LightRow{.name = "sign", .param = -1, .length = 80},
                    LightRow{.name = "longest number", .param = -2147483647 - 1, .length = 89}),
    by_name);

TEST_F(RemoteOperations, FailuresAreNotToldToTheCloud) {
    camera.go_away();
    for (const int command : {30, 40, 42, 44}) EXPECT_EQ(control(command, 1).result, 0) << command;
}

struct FortyFiveRow {
    const char *name;
    int param, type;
};

class ResolutionCommand : public HandlerTest, public testing::WithParamInterface<FortyFiveRow> {};

TEST_P(ResolutionCommand, SelectsTheProfileAndStartsTheThread) {
    const auto [name, param, type] = GetParam();
    video_recording = 1;  // so that the thread ends at once
    gResolutionType = 0;
    const Outcome outcome = outcome_of([&, requested = param] {
        const int at_once = ptz_direction_control(45, requested);
        pthread_join(resolutionChange_t, nullptr);
        return at_once;
    });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(gResolutionType, type);
    const std::string start = start_log(45, param) +
                              "ptz_direction_control: change resolution= " + std::to_string(type) +
                              "\n--platform/Z55/ak_model,line <N>--\narg = ";
    EXPECT_LOG(outcome.log.substr(0, outcome.log.find("arg = ") + 6), start);
}

INSTANTIATE_TEST_SUITE_P(Rows, ResolutionCommand,
                         testing::Values(FortyFiveRow{.name = "first", .param = 1, .type = 1},
                                         FortyFiveRow{.name = "second", .param = 2, .type = 2},
                                         FortyFiveRow{.name = "third", .param = 3, .type = 3},
                                         FortyFiveRow{.name = "below the first", .param = 0, .type = 1},
                                         FortyFiveRow{.name = "above the third", .param = 4, .type = 1},
                                         FortyFiveRow{.name = "below 0", .param = -1, .type = 1}),
                         by_name);

TEST_F(RemoteOperations, FormattingTellsItsResult) {
    EXPECT_EQ(outcome_of(formatSD).result, 0);
    EXPECT_EQ(fake_os::shell_commands().size(), 1U);
    camera.go_away();
    const Outcome outcome = outcome_of(formatSD);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_LOG(outcome.log,
               "!!!***platform/Z55/ak_model <N> ***!!!\n ***** formatsd operation*****\n"
               "[POST RemoteControl]\n[failed]\n");
    EXPECT_EQ(fake_os::shell_commands().size(), 1U);
}

constexpr char kRebootLog[] = "!!!***platform/Z55/ak_model <N> ***!!!\n ***** reboot operation*****\n";

TEST_F(RemoteOperations, RebootThatCannotStartIsAFailure) {
    fake_os::on_reboot(-1);
    const Outcome outcome = outcome_of([] { return rebootOperation(); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_LOG(outcome.log, std::string(kRebootLog) + "system reboot failure\nlocal_res = -1\n");
    EXPECT_EQ(fake_os::reboots(), 1);
    EXPECT_EQ(camera.seen(), Texts{});
}

TEST_F(RemoteOperations, RebootToolThatReportsNothingIsASuccess) {
    fake_os::on_reboot(0);
    const Outcome outcome = outcome_of([] { return rebootOperation(); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_LOG(outcome.log, std::string(kRebootLog) + "system reboot ok\n");
}

}  // namespace
