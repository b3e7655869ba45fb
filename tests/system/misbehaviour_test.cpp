// A camera that answers badly: each row is a misbehaviour of one poll, what the log says to it, and that
// polling and alarms go on without a new login.
#include <gtest/gtest.h>

#include "desk.h"
#include "row_names.h"

namespace {

constexpr char kTransferFailed[] =
    "*** (poll) curl_perform ends ***\n"
    "After res !=CURLE_OK: platform/Z55/agent/polling,line 126\n"
    "getCameraStatuses failed. response of perform_curl() is null.\n"
    "getMultipleCameraStatuses failed: return value is null.\n"
    "\n*** (Polling) end of a time.";
constexpr char kValuesMissing[] =
    "value  0 = NULL\nvalue  1 = NULL\nvalue  2 = NULL\nvalue  3 = NULL\nvalue  4 = NULL\nvalue  5 = NULL\n";
constexpr char kValuesThere[] = "Value of MotionEvent:0\n";

std::string status_text(int status) {
    return "*** (poll) curl_perform ends ***\n"
           "status != 200, status code = " +
           std::to_string(status) +
           "  (platform/Z55/agent/polling: 132)\n"
           "getCameraStatuses failed. response of perform_curl() is null.\n"
           "getMultipleCameraStatuses failed: return value is null.\n";
}

struct Misbehaviour {
    const char *name;
    json order;         // what the camera does to the next poll; "PORT" in a location is its port
    std::string log;    // what stands in the log then
    std::string error;  // and on standard error, where something is expected
};

void PrintTo(const Misbehaviour &row, std::ostream *out) {
    *out << row.name;
}

const Misbehaviour kRows[] = {
    {.name = "Http500",
     .order = {{"kind", "http_status"}, {"status", 500}},
     .log = "res: 500\n",
     .error = ""},
    {.name = "Http500IsNoAnswer",
     .order = {{"kind", "http_status"}, {"status", 500}},
     .log = status_text(500),
     .error = ""},
    {.name = "Http404",
     .order = {{"kind", "http_status"}, {"status", 404}},
     .log = status_text(404),
     .error = ""},
    {.name = "Http204WithoutBody",
     .order = {{"kind", "body"}, {"raw", true}, {"text", "HTTP/1.1 204 No Content\r\n\r\n"}},
     .log = status_text(204),
     .error = ""},
    {.name = "Http10", .order = {{"kind", "http10"}}, .log = status_text(0), .error = ""},
    {.name = "RedirectToAnAnswer",
     .order = {{"kind", "redirect"},
               {"location", "http://127.0.0.1:PORT/CGI/CameraStatus?MotionEvent&moved"}},
     .log = "res: 302\nres: 200\n",
     .error = ""},
    {.name = "RedirectToNothing",
     .order = {{"kind", "redirect"}, {"location", "http://127.0.0.1:PORT/none"}},
     .log = status_text(404),
     .error = ""},
    {.name = "RedirectToAClosedPort",
     .order = {{"kind", "redirect"}, {"location", "http://127.0.0.1:1/"}},
     .log = kTransferFailed,
     .error = "Couldn't connect to server"},
    {.name = "RedirectInCircles",
     .order = {{"kind", "redirect"},
               {"count", 100},
               {"location", "http://127.0.0.1:PORT/CGI/CameraStatus?Notification"}},
     .log = kTransferFailed,
     .error = "Number of redirects hit maximum amount"},
    {.name = "Closed",
     .order = {{"kind", "close"}},
     .log = kTransferFailed,
     .error = "Server returned nothing (no headers, no data)"},
    {.name = "Reset",
     .order = {{"kind", "reset"}},
     .log = kTransferFailed,
     .error = "Failure when receiving data from the peer"},
    {.name = "Delayed", .order = {{"kind", "delay"}, {"ms", 300}}, .log = kValuesThere, .error = ""},
    {.name = "Truncated",
     .order = {{"kind", "truncate"}, {"bytes", 30}},
     .log = kTransferFailed,
     .error = "Transferred a partial file"},
    {.name = "Dripped",
     .order = {{"kind", "drip"}, {"bytes", 40}, {"ms", 1}},
     .log = "*** (poll) write_callback_func: ",
     .error = ""},
    {.name = "DrippedKeepsTheLastPieceOnly",
     .order = {{"kind", "pieces"}, {"pieces", 40}, {"ms", 10}},
     .log = kValuesMissing,
     .error = ""},
    {.name = "Chunked",
     .order = {{"kind", "pieces"}, {"pieces", 1}, {"chunked", true}},
     .log = kValuesThere,
     .error = ""},
    {.name = "Garbage", .order = {{"kind", "garbage"}, {"bytes", 5000}}, .log = kValuesMissing, .error = ""},
    {.name = "GarbageWithoutHeader",
     .order = {{"kind", "garbage"}, {"raw", true}},
     .log = kTransferFailed,
     .error = "Unsupported protocol"},
    {.name = "Oversized",
     .order = {{"kind", "oversize"}, {"bytes", 8'000'000}},
     .log = kTransferFailed,
     .error = "Failed writing received data to disk/application"},
    {.name = "Empty",
     .order = {{"kind", "body"}, {"text", ""}},
     .log = "getMultipleCameraStatuses failed: return value is null.\n",
     .error = ""},
    {.name = "TagsTheWrongWayRound",
     .order = {{"kind", "body"}, {"text", "</MotionEvent>1<MotionEvent></ErrorCode><ErrorCode>"}},
     .log = kValuesMissing,
     .error = ""},
    {.name = "ErrorCodeZeroIsSuccess",
     .order = {{"kind", "body"}, {"text", "<ErrorCode>0</ErrorCode><MotionEvent>0</MotionEvent>"}},
     .log = kValuesThere,
     .error = ""},
    {.name = "LongValue",
     .order = {{"kind", "body"}, {"text", "<MotionEvent>" + std::string(10'000, '0') + "</MotionEvent>"}},
     .log = "Value of MotionEvent:" + std::string(10'000, '0') + "\n",
     .error = ""},
};

class MisbehaviourTest : public testing::TestWithParam<Misbehaviour> {};

json prepared(json order, int port) {
    order["endpoint"] = "CameraStatus";
    if (!order.contains("count")) order["count"] = 1;
    if (order.contains("location")) {
        std::string location = order["location"];
        if (const size_t at = location.find("PORT"); at != std::string::npos)
            location.replace(at, 4, std::to_string(port));
        order["location"] = location;
    }
    return order;
}

void expect_motion_alarm(Desk &desk) {
    const long seen = desk.last_alarm();
    desk.set_status("MotionEvent", "1");
    wait_until("the alarm arrives", [&] { return desk.last_alarm() > seen; });
    EXPECT_EQ(desk.alarms(seen)[0], 1);
}

}  // namespace

TEST_P(MisbehaviourTest, CostsOneCycleAtMost) {
    Desk desk;
    const AgentSize before = agent_size(desk);
    const size_t from = desk.log().size();
    desk.fault(prepared(GetParam().order, desk.camera_port()));
    desk.wait_for_log(GetParam().log, from);
    const std::string error =
        GetParam().error.empty() ? "" : "curl_easy_perform() failed: " + GetParam().error + "\n";
    EXPECT_NE(desk.errors().find(error), std::string::npos) << error;
    desk.clear_faults();
    desk.wait_for_cycles(1);
    expect_motion_alarm(desk);
    EXPECT_EQ(desk.requests("CameraLogin").size(), 2u) << "no new login";
    expect_same_size(desk, before);
}

INSTANTIATE_TEST_SUITE_P(Poll, MisbehaviourTest, testing::ValuesIn(kRows), by_name);

// There is no time-out: a camera that is slow is waited for.
TEST(Misbehaviour, ACameraThatKeepsSilentIsWaitedFor) {
    Desk desk;
    const int silence = desk.fault({{"endpoint", "CameraStatus"}, {"kind", "hang"}});
    wait_until("a poll waits", [&] { return desk.camera_state()["in_progress"] == 1; });
    const size_t from = desk.log().size();
    const json state = desk.sdk("GET", "/state");  // the agent's own threads go on
    EXPECT_EQ(state["init_count"], 1);
    desk.camera("DELETE", "/faults/" + std::to_string(silence));
    desk.wait_for_log("Value of MotionEvent:0\n", from);
}

TEST(Misbehaviour, ARefusedConnectionCostsCyclesUntilItIsAcceptedAgain) {
    Desk desk;
    const AgentSize before = agent_size(desk);
    desk.camera("POST", "/refuse");
    size_t at = desk.log().size();
    for (int i = 0; i < 3; i++) at = desk.wait_for_log(kTransferFailed, at);
    EXPECT_NE(desk.errors().find("curl_easy_perform() failed: Couldn't connect to server\n"),
              std::string::npos);
    desk.camera("POST", "/accept");
    expect_motion_alarm(desk);
    expect_same_size(desk, before);
}

// Every way to go wrong, hundreds of times over: what one failure leaves behind shows in the sum.
TEST(Misbehaviour, AWeekOfFailuresDoesNotGrowTheAgent) {
    DeskOptions options;
    options.speed = 1000;
    options.conf = {
        {"POLL_STATUS_PERIOD_SEC", "1"}, {"BATTERY_PERIOD", "100000"}, {"SDCARD_PERIOD", "100000"}};
    Desk desk(options);
    const int times = sanitized_agent() ? 2 : 10;  // of each, per round
    const auto misbehave = [&] {
        for (const Misbehaviour &row : kRows) {
            json order = prepared(row.order, desk.camera_port());
            order["count"] = times;
            if (order.contains("ms")) order["ms"] = 1;
            if (order["kind"] != "oversize") desk.fault(order);
        }
        wait_until("all is misbehaved", [&] {
            for (const json &fault : desk.camera("GET", "/faults"))
                if (fault["hits"] < times) return false;
            return true;
        });
        desk.clear_faults();
        desk.wait_for_cycles(2);
    };
    misbehave();
    misbehave();
    const AgentSize before = agent_size(desk);
    for (int i = 0; i < 5; i++) misbehave();
    expect_same_size(desk, before);
    expect_motion_alarm(desk);
}
