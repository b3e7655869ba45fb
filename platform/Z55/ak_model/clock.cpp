#include "clock.h"

#include <cstdio>
#include <optional>
#include <string_view>

#include "../agent/curlmgr.h"
#include "../agent/exchange.h"
#include "../agent/session_key.h"
#include "../agent/utils/conf_file.h"
#include "../agent/utils/os.h"
#include "../agent/utils/reply.h"
#include "../agent/utils/text.h"
#include "../exports.h"
#include "../log_sources.h"
#include "../shared.h"
#include "../z55cgi.h"
#include "reboot.h"

namespace {

constexpr char kNtpCommand[] = "/usr/bin/ntpdate pool.ntp.org ";
constexpr long kDefaultPeriodSeconds = 60;  // where the configured period is not positive

bool set_clock() {
    int status = -1;
    if (run_shell(kNtpCommand, kCommandSeconds, &status) == 0) return true;
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

}  // namespace

int perform_NTP(const std::string &key, bool direct) {
    std::puts("*** perform_NTP().... ***");
    if (!set_clock()) return -1;
    const std::string body = post_body(time_document());
    char host[16];
    conf_value_into(host, "hostIP");
    const std::string cookie_text = session_cookie(key);
    remember_post_fields(body);
    remember_cookie(cookie_text);
    std::puts("~~~~~");
    Reply reply;
    Exchange exchange(
        {.url = camera_url(host, "/CGI/CameraSetup"), .cookie = cookie_text, .body = body, .traced = true},
        {poll_write_callback, &reply});
    const int result = direct ? exchange.perform() : exchange.queue(kHighPriority, "perform_NTP");
    if (result != 0) {
        std::printf("res !=CURLE_OK, res = %d: %s,line %d\n", result, kModelSource, __LINE__);
        return -1;
    }
    if (exchange.status() != 200) {
        std::printf("status != 200, status code = %d  (%s: %d)\n", exchange.status(), kModelSource, __LINE__);
        return -1;
    }
    std::puts("(NTP) curl finished succeeded");
    return 0;
}

void *NTP_poll(void *key_function) {
    store_shared(get_session_key, reinterpret_cast<char *(*)(void)>(key_function));
    std::puts("start NTP_poll polling");
    const auto period = conf_number("POOL_NTP_PERIOD_SEC", 0);
    if (!period) {
        std::perror("Read polling period failed.");
        return reinterpret_cast<void *>(1);
    }
    std::printf("*** Polling Period: %d ***\n", *period);
    for (;;) {
        std::puts("NTP_poll polling");
        const int result = perform_NTP(session_key().value_or(""), false);
        if (load_shared(NTP_FAIL) != 0 && result == 0) (void)reboot_device();  // tried again after the period
        pause_seconds(*period > 0 ? *period : kDefaultPeriodSeconds);
    }
}
