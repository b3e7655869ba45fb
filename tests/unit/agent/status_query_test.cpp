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
        EXPECT_EQ((Slots{"80", "1"}), getCameraStatuses("777", FakeCamera::host, {"Battery", "SD"}, true));
    });
    EXPECT_EQ((Texts{"GET /CGI/CameraStatus?Notification&Battery&SD Session=777"}), camera.seen());
    EXPECT_EQ("*** keys_str = \"Notification&Battery&SD\"***\n", log);
}

TEST_F(StatusQuery, WithoutNotificationTheKeysStandAlone) {
    camera.reply("/CGI/CameraStatus", "<SD>1</SD><Battery>80</Battery>");
    const std::string log = own_lines([] {
        EXPECT_EQ((Slots{"80", "1"}), getCameraStatuses("777", FakeCamera::host, {"Battery", "SD"}, false));
    });
    EXPECT_EQ((Texts{"GET /CGI/CameraStatus?Battery&SD Session=777"}), camera.seen());
    EXPECT_EQ("*** keys_str = \"Battery&SD\"***\n", log);
}

TEST_F(StatusQuery, AMissingKeyLeavesItsSlotEmptyAndIsLogged) {
    camera.reply("/CGI/CameraStatus", "<ErrorCode>0</ErrorCode><A>1</A><C></C>");
    const std::string log = own_lines([] {
        EXPECT_EQ((Slots{"1", std::nullopt, ""}),
                  getCameraStatuses("777", FakeCamera::host, {"A", "B", "C"}, false));
    });
    EXPECT_EQ(
        "*** keys_str = \"A&B&C\"***\n"
        "value  1 = NULL\n",
        log);
}

TEST_F(StatusQuery, AnErrorCodeWhoseNumberIs0IsSuccess) {
    for (const char *code : {"0", "00", "\n0\n", ""}) {
        camera.reply("/CGI/CameraStatus", std::string("<ErrorCode>") + code + "</ErrorCode><A>1</A>");
        camera.reply("/CGI/CameraSetting", std::string("<ErrorCode>") + code + "</ErrorCode><A>1</A>");
        own_lines([] {
            EXPECT_EQ((Slots{"1"}), getCameraStatuses("777", FakeCamera::host, {"A"}, false));
            EXPECT_EQ((Slots{"1"}), getCameraSettings("777", FakeCamera::host, {"A"}));
            EXPECT_EQ("1", getCameraStatus("777", FakeCamera::host, "A"));
        });
    }
}

TEST_F(StatusQuery, ACameraErrorIsAMarkerInTheFirstSlot) {
    camera.reply("/CGI/CameraStatus", "<ErrorCode>-2</ErrorCode><A>1</A><B>2</B>");
    const std::string log = own_lines([] {
        EXPECT_EQ((Slots{"ERRORCODE:-2", std::nullopt}),
                  getCameraStatuses("777", FakeCamera::host, {"A", "B"}, false));
    });
    EXPECT_EQ(
        "*** keys_str = \"A&B\"***\n"
        "getCameraStatuses failed due to polling failing.Errorcode: -2 \n",
        log);
}

TEST_F(StatusQuery, TheMarkerIsCutTo39Characters) {
    camera.reply("/CGI/CameraStatus", "<ErrorCode>" + std::string(100, '7') + "</ErrorCode>");
    own_lines([] {
        const auto values = getCameraStatuses("777", FakeCamera::host, {"A"}, false);
        EXPECT_EQ((Slots{"ERRORCODE:" + std::string(29, '7')}), values);
    });
}

TEST_F(StatusQuery, NoReplyIsNoArray) {
    camera.reply("/CGI/CameraStatus", {{.body = "<A>1</A>", .status = 500}});
    const std::string expected =
        "*** keys_str = \"A\"***\n"
        "getCameraStatuses failed. response of perform_curl() is null.\n";
    const auto query = [] { EXPECT_FALSE(getCameraStatuses("777", FakeCamera::host, {"A"}, false)); };
    EXPECT_EQ(expected, own_lines(query));
    camera.go_away();
    EXPECT_EQ(expected, own_lines(query));
}

TEST_F(StatusQuery, TheStatusQueryHas199CharactersAtMost) {
    camera.reply("/CGI/CameraStatus", "<A>1</A>");
    const std::string name(10'000, 'k');
    const std::string log = own_lines([&] {
        (void)getCameraStatuses("777", FakeCamera::host, {name.c_str(), "A"}, true);
    });
    EXPECT_EQ("*** keys_str = \"Notification&" + std::string(199 - 13, 'k') + "\"***\nvalue  0 = NULL\n",
              log);
}

TEST_F(StatusQuery, WithoutKeysNothingIsLost) {
    camera.reply("/CGI/CameraStatus", "<ErrorCode>-1</ErrorCode>");
    own_lines([] { EXPECT_EQ((Slots{}), getCameraStatuses("777", FakeCamera::host, {}, false)); });
    EXPECT_EQ((Texts{"GET /CGI/CameraStatus? Session=777"}), camera.seen());
}

TEST_F(StatusQuery, TheAddressIsBuiltIn200Bytes) {
    const std::string host(10'000, 'h');
    std::string log;
    errors_of([&] { log = output_of([&] { (void)getCameraStatuses("777", host, {"A"}, false); }); });
    EXPECT_NE(std::string::npos, log.find("url = http://" + std::string(192, 'h') + "\n"));
}

// --- getCameraSettings

TEST_F(StatusQuery, SettingsAreAskedByTheirGroups) {
    camera.reply("/CGI/CameraSetting", "<Video>ON</Video><Audio>2</Audio>");
    const std::string log = own_lines([] {
        EXPECT_EQ((Slots{"ON", "2", std::nullopt}),
                  getCameraSettings("777", FakeCamera::host, {"Video", "Audio", "Clock"}));
    });
    EXPECT_EQ((Texts{"GET /CGI/CameraSetting?Video&Audio&Clock Session=777"}), camera.seen());
    EXPECT_EQ("value  2 = NULL\n", log);
}

TEST_F(StatusQuery, SettingsHave20BytesAKeyAndOneSpare) {
    camera.reply("/CGI/CameraSetting", "<A>1</A>");
    const std::string name(100, 'k');
    own_lines([&] { (void)getCameraSettings("777", FakeCamera::host, {name.c_str(), "A"}); });
    EXPECT_EQ((Texts{"GET /CGI/CameraSetting?" + std::string(59, 'k') + " Session=777"}), camera.seen());
}

TEST_F(StatusQuery, ASettingsErrorIsAMarkerInTheFirstSlot) {
    camera.reply("/CGI/CameraSetting", "<ErrorCode>-9</ErrorCode>");
    const std::string log = own_lines([] {
        EXPECT_EQ((Slots{"ERRORCODE:-9", std::nullopt}),
                  getCameraSettings("777", FakeCamera::host, {"A", "B"}));
    });
    EXPECT_EQ("getCameraStatuses failed due to polling failing.Errorcode: -9 \n", log);
}

TEST_F(StatusQuery, SettingsWithoutReplyAreNoArray) {
    camera.go_away();
    const std::string log = own_lines([] {
        EXPECT_FALSE(getCameraSettings("777", FakeCamera::host, {"A", "B"}));
    });
    EXPECT_EQ("getCameraStatuses failed. response of perform_curl() is null.\n", log);
}

// --- getCameraStatus

TEST_F(StatusQuery, ASingleKeyIsTheWholeQuery) {
    camera.reply("/CGI/CameraStatus", "<Temp>21</Temp>");
    const std::string log =
        own_lines([] { EXPECT_EQ("21", getCameraStatus("777", FakeCamera::host, "Temp")); });
    EXPECT_EQ((Texts{"GET /CGI/CameraStatus?Temp Session=777"}), camera.seen());
    EXPECT_EQ("", log);
}

TEST_F(StatusQuery, ASingleKeyThatIsMissingIsNothing) {
    camera.reply("/CGI/CameraStatus", "<ErrorCode>0</ErrorCode>");
    EXPECT_EQ("", own_lines([] { EXPECT_FALSE(getCameraStatus("777", FakeCamera::host, "Temp")); }));
}

TEST_F(StatusQuery, ASingleKeysErrorIsAMarker) {
    camera.reply("/CGI/CameraStatus", "<ErrorCode>" + std::string(100, '7') + "</ErrorCode>");
    const std::string log = own_lines([] {
        EXPECT_EQ("ERRORCODE:" + std::string(29, '7'), getCameraStatus("777", FakeCamera::host, "Temp"));
    });
    EXPECT_EQ(
        "getCameraStatus failed due to polling failing. key:Temp Errorcode: " + std::string(100, '7') + " \n",
        log);
}

TEST_F(StatusQuery, ASingleKeyWithoutReplyIsNothing) {
    camera.go_away();
    const std::string log = own_lines([] { EXPECT_FALSE(getCameraStatus("777", FakeCamera::host, "Temp")); });
    EXPECT_EQ("getCameraStatus failed. response of perform_curl() is null.\n", log);
}

TEST_F(StatusQuery, GoesAheadOfCommandsThroughTheQueue) {
    camera.reply("/CGI/CameraStatus", "<Temp>21</Temp>");
    std::string log;
    errors_of([&] { log = output_of([] { (void)getCameraStatus("777", FakeCamera::host, "Temp"); }); });
    EXPECT_NE(std::string::npos, log.find("high size: 1\ncurlmgr: performing curl, name = polling... \n"));
}

// --- query_error

TEST(QueryError, IsTheCodeBehindTheMarker) {
    EXPECT_STREQ("-2", query_error({"ERRORCODE:-2", std::nullopt}));
    EXPECT_STREQ("", query_error({"ERRORCODE:"}));
    EXPECT_EQ(nullptr, query_error({"xERRORCODE:-2"}));
    EXPECT_EQ(nullptr, query_error({"1", "ERRORCODE:-2"}));
    EXPECT_EQ(nullptr, query_error({std::nullopt}));
    EXPECT_EQ(nullptr, query_error({}));
}

}  // namespace
