// What the tests of the status watch share: one run of myPoll over scripted replies, ended by a camera error,
// with its log; latches that are clear at the start.
#ifndef UNIT_AGENT_POLLING_TEST_H
#define UNIT_AGENT_POLLING_TEST_H

#include "agent/polling.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "agent_test.h"
#include "exports.h"
#include "marked_log.h"
#include "poll_event_rows.h"

inline const std::string kAllKeys = polled_keys();

// A status reply with these values and without those that are missing; the other events ask for no alarm.
inline std::string status(const std::vector<std::pair<std::string, std::string>> &values = {},
                          const std::vector<std::string> &missing = {}) {
    std::string text = "<CameraStatus>";
    for (const PollEventRow &row : polled_events(missing)) {
        std::string value = row.quiet;
        for (const auto &[given, other] : values) {
            if (given == row.name) value = other;
        }
        text += "<" + std::string(row.name) + ">" + value + "</" + row.name + ">";
    }
    return text + "</CameraStatus>";
}

// What `log` holds of the rules for `name`: from the line after the previous value's to its own value's line.
inline std::string rules_of(const std::string &name, const std::string &log) {
    const std::string own = "Value of " + name + ":";
    const size_t end = log.find(own);
    if (end == std::string::npos) return "no value of " + name + " in " + log;
    size_t start = std::max(log.rfind("Value of ", end - 1) + 1, log.rfind("*** (nimb_poll) ", end) + 1);
    start = log.find('\n', start) + 1;
    return log.substr(start, end - start);
}

class PollingTest : public CameraTest {
  protected:
    void SetUp() override {
        CameraTest::SetUp();
        set_conf("POLL_STATUS_PERIOD_SEC", "10");
        recover_latches();
        fake_os::reset();
        fake_vendor::reset();
        camera.forget();
        free_percent(90);
        fake_os::on_pause([](const std::string &pause) { std::printf("[%s]\n", pause.c_str()); });
    }

    // Polls once over each of `bodies`, then the camera answers with an error. Returns the log.
    std::string poll(const std::vector<std::string> &bodies) {
        std::vector<CameraReply> replies;
        for (const std::string &body : bodies) replies.push_back({.body = body});
        return poll_replies(std::move(replies));
    }
    std::string poll_replies(std::vector<CameraReply> replies) {
        replies.push_back({.body = "<ErrorCode>-2</ErrorCode>"});
        camera.reply("/CGI/CameraStatus", std::move(replies));
        std::string log;
        errors_of([&] { log = marked_log(output_of([] { EXPECT_EQ(myPoll("12345"), -2); })); });
        return log;
    }
    // The same with one value only of interest: what its rules logged in the first cycle.
    std::string rules(const std::string &name, const std::string &value) {
        return rules_of(name, poll({status({{name, value}})}));
    }

    // df tells of so much free space.
    static void free_percent(int percent) {
        fake_os::on_shell([=](const std::string &) {
            write_file("/tmp/space_percent", std::to_string(100 - percent) + "%\n");
            return fake_os::ShellResult{};
        });
    }

  private:
    // Latches are the process's own and may be set where several tests share one.
    void recover_latches() {
        set_conf("BATTERY_ARMED", "1");
        set_conf("SDCARD_ARMED", "1");
        set_conf("BATTERY_LOW", "0");
        set_conf("SDCARD_LOW", "0");
        free_percent(90);
        poll({status({{"SD", "1"}})});
        set_conf("BATTERY_ARMED", "0");
        set_conf("SDCARD_ARMED", "0");
    }
};

#endif
