#include "agent/status_query.h"

#include "agent_test.h"

namespace {

using Slots = QueryResult;

class StatusQuery : public CameraTest {
  protected:
    // Only the query's own lines: those of the request and of the queue are other modules'.
    static std::string own_lines(const std::function<void()> &body) {
        std::string own;
        std::string log;
        errors_of([&] { log = output_of(body); });
        for (size_t start = 0; start < log.size();) {
            const size_t end = std::min(log.find('\n', start), log.size() - 1) + 1;
            const std::string line = log.substr(start, end - start);
            for (const char *mark : {"*** keys_str", "getCamera", "value  "}) {
                if (line.rfind(mark, 0) == 0) own += line;
            }
            start = end;
        }
        return own;
    }
};

// --- getCameraStatuses

TEST_F(StatusQuery, NotificationComesFirstAndNoAmpersandLast) {
    camera.reply("/CGI/CameraStatus", "<Battery>80</Battery><SD>1</SD>");
    const std::string log = own_lines([] {
        EXPECT_EQ(getCameraStatuses("777", FakeCamera::kHost, {"Battery", "SD"}, true), (Slots{"80", "1"}));
    });
    EXPECT_EQ(camera.seen(), (Texts{"GET /CGI/CameraStatus?Notification&Battery&SD Session=777"}));
    EXPECT_EQ(log, "*** keys_str = \"Notification&Battery&SD\"***\n");
}

TEST_F(StatusQuery, WithoutNotificationTheKeysStandAlone) {
    camera.reply("/CGI/CameraStatus", "<SD>1</SD><Battery>80</Battery>");
    const std::string log = own_lines([] {
        EXPECT_EQ(getCameraStatuses("777", FakeCamera::kHost, {"Battery", "SD"}, false), (Slots{"80", "1"}));
    });
    EXPECT_EQ(camera.seen(), (Texts{"GET /CGI/CameraStatus?Battery&SD Session=777"}));
    EXPECT_EQ(log, "*** keys_str = \"Battery&SD\"***\n");
}

TEST_F(StatusQuery, AMissingKeyLeavesItsSlotEmptyAndIsLogged) {
    camera.reply("/CGI/CameraStatus", "<ErrorCode>0</ErrorCode><A>1</A><C></C>");
    const std::string log = own_lines([] {
        EXPECT_EQ(getCameraStatuses("777", FakeCamera::kHost, {"A", "B", "C"}, false),
                  (Slots{"1", std::nullopt, ""}));
    });
    EXPECT_EQ(log,
              "*** keys_str = \"A&B&C\"***\n"
              "value  1 = NULL\n");
}

TEST_F(StatusQuery, AnErrorCodeWhoseNumberIs0IsSuccess) {
    for (const char *code : {"0", "00", "\n0\n", ""}) {
        camera.reply("/CGI/CameraStatus", std::string("<ErrorCode>") + code + "</ErrorCode><A>1</A>");
        camera.reply("/CGI/CameraSetting", std::string("<ErrorCode>") + code + "</ErrorCode><A>1</A>");
        own_lines([] {
            EXPECT_EQ(getCameraStatuses("777", FakeCamera::kHost, {"A"}, false), (Slots{"1"}));
            EXPECT_EQ(getCameraSettings("777", FakeCamera::kHost, {"A"}), (Slots{"1"}));
            EXPECT_EQ(getCameraStatus("777", FakeCamera::kHost, "A"), "1");
        });
    }
}

TEST_F(StatusQuery, ACameraErrorIsAMarkerInTheFirstSlot) {
    camera.reply("/CGI/CameraStatus", "<ErrorCode>-2</ErrorCode><A>1</A><B>2</B>");
    const std::string log = own_lines([] {
        EXPECT_EQ(getCameraStatuses("777", FakeCamera::kHost, {"A", "B"}, false),
                  (Slots{"ERRORCODE:-2", std::nullopt}));
    });
    EXPECT_EQ(log,
              "*** keys_str = \"A&B\"***\n"
              "getCameraStatuses failed due to polling failing.Errorcode: -2 \n");
}

TEST_F(StatusQuery, TheMarkerIsCutTo39Characters) {
    camera.reply("/CGI/CameraStatus", "<ErrorCode>" + std::string(100, '7') + "</ErrorCode>");
    own_lines([] {
        const auto values = getCameraStatuses("777", FakeCamera::kHost, {"A"}, false);
        EXPECT_EQ(values, (Slots{"ERRORCODE:" + std::string(29, '7')}));
    });
}

TEST_F(StatusQuery, NoReplyIsNoArray) {
    camera.reply("/CGI/CameraStatus", {{.body = "<A>1</A>", .status = 500}});
    const std::string expected =
        "*** keys_str = \"A\"***\n"
        "getCameraStatuses failed. response of perform_curl() is null.\n";
    const auto query = [] { EXPECT_FALSE(getCameraStatuses("777", FakeCamera::kHost, {"A"}, false)); };
    EXPECT_EQ(own_lines(query), expected);
    camera.go_away();
    EXPECT_EQ(own_lines(query), expected);
}

TEST_F(StatusQuery, TheStatusQueryHas199CharactersAtMost) {
    camera.reply("/CGI/CameraStatus", "<A>1</A>");
    const std::string name(10'000, 'k');
    const std::string log = own_lines([&] {
        (void)getCameraStatuses("777", FakeCamera::kHost, {name.c_str(), "A"}, true);
    });
    EXPECT_EQ(log,
              "*** keys_str = \"Notification&" + std::string(199 - 13, 'k') + "\"***\nvalue  0 = NULL\n");
}

TEST_F(StatusQuery, WithoutKeysNothingIsLost) {
    camera.reply("/CGI/CameraStatus", "<ErrorCode>-1</ErrorCode>");
    own_lines([] { EXPECT_EQ(getCameraStatuses("777", FakeCamera::kHost, {}, false), (Slots{})); });
    EXPECT_EQ(camera.seen(), (Texts{"GET /CGI/CameraStatus? Session=777"}));
}

TEST_F(StatusQuery, TheAddressIsBuiltIn200Bytes) {
    const std::string host(10'000, 'h');
    std::string log;
    errors_of([&] { log = output_of([&] { (void)getCameraStatuses("777", host, {"A"}, false); }); });
    EXPECT_NE(log.find("url = http://" + std::string(192, 'h') + "\n"), std::string::npos);
}

// --- getCameraSettings

TEST_F(StatusQuery, SettingsAreAskedByTheirGroups) {
    camera.reply("/CGI/CameraSetting", "<Video>ON</Video><Audio>2</Audio>");
    const std::string log = own_lines([] {
        EXPECT_EQ(getCameraSettings("777", FakeCamera::kHost, {"Video", "Audio", "Clock"}),
                  (Slots{"ON", "2", std::nullopt}));
    });
    EXPECT_EQ(camera.seen(), (Texts{"GET /CGI/CameraSetting?Video&Audio&Clock Session=777"}));
    EXPECT_EQ(log, "value  2 = NULL\n");
}

TEST_F(StatusQuery, SettingsHave20BytesAKeyAndOneSpare) {
    camera.reply("/CGI/CameraSetting", "<A>1</A>");
    const std::string name(100, 'k');
    own_lines([&] { (void)getCameraSettings("777", FakeCamera::kHost, {name.c_str(), "A"}); });
    EXPECT_EQ(camera.seen(), (Texts{"GET /CGI/CameraSetting?" + std::string(59, 'k') + " Session=777"}));
}

TEST_F(StatusQuery, ASettingsErrorIsAMarkerInTheFirstSlot) {
    camera.reply("/CGI/CameraSetting", "<ErrorCode>-9</ErrorCode>");
    const std::string log = own_lines([] {
        EXPECT_EQ(getCameraSettings("777", FakeCamera::kHost, {"A", "B"}),
                  (Slots{"ERRORCODE:-9", std::nullopt}));
    });
    EXPECT_EQ(log, "getCameraStatuses failed due to polling failing.Errorcode: -9 \n");
}

TEST_F(StatusQuery, SettingsWithoutReplyAreNoArray) {
    camera.go_away();
    const std::string log = own_lines([] {
        EXPECT_FALSE(getCameraSettings("777", FakeCamera::kHost, {"A", "B"}));
    });
    EXPECT_EQ(log, "getCameraStatuses failed. response of perform_curl() is null.\n");
}

// --- getCameraStatus

TEST_F(StatusQuery, ASingleKeyIsTheWholeQuery) {
    camera.reply("/CGI/CameraStatus", "<Temp>21</Temp>");
    const std::string log =
        own_lines([] { EXPECT_EQ(getCameraStatus("777", FakeCamera::kHost, "Temp"), "21"); });
    EXPECT_EQ(camera.seen(), (Texts{"GET /CGI/CameraStatus?Temp Session=777"}));
    EXPECT_EQ(log, "");
}

TEST_F(StatusQuery, ASingleKeyThatIsMissingIsNothing) {
    camera.reply("/CGI/CameraStatus", "<ErrorCode>0</ErrorCode>");
    EXPECT_EQ(own_lines([] { EXPECT_FALSE(getCameraStatus("777", FakeCamera::kHost, "Temp")); }), "");
}

TEST_F(StatusQuery, ASingleKeysErrorIsAMarker) {
    camera.reply("/CGI/CameraStatus", "<ErrorCode>" + std::string(100, '7') + "</ErrorCode>");
    const std::string log = own_lines([] {
        EXPECT_EQ(getCameraStatus("777", FakeCamera::kHost, "Temp"), "ERRORCODE:" + std::string(29, '7'));
    });
    EXPECT_EQ(log, "getCameraStatus failed due to polling failing. key:Temp Errorcode: " +
                       std::string(100, '7') + " \n");
}

TEST_F(StatusQuery, ASingleKeyWithoutReplyIsNothing) {
    camera.go_away();
    const std::string log =
        own_lines([] { EXPECT_FALSE(getCameraStatus("777", FakeCamera::kHost, "Temp")); });
    EXPECT_EQ(log, "getCameraStatus failed. response of perform_curl() is null.\n");
}

TEST_F(StatusQuery, GoesAheadOfCommandsThroughTheQueue) {
    camera.reply("/CGI/CameraStatus", "<Temp>21</Temp>");
    std::string log;
    errors_of([&] { log = output_of([] { (void)getCameraStatus("777", FakeCamera::kHost, "Temp"); }); });
    EXPECT_NE(log.find("high size: 1\ncurlmgr: performing curl, name = polling... \n"), std::string::npos);
}

// --- query_error

TEST(QueryError, IsTheCodeBehindTheMarker) {
    EXPECT_STREQ(query_error({"ERRORCODE:-2", std::nullopt}), "-2");
    EXPECT_STREQ(query_error({"ERRORCODE:"}), "");
    EXPECT_EQ(query_error({"xERRORCODE:-2"}), nullptr);
    EXPECT_EQ(query_error({"1", "ERRORCODE:-2"}), nullptr);
    EXPECT_EQ(query_error({std::nullopt}), nullptr);
    EXPECT_EQ(query_error({}), nullptr);
}

}  // namespace
