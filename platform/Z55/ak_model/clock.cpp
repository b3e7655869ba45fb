#include "clock.h"

#include <cstdio>

#include "../agent/curlmgr.h"
#include "../agent/loginout.h"
#include "../agent/utils/conf_file.h"
#include "../agent/utils/os.h"
#include "../agent/utils/transfer.h"
#include "../exports.h"
#include "../shared.h"
#include "../z55cgi.h"

// Written once, by the main thread before it starts the others; the others read it.
constinit int NTP_FAIL = 0;

namespace {

constexpr char kSource[] = "platform/Z55/ak_model";
constexpr char kNtpCommand[] = "/usr/bin/ntpdate pool.ntp.org ";
constexpr long kDefaultPeriodSeconds = 60;  // where the configured period is not positive

bool set_clock() {
    const int status = run_shell(kNtpCommand);
    if (status == 0) return true;
    std::printf("fail to NTP calibration, system() return: %d\n ", status);
    return false;
}

std::string time_document() {
    std::puts("Get system time after NTP calibrated");
    const time_t home_time = wall_seconds() + kHomeOffsetSeconds;
    tm t{};
    gmtime_r(&home_time, &t);
    std::printf("year=%d, mon=%d, mday=%d, hour=%d, min=%d, sec=%d\n", t.tm_year + 1900, t.tm_mon + 1,
                t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec);
    return format_text(sizeof post_fields,
                       "<CameraSetup><Item><Time><Year>%d</Year><Month>%d</Month><Day>%d</Day><Hour>%d</Hour>"
                       "<Minute>%d</Minute><Second>%d</Second></Time></Item></CameraSetup>",
                       t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec);
}

struct PushResult {
    int result;
    int status;
};

PushResult push_time(const std::string &url, const std::string &cookie_text, const std::string &body,
                     bool direct) {
    PushResult push{CURLE_FAILED_INIT, 0};
    Reply reply;
    Sink body_sink{poll_write_callback, &reply};
    Sink header_sink{http_status_code_checker, &push.status};
    const Transfer transfer = new_transfer(url);
    if (!transfer) return push;
    CURL *handle = transfer.get();
    curl_easy_setopt(handle, CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(handle, CURLOPT_COOKIE, cookie_text.c_str());
    set_body_sink(transfer, body_sink);
    curl_easy_setopt(handle, CURLOPT_VERBOSE, 1L);
    set_header_sink(transfer, header_sink);
    push.result =
        direct ? curl_easy_perform(handle) : curlmgr_enqueue_job(handle, kHighPriority, "perform_NTP");
    return push;
}

}  // namespace

int perform_NTP(const std::string &key, bool direct) {
    std::puts("*** perform_NTP().... ***");
    if (!set_clock()) return -1;
    const std::string body = post_body(time_document());
    char host[16];
    conf_value_into(host, "hostIP");
    const std::string url = format_text(64, "http://%s/CGI/CameraSetup", host);
    const std::string cookie_text = session_cookie(key);
    remember_post_fields(body);
    remember_cookie(cookie_text);
    std::puts("~~~~~");
    const PushResult push = push_time(url, cookie_text, body, direct);
    if (push.result != CURLE_OK) {
        std::printf("res !=CURLE_OK, res = %d: %s,line %d\n", push.result, kSource, __LINE__);
        return -1;
    }
    if (push.status != 200) {
        std::printf("status != 200, status code = %d  (%s: %d)\n", push.status, kSource, __LINE__);
        return -1;
    }
    std::puts("(NTP) curl finished succeeded");
    return 0;
}

void *NTP_poll(void *key_function) {
    store_shared(get_session_key, reinterpret_cast<char *(*)(void)>(key_function));
    std::puts("start NTP_poll polling");
    const auto period = conf_number("POOL_NTP_PERIOD_SEC");
    if (!period) {
        std::perror("Read polling period failed.");
        return reinterpret_cast<void *>(1);
    }
    std::printf("*** Polling Period: %d ***\n", *period);
    for (;;) {
        std::puts("NTP_poll polling");
        const int result = perform_NTP(session_key().value_or(""), false);
        if (load_shared(NTP_FAIL) != 0 && result == 0) rebootOperation();
        pause_seconds(*period > 0 ? *period : kDefaultPeriodSeconds);
    }
}
