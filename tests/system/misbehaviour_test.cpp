// A camera that answers badly: each row is a misbehaviour of one poll, what the log says to it, and that
// polling and alarms go on without a new login.
#include <gtest/gtest.h>

#include "desk.h"

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
    {"Http500", {{"kind", "http_status"}, {"status", 500}}, "res: 500\n", ""},
    {"Http500IsNoAnswer", {{"kind", "http_status"}, {"status", 500}}, status_text(500), ""},
    {"Http404", {{"kind", "http_status"}, {"status", 404}}, status_text(404), ""},
    {"Http204WithoutBody",
     {{"kind", "body"}, {"raw", true}, {"text", "HTTP/1.1 204 No Content\r\n\r\n"}},
     status_text(204),
     ""},
    {"Http10", {{"kind", "http10"}}, status_text(0), ""},
    {"RedirectToAnAnswer",
     {{"kind", "redirect"}, {"location", "http://127.0.0.1:PORT/CGI/CameraStatus?MotionEvent&moved"}},
     "res: 302\nres: 200\n",
     ""},
    {"RedirectToNothing",
     {{"kind", "redirect"}, {"location", "http://127.0.0.1:PORT/none"}},
     status_text(404),
     ""},
    {"RedirectToAClosedPort",
     {{"kind", "redirect"}, {"location", "http://127.0.0.1:1/"}},
     kTransferFailed,
     "Couldn't connect to server"},
    {"RedirectInCircles",
     {{"kind", "redirect"},
      {"count", 100},
      {"location", "http://127.0.0.1:PORT/CGI/CameraStatus?Notification"}},
     kTransferFailed,
     "Number of redirects hit maximum amount"},
    {"Closed", {{"kind", "close"}}, kTransferFailed, "Server returned nothing (no headers, no data)"},
    {"Reset", {{"kind", "reset"}}, kTransferFailed, "Failure when receiving data from the peer"},
    {"Delayed", {{"kind", "delay"}, {"ms", 300}}, kValuesThere, ""},
    {"Truncated", {{"kind", "truncate"}, {"bytes", 30}}, kTransferFailed, "Transferred a partial file"},
    {"Dripped", {{"kind", "drip"}, {"bytes", 40}, {"ms", 1}}, "*** (poll) write_callback_func: ", ""},
    {"DrippedKeepsTheLastPieceOnly", {{"kind", "pieces"}, {"pieces", 40}, {"ms", 10}}, kValuesMissing, ""},
    {"Chunked", {{"kind", "pieces"}, {"pieces", 1}, {"chunked", true}}, kValuesThere, ""},
    {"Garbage", {{"kind", "garbage"}, {"bytes", 5000}}, kValuesMissing, ""},
    {"GarbageWithoutHeader", {{"kind", "garbage"}, {"raw", true}}, kTransferFailed, "Unsupported protocol"},
    {"Oversized",
     {{"kind", "oversize"}, {"bytes", 8'000'000}},
     kTransferFailed,
     "Failed writing received data to disk/application"},
    {"Empty",
     {{"kind", "body"}, {"text", ""}},
     "getMultipleCameraStatuses failed: return value is null.\n",
     ""},
    {"TagsTheWrongWayRound",
     {{"kind", "body"}, {"text", "</MotionEvent>1<MotionEvent></ErrorCode><ErrorCode>"}},
     kValuesMissing,
     ""},
    {"ErrorCodeZeroIsSuccess",
     {{"kind", "body"}, {"text", "<ErrorCode>0</ErrorCode><MotionEvent>0</MotionEvent>"}},
     kValuesThere,
     ""},
    {"LongValue",
     {{"kind", "body"}, {"text", "<MotionEvent>" + std::string(10'000, '0') + "</MotionEvent>"}},
     "Value of MotionEvent:" + std::string(10'000, '0') + "\n",
     ""},
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

INSTANTIATE_TEST_SUITE_P(Poll, MisbehaviourTest, testing::ValuesIn(kRows),
                         [](const auto &row) { return row.param.name; });

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
