#include "polling.h"

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <mutex>
#include <optional>
#include <string_view>
#include <vector>

#include "../log_sources.h"
#include "alarm_latch.h"
#include "alarm_rules.h"
#include "alarm_sink.h"
#include "quota.h"
#include "status_query.h"
#include "utils/conf_file.h"
#include "utils/memory.h"
#include "utils/os.h"
#include "utils/shell_file.h"
#include "utils/text.h"
#include "utils/threads.h"

namespace {

constexpr long kStartDelayMilliseconds = 9000;
constexpr size_t kPercentDigits = 9;  // of df's text that are looked at
constexpr int kNothingUsed = 100;     // percent that are free
constexpr int kMemorySeconds = 60;    // seconds; each time takes some 50 microseconds

// When an event was polled last: by the wall clock for the log, by the steady one to decide.
struct PollTime {
    time_t wall;
    std::int64_t steady;
};
constexpr PollTime kNever = {0, INT64_MIN / 2};

struct Timer {
    int period = 0;  // seconds; 0: every cycle
    PollTime last = kNever;
};

struct Timers {
    Timer events[std::size(kPollEvents)];
    Timer quota;
    Timer memory{kMemorySeconds};  // rides along with the polls: no thread wakes up for it
};

// Of each event. They outlive myPoll: an alarm sent before a new login is not sent again while its condition
// lasts.
constinit bool latches[std::size(kPollEvents)] = {};

int configured_period(const PollEvent &event) {
    return event.period_key != nullptr ? conf_number(event.period_key, 0).value_or(0) : 0;
}

Timers init_timers() {
    Timers timers;
    for (size_t i = 0; i < std::size(kPollEvents); i++)
        timers.events[i].period = configured_period(kPollEvents[i]);
    std::printf("before_init_nimb_status  %s,line %d\n", kPollingSource, __LINE__);
    timers.quota.period = configured_period(kQuotaEvent);
    std::printf("after_init_nimb_status  %s,line %d\n", kPollingSource, __LINE__);
    std::puts("Events initialized.");
    return timers;
}

// Whether it is time `now`; if so, `now` becomes the last time. The first time it always is.
bool due(Timer &timer, const PollTime &now) {
    if (now.steady - timer.last.steady < timer.period) return false;
    timer.last = now;
    return true;
}

// The places in kPollEvents of what is to be polled now.
std::vector<size_t> due_events(Timers &timers, const PollTime &now) {
    std::vector<size_t> polled;
    polled.reserve(std::size(kPollEvents));
    for (size_t i = 0; i < std::size(kPollEvents); i++) {
        if (due(timers.events[i], now)) {
            polled.push_back(i);
        } else {
            std::printf("*** (poll) not long enough, curr tv_sec:%ld, last sec: %ld, key:%s ***\n",
                        static_cast<long>(now.wall), static_cast<long>(timers.events[i].last.wall),
                        kPollEvents[i].name);
        }
    }
    return polled;
}

// The record was handed over or the log says why not; nothing is latched.
void send_unlatched(AlarmStatus status) {
    (void)send_alarm("(poll)", status);
}

void check_temperature(const std::string &key, const std::string &host) {
    const auto values =
        getCameraStatuses(key, host, {"Temperature", "TemperatureMax", "TemperatureMin"}, false);
    if (!values) {
        std::puts("getMultipleCameraStatuses failed: return value is null.");
        return;
    }
    if (query_error(*values) != nullptr) return;
    for (size_t i = 0; i < values->size(); i++) {
        if ((*values)[i]) continue;
        std::printf("values[%d] = NULL, aborting %s : %d\n", static_cast<int>(i), kPollingSource, __LINE__);
        return;
    }
    const int temperature = to_int((*values)[0]->c_str());
    const int max = to_int((*values)[1]->c_str());
    const int min = to_int((*values)[2]->c_str());
    std::printf("Temperature=%d TemperatureMax=%d TemperatureMin=%d \n", temperature, max, min);
    const auto status = temperature_alarm(temperature, max, min);
    if (!status) return;
    std::puts(*status == kTemperatureHighAlarm ? "TemperatureMax alarm" : "TemperatureMin alarm");
    send_unlatched(*status);
}

// Motion and sound are not latched: one alarm per cycle while they last.
void apply_trigger(const PollEvent &event, const char *value, const std::string &key,
                   const std::string &host) {
    if (!triggered(value)) return;
    std::puts("(poll) Alarm event detected   ");
    if (event.rule == AlarmRule::trigger) send_unlatched(event.status);
    if (event.rule == AlarmRule::temperature) check_temperature(key, host);
}

bool armed(const PollEvent &event) {
    return event.armed_key == nullptr || conf_value(event.armed_key).value_or("") == "1";
}

// The free share of the card's file system in percent; nothing where df could not be asked.
std::optional<int> card_space_free() {
    static constinit std::mutex file_lock;  // around df and the reading of its output
    const std::lock_guard<std::mutex> lock(file_lock);
    bool answered = false;
    const auto text = shell_file_text(
        "df /tmp/fuse_d | /bin/grep /tmp/fuse_d  | /usr/bin/awk '{print $5}' > /tmp/space_percent",
        "/tmp/space_percent", &answered);
    const std::string line = text ? text->substr(0, text->find('\n')) : "";
    const int free = kNothingUsed - to_int(line.substr(0, kPercentDigits).c_str());
    std::printf(" get_SDspace_percent percent=%d\n", free);
    if (!answered) return std::nullopt;
    return free;
}

// Whether an armed level is low; nothing when its value says neither, or what it is compared with could not
// be had: no level recovers by that.
std::optional<bool> is_low(const PollEvent &event, const char *value) {
    if (event.rule == AlarmRule::missing_card) return card_missing(value);
    const auto threshold = conf_number(event.threshold_key, 0);
    const auto level = event.rule == AlarmRule::low_card_space ? card_space_free() : to_int(value);
    if (!threshold || !level) return std::nullopt;
    return *level < *threshold;
}

void watch_quota(Timer &timer, const PollTime &now) {
    const PollTime last = timer.last;
    if (!due(timer, now)) {
        std::printf("*** (nimb_poll) not long enough, curr tv_sec:%ld, last sec: %ld***\n",
                    static_cast<long>(now.wall), static_cast<long>(last.wall));
        return;
    }
    check_quota();
    std::printf("*** (nimb_poll) OK curr tv_sec:%ld, last sec: %ld***\n", static_cast<long>(now.wall),
                static_cast<long>(timer.last.wall));
}

void apply_values(const std::vector<size_t> &polled, const QueryResult &values, const std::string &key,
                  const std::string &host) {
    for (size_t j = 0; j < polled.size(); j++) {
        const PollEvent &event = kPollEvents[polled[j]];
        if (!values[j]) {
            std::printf("values[%d] = NULL,  %s : %d\n", static_cast<int>(j), kPollingSource, __LINE__);
            continue;
        }
        const char *value = values[j]->c_str();
        if (is_level(event.rule) && armed(event)) {
            apply_level(event, latches[polled[j]], is_low(event, value), __LINE__);
        } else {
            apply_trigger(event, value, key, host);
        }
        std::printf("Value of %s:%s\n", event.name, value);
    }
}

void sleep_until_next_cycle(int period) {
    std::printf("\n*** (Polling) end of a time. Start sleeping for %d sec.***\n\n", period);
    pause_and_start_missing(period > 0 ? period : 1);
    std::fputs("\n*** (Polling) finish sleeping. ***\n", stdout);
}

// One cycle. Nothing, or the camera's error as the "ERRORCODE:" marker that ends the polling.
std::optional<std::string> poll_once(Timers &timers, const std::string &key, const std::string &host) {
    std::fputs("\n*** (polling) beginning of a time ***\n", stdout);
    const PollTime now{wall_seconds(), steady_seconds()};
    if (due(timers.memory, now)) return_free_memory();
    const auto polled = due_events(timers, now);
    std::vector<const char *> names;
    names.reserve(polled.size());
    for (const size_t place : polled) names.push_back(kPollEvents[place].name);
    const auto values = getCameraStatuses(key, host, names, true);
    if (!values) {
        std::puts("getMultipleCameraStatuses failed: return value is null.");
        return std::nullopt;
    }
    if (query_error(*values) != nullptr) return (*values)[0];
    watch_quota(timers.quota, now);
    apply_values(polled, *values, key, host);
    return std::nullopt;
}

}  // namespace

int myPoll(const std::string &key) {
    Timers timers = init_timers();
    std::puts("start polling");
    const auto host_text = conf_value("hostIP");
    if (!host_text) {
        std::perror("Read hostIP failed.");
        return 1;
    }
    const std::string host = cut_to_buffer(*host_text, 16);
    const auto period = conf_number("POLL_STATUS_PERIOD_SEC", 0);
    if (!period) {
        std::perror("Read polling period failed.");
        return 1;
    }
    std::printf("*** hostIP: %s ***\n", host.c_str());
    std::printf("*** Polling Period: %d ***\n", *period);
    sleep_milliseconds(kStartDelayMilliseconds);
    for (;;) {
        if (const auto error = poll_once(timers, key, host)) {
            std::printf("myPoll failed. error:%s\n", error->c_str());
            return to_int(error->c_str() + kErrorMarker.size());
        }
        sleep_until_next_cycle(*period);
    }
}

int get_SDspace_percent() {
    return card_space_free().value_or(kNothingUsed);
}
