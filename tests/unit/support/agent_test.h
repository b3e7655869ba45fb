// What a unit test of the agent starts from: fakes as in a fresh process, a configuration file, files read
// and written whole, captured logs.
#ifndef UNIT_SUPPORT_AGENT_TEST_H
#define UNIT_SUPPORT_AGENT_TEST_H

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fake_camera.h"
#include "fake_os.h"
#include "fake_vendor.h"
#include "read_file.h"
#include "row_names.h"

using Conf = std::vector<std::pair<std::string, std::string>>;

// /tmp/working/VeloAgent.conf with these entries in this order, and nothing else.
void write_conf(const Conf &entries);
// The same with one entry changed or added at the end.
void set_conf(const std::string &key, const std::string &value);
void remove_conf();
std::string conf_text();

void write_file(const std::string &path, const std::string &text);
bool file_exists(const std::string &path);

// The key that the session hook hands out from now on. Before other threads start.
void set_session_key(const std::string &key);

// Starts the queue's worker, once in the process. Returns what the start logged, "" when it runs already.
std::string start_queue_worker();
// Whether it runs; a test that starts it by another way says so here.
extern bool queue_worker_runs;

// Polls `condition` every millisecond; false when it does not hold within 10 seconds.
bool eventually(const std::function<bool()> &condition);

// What `body` writes to standard output, to the character.
std::string output_of(const std::function<void()> &body);
// What it writes to standard error.
std::string errors_of(const std::function<void()> &body);
// The same where what it writes to standard output finds no room.
std::string errors_on_a_full_log(const std::function<void()> &body);

// The statuses of the alarm records handed over so far, in order; each must be the cloud's "alarm" of
// index 1.
std::vector<int> alarm_statuses();
// What handing such a record over prints; `prefix` is the module's, "(poll)".
std::string log_of_alarm(const std::string &prefix, int status);

// A log without the queue's statistics lines, whose counters tell of earlier tests in the process.
std::string without_statistics(std::string log);

// `actual` with the numbers that `expected` leaves open as "<N>" (any positive decimal number) replaced by
// "<N>": equal to `expected` when the two match.
std::string with_open_numbers(std::string_view actual, std::string_view expected);

// Compares a captured log with the expected text; "<N>" in `expected` stands for any positive number.
#define EXPECT_LOG(actual, expected)                                       \
    do {                                                                   \
        const std::string log_text_(actual);                               \
        const std::string log_wanted_(expected);                           \
        EXPECT_EQ(with_open_numbers(log_text_, log_wanted_), log_wanted_); \
    } while (false)

// Fakes and exported globals as in a fresh process; no configuration file yet.
class AgentTest : public testing::Test {
  protected:
    void SetUp() override;
};

// A camera that is configured, a session key "12345" and the queue's worker.
class CameraTest : public AgentTest {
  protected:
    void SetUp() override;
    static int begun;  // tests of this kind so far, this one included
    FakeCamera camera;
};

#endif
