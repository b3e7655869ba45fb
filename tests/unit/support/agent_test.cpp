#include "agent_test.h"

#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "agent/curlmgr.h"
#include "agent/session_key.h"
#include "exports.h"
#include "full_log.h"
#include "intercept.h"

// The leak checker asks for it. OpenSSL releases what a thread holds at the thread's end, which one that the
// process's end overtakes does not reach; a transfer that is not cleaned up shows by libcurl's own memory.
extern "C" __attribute__((visibility("default"))) const char *__lsan_default_suppressions() {
    return "leak:CRYPTO_zalloc\n";
}

// The race checker asks for it. OpenSSL frees its locks at the process's end, which no thread of the agent
// that ends by itself, detached, is known to precede.
extern "C" __attribute__((visibility("default"))) const char *__tsan_default_suppressions() {
    return "race:CRYPTO_THREAD_lock_free\n";
}

namespace {

constexpr char kConfFile[] = "/tmp/working/VeloAgent.conf";

Conf read_conf() {
    Conf entries;
    std::istringstream lines(conf_text());
    for (std::string line; std::getline(lines, line);) {
        const size_t equals = line.find('=');
        entries.emplace_back(line.substr(0, equals), line.substr(equals + 1));
    }
    return entries;
}

void reset_exports() {
    set_session_key("");
    get_session_key = copy_session_key;
    mipc_api = &fake_vendor::table();
    for (char *text : {hostIP, device, stream, password, cookie, post_fields}) text[0] = '\0';
    std::free(response);
    response = nullptr;
    res = 0;
    video_recording = 0;
    NTP_FAIL = 0;
    ota_enable = 0;
    get_frame_callback_flag = 0;
}

}  // namespace

void write_conf(const Conf &entries) {
    std::string text;
    for (const auto &[key, value] : entries) text += key + "=" + value + "\n";
    write_file(kConfFile, text);
}

void set_conf(const std::string &key, const std::string &value) {
    Conf entries = read_conf();
    for (auto &[name, old] : entries) {
        if (name != key) continue;
        old = value;
        return write_conf(entries);
    }
    entries.emplace_back(key, value);
    write_conf(entries);
}

void remove_conf() {
    unlink(kConfFile);
}

std::string conf_text() {
    return read_file(kConfFile);
}

void write_file(const std::string &path, const std::string &text) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    if (!file.flush()) {
        std::perror(path.c_str());
        std::abort();
    }
}

bool file_exists(const std::string &path) {
    return access(path.c_str(), F_OK) == 0;
}

void set_session_key(const std::string &key) {
    std::memset(session_key_buffer, 0, kSessionKeySize);
    key.copy(session_key_buffer, kSessionKeySize - 1);
}

bool queue_worker_runs = false;

std::string start_queue_worker() {
    if (queue_worker_runs) return {};
    queue_worker_runs = true;
    return output_of([] { start_curl_thread(nullptr); });
}

bool eventually(const std::function<bool()> &condition) {
    constexpr timespec kMillisecond{0, 1'000'000};
    for (int i = 0; i < 10'000; i++) {
        if (condition()) return true;
        nanosleep(&kMillisecond, nullptr);
    }
    return condition();
}

std::string output_of(const std::function<void()> &body) {
    testing::internal::CaptureStdout();
    body();
    return testing::internal::GetCapturedStdout();
}

std::string errors_of(const std::function<void()> &body) {
    testing::internal::CaptureStderr();
    body();
    return testing::internal::GetCapturedStderr();
}

std::string errors_on_a_full_log(const std::function<void()> &body) {
    const FullLog full;
    return errors_of(body);
}

std::vector<int> alarm_statuses() {
    std::vector<int> statuses;
    for (const alarm_record &record : fake_vendor::alarms()) {
        EXPECT_EQ(record.index, 1);
        EXPECT_STREQ(record.name, "alarm");
        statuses.push_back(record.status);
    }
    return statuses;
}

std::string log_of_alarm(const std::string &prefix, int status) {
    return prefix + " SendAlarmData!! index:1, name:alarm, status: " + std::to_string(status) + " \n" +
           prefix + " end SendAlarmData\n";
}

std::string without_statistics(std::string log) {
    for (size_t start; (start = log.find("curlmgr_enqueue_job OK.")) != std::string::npos;) {
        log.erase(start, log.find("\n ", start) + 2 - start);
    }
    return log;
}

std::string with_open_numbers(std::string_view actual, std::string_view expected) {
    constexpr std::string_view kOpen = "<N>";
    constexpr std::string_view kDigits = "0123456789";
    std::string text;
    while (!expected.empty() && !actual.empty()) {
        if (expected.substr(0, kOpen.size()) == kOpen && actual[0] != '0' &&
            kDigits.find(actual[0]) != std::string_view::npos) {
            text += kOpen;
            expected.remove_prefix(kOpen.size());
            actual.remove_prefix(std::min(actual.find_first_not_of(kDigits), actual.size()));
            continue;
        }
        if (expected[0] != actual[0]) break;
        text += actual[0];
        expected.remove_prefix(1);
        actual.remove_prefix(1);
    }
    return text + std::string(actual);
}

void AgentTest::SetUp() {
    mkdir("/tmp/working", 0755);
    remove_conf();
    fake_os::reset();
    fake_vendor::reset();
    intercept::reset();
    reset_exports();
}

int CameraTest::begun = 0;

void CameraTest::SetUp() {
    begun++;
    AgentTest::SetUp();
    write_conf({{"hostIP", FakeCamera::kHost},
                {"ITEM_DEVICE", "Cam"},
                {"ITEM_STREAM", "Live"},
                {"PASSWORD", "secret"},
                {"SESSION_KEY", "12345"}});
    set_session_key("12345");
    start_queue_worker();
}
