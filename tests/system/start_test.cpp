// From the first line of the log to a polling agent that raises alarms.
#include <gtest/gtest.h>

#include "desk.h"

TEST(Start, MotionBecomesAnAlarmRecordWithinTwoPollPeriods) {
    Desk desk;
    const size_t raised = desk.log().size();
    desk.set_status("MotionEvent", "1");
    wait_until("an alarm arrives", [&] { return desk.last_alarm() > 0; });
    const json alarm = desk.sdk("GET", "/alarms")["alarms"][0];
    EXPECT_EQ(alarm["index"], 1);
    EXPECT_EQ(alarm["name"], "alarm");
    EXPECT_EQ(alarm["status"], 1);
    EXPECT_EQ(alarm["tid"], desk.agent_pid()) << "alarms are sent by the main thread";
    const std::string until_sent =
        desk.log().substr(raised, desk.wait_for_log("SendAlarmData!!", raised) - raised);
    EXPECT_LE(count_of("*** (polling) beginning of a time ***", until_sent), 2);
}
