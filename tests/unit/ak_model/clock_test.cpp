// Clock synchronisation: ntpdate, the time document and its eight hours, both ways of sending it, the thread.
#include "ak_model/clock.h"

#include <curl/curl.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "handler_test.h"
#include "intercept.h"

namespace {

constexpr char kCommand[] = "/usr/bin/ntpdate pool.ntp.org ";
constexpr std::int64_t kHours = 3600;

// 2023-11-15 06:13:20 at the product's home.
constexpr char kDocument[] =
    "<CameraSetup><Item><Time><Year>2023</Year><Month>11</Month><Day>15</Day><Hour>6</Hour><Minute>13</"
    "Minute>"
    "<Second>20</Second></Time></Item></CameraSetup>";

constexpr char kStartLog[] =
    "*** perform_NTP().... ***\nGet system time after NTP calibrated\n"
    "year=2023, mon=11, mday=15, hour=6, min=13, sec=20\n~~~~~\n";

Outcome synchronise(bool direct) {
    return outcome_of([&] { return perform_NTP("987", direct); });
}

std::string time_request(const std::string &document) {
    return "POST /CGI/CameraSetup Session=987\n" + posted(document);
}

// `post_fields` and `cookie` are what the SDK may look at: copies of what was sent.
void expect_remembered() {
    EXPECT_EQ(std::string(post_fields), posted(kDocument));
    EXPECT_EQ(std::string(cookie), "Session=987");
}

// --- Without the queue's worker: the direct way needs none.

class ClockDirect : public AgentTest {
  protected:
    void SetUp() override {
        AgentTest::SetUp();
        write_conf({{"hostIP", FakeCamera::kHost}});
        camera.reply("/CGI/CameraSetup", "<Done></Done>");
    }
    FakeCamera camera;
};

TEST_F(ClockDirect, SetsTheClockAndTellsTheCamera) {
    const Outcome outcome = synchronise(true);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_LOG(outcome.log, std::string(kStartLog) + "(NTP) curl finished succeeded\n");
    EXPECT_EQ(fake_os::shell_commands(), Texts{kCommand});
    EXPECT_EQ(camera.seen(), Texts{time_request(kDocument)});
    expect_remembered();
    EXPECT_NE(outcome.errors.find("> POST /CGI/CameraSetup"), std::string::npos);  // the transfer is traced
    for (const int limit : {CURLOPT_CONNECTTIMEOUT, CURLOPT_TIMEOUT}) {
        EXPECT_EQ(intercept::transfer_number(limit), -1) << "none but the system's";
    }
}

TEST_F(ClockDirect, NtpdateComesBeforeTheClockIsRead) {
    fake_os::on_shell([](const std::string &) {
        fake_os::set_wall(fake_os::kStart + 1);
        return fake_os::ShellResult{};
    });
    const Outcome outcome = synchronise(true);
    EXPECT_NE(outcome.log.find("min=13, sec=21\n"), std::string::npos) << outcome.log;
}

TEST_F(ClockDirect, NtpdatesFailureReachesNoCamera) {
    for (const int status : {256, -1}) {
        fake_os::on_shell([=](const std::string &) { return fake_os::ShellResult{.status = status}; });
        const Outcome outcome = synchronise(true);
        EXPECT_EQ(outcome.result, -1);
        EXPECT_LOG(outcome.log, "*** perform_NTP().... ***\nfail to NTP calibration, system() return: " +
                                    std::to_string(status) + "\n ");
    }
    EXPECT_EQ(camera.seen(), Texts{});
}

TEST_F(ClockDirect, ATransferErrorIsAFailure) {
    camera.go_away();
    const Outcome outcome = synchronise(true);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_LOG(outcome.log,
               std::string(kStartLog) + "res !=CURLE_OK, res = 7: platform/Z55/ak_model,line <N>\n");
}

TEST_F(ClockDirect, WithoutMemoryForATransferIsAFailure) {
    intercept::refuse_next("curl_easy_init");
    const Outcome outcome = synchronise(true);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_LOG(outcome.log,
               std::string(kStartLog) + "res !=CURLE_OK, res = 2: platform/Z55/ak_model,line <N>\n");
}

TEST_F(ClockDirect, AnyStatusBut200IsAFailure) {
    camera.reply("/CGI/CameraSetup", {CameraReply{.status = 503}});
    const Outcome outcome = synchronise(true);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_LOG(outcome.log,
               std::string(kStartLog) + "status != 200, status code = 503  (platform/Z55/ak_model: <N>)\n");
}

TEST_F(ClockDirect, RedirectsAreFollowed) {
    camera.reply("/CGI/CameraSetup", {CameraReply{.status = 302, .headers = {"Location: /CGI/Elsewhere"}}});
    camera.reply("/CGI/Elsewhere", "<Done></Done>");
    EXPECT_EQ(synchronise(true).result, 0);
    EXPECT_EQ(camera.requests().size(), 2U);
}

TEST_F(ClockDirect, WithoutAnAddressIsAFailure) {
    remove_conf();
    EXPECT_EQ(synchronise(true).result, -1);
    EXPECT_EQ(camera.seen(), Texts{});
}

TEST_F(ClockDirect, TheAddressIsCutAt15Characters) {
    set_conf("hostIP", "127.0.0.1:08080x");
    EXPECT_EQ(synchronise(true).result, 0);
}

// --- Through the queue.

class Clock : public HandlerTest {};

TEST_F(Clock, ThroughTheQueueIsAJobOfHighPriority) {
    std::string log;
    errors_of([&] { log = output_of([] { EXPECT_EQ(perform_NTP("987", false), 0); }); });
    const size_t counters = log.find("good=");  // the process's own
    log.replace(counters, log.find('\n', counters) - counters, "counters");
    EXPECT_LOG(log, std::string(kStartLog) +
                        "curlmgr_perform_curl called\nhigh size: 1\n"
                        "curlmgr: performing curl, name = perform_NTP... \nres: 200\n"
                        "*** (poll) write_callback_func: <Done></Done> ***\n"
                        "curlmgr_enqueue_job OK. res = 0, counters\n "
                        "(NTP) curl finished succeeded\n");
    EXPECT_EQ(camera.seen(), Texts{time_request(kDocument)});
    expect_remembered();
}

TEST_F(Clock, ThroughTheQueueFailsAlike) {
    camera.go_away();
    const Outcome outcome = synchronise(false);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_LOG(outcome.log,
               std::string(kStartLog) + "res !=CURLE_OK, res = 7: platform/Z55/ak_model,line <N>\n");
}

struct TimeRow {
    const char *name;
    std::int64_t utc;
    const char *parts;     // the log's
    const char *document;  // what is told to the camera
};

// The texts of the row.
#define TIME(year, month, day, hour, minute, second)                                                         \
    .parts =                                                                                                 \
        "year=" #year ", mon=" #month ", mday=" #day ", hour=" #hour ", min=" #minute ", sec=" #second "\n", \
    .document = "<CameraSetup><Item><Time><Year>" #year "</Year><Month>" #month "</Month><Day>" #day         \
                "</Day><Hour>" #hour "</Hour><Minute>" #minute "</Minute><Second>" #second                   \
                "</Second></Time></Item></CameraSetup>"

class ClockTime : public HandlerTest, public testing::WithParamInterface<TimeRow> {};

TEST_P(ClockTime, IsEightHoursAhead) {
    const auto [name, utc, parts, document] = GetParam();
    fake_os::set_wall(utc);
    const Outcome outcome = synchronise(false);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_NE(outcome.log.find(parts), std::string::npos) << outcome.log;
    EXPECT_EQ(camera.seen(), Texts{time_request(document)});
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ClockTime,
    testing::Values(
        TimeRow{.name = "half past midnight UTC",
                .utc = 1'700'008'200,
                TIME(2023, 11, 15, 8, 30, 0)},  // 00:30 UTC
        TimeRow{.name = "evening UTC",
                .utc = 1'699'992'000,
                TIME(2023, 11, 15, 4, 0, 0)},  // 20:00 UTC of the day before
        TimeRow{.name = "a second before midnight",
                .utc = 1'699'977'599,
                TIME(2023, 11, 14, 23, 59, 59)},                                         // 15:59:59 UTC
        TimeRow{.name = "midnight", .utc = 1'699'977'600, TIME(2023, 11, 15, 0, 0, 0)},  // 16:00 UTC
        TimeRow{.name = "end of April", .utc = 1'682'870'400, TIME(2023, 5, 1, 0, 0, 0)},
        TimeRow{.name = "last second of a year", .utc = 1'704'038'399, TIME(2023, 12, 31, 23, 59, 59)},
        TimeRow{.name = "first second of a year", .utc = 1'704'038'400, TIME(2024, 1, 1, 0, 0, 0)},
        TimeRow{.name = "leap day", .utc = 1'709'136'000, TIME(2024, 2, 29, 0, 0, 0)},
        TimeRow{.name = "day after a leap day", .utc = 1'709'222'400, TIME(2024, 3, 1, 0, 0, 0)},
        TimeRow{.name = "day after a February of 28 days", .utc = 1'677'600'000, TIME(2023, 3, 1, 0, 0, 0)},
        TimeRow{.name = "clock that was never set", .utc = 0, TIME(1970, 1, 1, 8, 0, 0)},
        TimeRow{.name = "a year 2100", .utc = 4'102'444'800 - 8 * kHours, TIME(2100, 1, 1, 0, 0, 0)}),
    by_name);  // beyond 32 bits

TEST_F(Clock, TheTimeZoneOfTheSystemMeansNothing) {
    setenv("TZ", "America/New_York", 1);
    tzset();
    EXPECT_EQ(synchronise(false).result, 0);
    EXPECT_EQ(camera.seen(), Texts{time_request(kDocument)});
}

// --- The thread.

char *key_654() {
    return strdup("654");
}

class ClockThread : public HandlerTest {
  protected:
    void SetUp() override {
        HandlerTest::SetUp();
        set_conf("POOL_NTP_PERIOD_SEC", "3600");
    }
    // Runs the thread's routine into its n-th pause.
    std::string rounds(int n) {
        return outcome_of([&] {
                   EXPECT_TRUE(
                       fake_os::run_until_pause(n, [] { NTP_poll(reinterpret_cast<void *>(key_654)); }));
                   return 0;
               })
            .log;
    }
};

constexpr char kThreadStart[] = "start NTP_poll polling\n*** Polling Period: 3600 ***\n";
const std::string kFirstRound =
    std::string("NTP_poll polling\n") + kStartLog + "(NTP) curl finished succeeded\n";
constexpr char kSecondRound[] =
    "NTP_poll polling\n*** perform_NTP().... ***\nGet system time after NTP calibrated\n"
    "year=2023, mon=11, mday=15, hour=7, min=13, sec=20\n~~~~~\n(NTP) curl finished succeeded\n";

TEST_F(ClockThread, SynchronisesOnItsPeriod) {
    EXPECT_LOG(rounds(2), kThreadStart + kFirstRound + kSecondRound);
    EXPECT_EQ(fake_os::pauses(), (Texts{"3600 s", "3600 s"}));
    EXPECT_EQ(fake_os::shell_commands(), (Texts{kCommand, kCommand}));
    EXPECT_EQ(camera.requests().size(), 2U);
    EXPECT_EQ(camera.requests().at(0).cookie, "Session=654");  // by the key function that it was given
    EXPECT_EQ(get_session_key, key_654);
    EXPECT_EQ(fake_os::reboots(), 0);
}

// The queue alone keeps its requests and the others' apart.
TEST_F(ClockThread, SendsThroughTheQueue) {
    std::string log;
    errors_of([&] {
        log = output_of(
            [] { fake_os::run_until_pause(1, [] { NTP_poll(reinterpret_cast<void *>(key_654)); }); });
    });
    EXPECT_NE(log.find("curlmgr: performing curl, name = perform_NTP... \n"), std::string::npos) << log;
}

TEST_F(ClockThread, RebootsAtTheFirstSuccessAfterAFailedStart) {
    NTP_FAIL = -1;
    camera.reply("/CGI/CameraSetup", {CameraReply{.status = 500}, CameraReply{.body = "<Done></Done>"}});
    int pauses_before = -1;
    fake_os::on_reboot(-1, [&] { pauses_before = static_cast<int>(fake_os::pauses().size()); });
    const std::string log = rounds(2);
    EXPECT_EQ(fake_os::reboots(), 1);
    EXPECT_EQ(pauses_before, 1);  // in the second round, before its pause
    EXPECT_LOG(log.substr(log.rfind("NTP_poll polling")),
               std::string(kSecondRound) +
                   "!!!***platform/Z55/ak_model <N> ***!!!\n ***** reboot operation*****\n"
                   "system reboot failure\nlocal_res = -1\n");
    EXPECT_EQ(NTP_FAIL, -1);
}

TEST_F(ClockThread, AFailureChangesNothingOnceTheClockWasSet) {
    fake_os::on_shell([](const std::string &) { return fake_os::ShellResult{.status = 256}; });
    EXPECT_LOG(rounds(1), std::string(kThreadStart) +
                              "NTP_poll polling\n*** perform_NTP().... ***\n"
                              "fail to NTP calibration, system() return: 256\n ");
    EXPECT_EQ(NTP_FAIL, 0);
    EXPECT_EQ(fake_os::reboots(), 0);
    EXPECT_EQ(fake_os::pauses(), Texts{"3600 s"});
}

TEST_F(ClockThread, AFailureDoesNotReboot) {
    NTP_FAIL = -1;
    fake_os::on_shell([](const std::string &) { return fake_os::ShellResult{.status = 256}; });
    rounds(2);
    EXPECT_EQ(fake_os::reboots(), 0);
}

struct PeriodRow {
    const char *name;
    const char *configured;
    int printed;
    const char *pause;
};

class ClockPeriod : public ClockThread, public testing::WithParamInterface<PeriodRow> {};

TEST_P(ClockPeriod, OfZeroOrLessIsAMinute) {
    const auto [name, configured, printed, pause] = GetParam();
    if (configured != nullptr) {
        set_conf("POOL_NTP_PERIOD_SEC", configured);
    } else {
        remove_conf();
        write_conf({{"hostIP", FakeCamera::kHost}});
    }
    const std::string log = rounds(1);
    EXPECT_NE(log.find("*** Polling Period: " + std::to_string(printed) + " ***\n"), std::string::npos)
        << log;
    EXPECT_EQ(fake_os::pauses(), Texts{pause});
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ClockPeriod,
    testing::Values(PeriodRow{.name = "zero", .configured = "0", .printed = 0, .pause = "60 s"},
                    PeriodRow{.name = "below zero", .configured = "-5", .printed = -5, .pause = "60 s"},
                    PeriodRow{.name = "missing", .configured = nullptr, .printed = 0, .pause = "60 s"},
                    PeriodRow{.name = "empty", .configured = "", .printed = 0, .pause = "60 s"},
                    PeriodRow{.name = "no number", .configured = "soon", .printed = 0, .pause = "60 s"},
                    PeriodRow{.name = "shortest", .configured = "1", .printed = 1, .pause = "1 s"},
                    PeriodRow{.name = "a day", .configured = "86400", .printed = 86400, .pause = "86400 s"}),
    by_name);

TEST_F(ClockThread, WithoutConfigurationEnds) {
    remove_conf();
    void *result = nullptr;
    const Outcome outcome = outcome_of([&] {
        result = NTP_poll(reinterpret_cast<void *>(key_654));
        return 0;
    });
    EXPECT_EQ(result, reinterpret_cast<void *>(1));
    EXPECT_EQ(outcome.log, "start NTP_poll polling\n");
    EXPECT_EQ(outcome.errors, "Read polling period failed.: No such file or directory\n");
    EXPECT_EQ(fake_os::shell_commands(), Texts{});
}

}  // namespace
