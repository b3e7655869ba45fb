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
    int command;
    const char *text;
};

class Direction : public HandlerTest, public testing::WithParamInterface<DirectionRow> {};

TEST_P(Direction, IsOnlyLogged) {
    const auto [command, text] = GetParam();
    const Outcome outcome = control(command, 9);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_LOG(start_log(command, 9) + text + "\n", outcome.log);
    EXPECT_EQ(camera.seen(), Texts{});
}

INSTANTIATE_TEST_SUITE_P(Rows, Direction,
                         testing::Values(DirectionRow{1, "PTZ control: UP"},
                                         DirectionRow{2, "PTZ control: DOWN"},
                                         DirectionRow{4, "PTZ control: LEFT"},
                                         DirectionRow{5, "PTZ control: RIGHT"}));

class UnknownCommand : public HandlerTest, public testing::WithParamInterface<int> {};

TEST_P(UnknownCommand, IsLoggedAndAccepted) {
    const Outcome outcome = control(GetParam(), -7);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_LOG(start_log(GetParam(), -7) +
                   "ptz_direction_control: unknown command= " + std::to_string(GetParam()) + "\n",
               outcome.log);
    EXPECT_EQ(camera.seen(), Texts{});
}

INSTANTIATE_TEST_SUITE_P(Commands, UnknownCommand,
                         testing::Values(3, 0, -1, 6, 29, 31, 39, 46, 2147483647, -2147483647 - 1));

struct LullabyRow {
    int operation, param;
    const char *document;
};

class Lullaby : public HandlerTest, public testing::WithParamInterface<LullabyRow> {};

TEST_P(Lullaby, PostsItsDocument) {
    const auto [operation, param, document] = GetParam();
    const Outcome outcome = control(operation, param);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_LOG(start_log(operation, param) + kLullabyLog + "[POST RemoteControl]\n", outcome.log);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(camera.seen(), (Texts{get_request("CameraStatus?LullabyMode"), control_request(document)}));
}

INSTANTIATE_TEST_SUITE_P(Rows, Lullaby,
                         testing::Values(LullabyRow{40, 0, LULLABY("<Setting>OFF</Setting>")},
                                         LullabyRow{40, 1, LULLABY("<Setting>ON</Setting>")},
                                         LullabyRow{40, 2, LULLABY("<Setting>PAUSE</Setting>")},
                                         LullabyRow{40, 3, LULLABY("<Setting>RESUME</Setting>")},
                                         LullabyRow{40, 4, ""}, LullabyRow{40, 7, ""}, LullabyRow{40, -1, ""},
                                         LullabyRow{41, 0, LULLABY("<Mode>ALL</Mode>")},
                                         LullabyRow{41, 1, LULLABY("<Mode>ONE</Mode>")},
                                         LullabyRow{41, 2, ""}, LullabyRow{41, -1, ""},
                                         LullabyRow{42, 0, LULLABY("<Mode>ONE</Mode><Song>1</Song>")},
                                         LullabyRow{42, 1, LULLABY("<Mode>ONE</Mode><Song>2</Song>")},
                                         LullabyRow{42, 5, LULLABY("<Mode>ONE</Mode><Song>6</Song>")},
                                         LullabyRow{43, 0, LULLABY("<Mode>ONE</Mode>")},
                                         LullabyRow{43, 1, LULLABY("<Mode>RANDOM</Mode>")},
                                         LullabyRow{43, 2, LULLABY("<Mode>ALL</Mode>")},
                                         LullabyRow{43, 3, ""}, LullabyRow{43, -1, ""},
                                         LullabyRow{44, 0, LULLABY("<Volume>0</Volume>")},
                                         LullabyRow{44, 57, LULLABY("<Volume>57</Volume>")},
                                         LullabyRow{44, -3, LULLABY("<Volume>-3</Volume>")}));

TEST_F(RemoteOperations, SongsOutOfRangePostNothing) {
    for (const int song : {6, 7, 100, -1, -2147483647 - 1}) {
        camera.forget();
        const Outcome outcome = control(42, song);
        EXPECT_EQ(outcome.result, 0);
        EXPECT_LOG(start_log(42, song) + kLullabyLog + "Select Song is out of range, error", outcome.log);
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
        EXPECT_LOG("local_response is null:  (platform/Z55/ak_model, <N>)\n", outcome.errors);
        EXPECT_LOG(start_log(40, 1) + kLullabyLog + "[failed]\n", outcome.log);
        for (const CameraRequest &request : camera.requests()) EXPECT_EQ(request.method, "GET");
    }
}

struct LightRow {
    int param;
    size_t length;  // the number in the pseudo-header
};

class NightLight : public HandlerTest, public testing::WithParamInterface<LightRow> {};

TEST_P(NightLight, PostsItsSettingWithItsLength) {
    const auto [param, length] = GetParam();
    const std::string document = "<RemoteControl><Action>NIGHT_LIGHT</Action><Setting>" +
                                 std::to_string(param) + "</Setting></RemoteControl>";
    const Outcome outcome = control(30, param);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_LOG(
        start_log(30, param) + "!!!***platform/Z55/ak_model <N> ***!!!\n **********\n[POST RemoteControl]\n",
        outcome.log);
    EXPECT_EQ(camera.seen(), Texts{"POST /CGI/RemoteControl Session=12345\n" + posted(document, length)});
}

INSTANTIATE_TEST_SUITE_P(Rows, NightLight,
                         testing::Values(LightRow{0, 79}, LightRow{5, 79}, LightRow{50, 80},
                                         LightRow{100, 81}, LightRow{-1, 80}, LightRow{-2147483647 - 1, 89}));

TEST_F(RemoteOperations, FailuresAreNotToldToTheCloud) {
    camera.go_away();
    for (const int command : {30, 40, 42, 44}) EXPECT_EQ(control(command, 1).result, 0) << command;
}

struct FortyFiveRow {
    int param, type;
};

class ResolutionCommand : public HandlerTest, public testing::WithParamInterface<FortyFiveRow> {};

TEST_P(ResolutionCommand, SelectsTheProfileAndStartsTheThread) {
    const auto [param, type] = GetParam();
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
    EXPECT_LOG(start, outcome.log.substr(0, outcome.log.find("arg = ") + 6));
}

INSTANTIATE_TEST_SUITE_P(Rows, ResolutionCommand,
                         testing::Values(FortyFiveRow{1, 1}, FortyFiveRow{2, 2}, FortyFiveRow{3, 3},
                                         FortyFiveRow{0, 1}, FortyFiveRow{4, 1}, FortyFiveRow{-1, 1}));

TEST_F(RemoteOperations, FormattingTellsItsResult) {
    EXPECT_EQ(outcome_of(formatSD).result, 0);
    EXPECT_EQ(fake_os::shell_commands().size(), 1U);
    camera.go_away();
    const Outcome outcome = outcome_of(formatSD);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_LOG(
        "!!!***platform/Z55/ak_model <N> ***!!!\n ***** formatsd operation*****\n"
        "[POST RemoteControl]\n[failed]\n",
        outcome.log);
    EXPECT_EQ(fake_os::shell_commands().size(), 1U);
}

constexpr char kRebootLog[] = "!!!***platform/Z55/ak_model <N> ***!!!\n ***** reboot operation*****\n";

TEST_F(RemoteOperations, RebootThatCannotStartIsAFailure) {
    fake_os::on_reboot(-1);
    const Outcome outcome = outcome_of([] { return rebootOperation(); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_LOG(std::string(kRebootLog) + "system reboot failure\nlocal_res = -1\n", outcome.log);
    EXPECT_EQ(fake_os::reboots(), 1);
    EXPECT_EQ(camera.seen(), Texts{});
}

TEST_F(RemoteOperations, RebootToolThatReportsNothingIsASuccess) {
    fake_os::on_reboot(0);
    const Outcome outcome = outcome_of([] { return rebootOperation(); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_LOG(std::string(kRebootLog) + "system reboot ok\n", outcome.log);
}

}  // namespace
