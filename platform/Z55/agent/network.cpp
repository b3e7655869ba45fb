#include "network.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <string_view>

#include "../exports.h"
#include "../log_sources.h"
#include "../sdk/usock.h"
#include "../z55cgi.h"
#include "curlmgr.h"
#include "exchange.h"
#include "session_key.h"
#include "utils/conf_file.h"
#include "utils/os.h"
#include "utils/reply.h"
#include "utils/reply_text.h"
#include "utils/shell_file.h"
#include "utils/text.h"

namespace {

constexpr char kDefaultRoute[] = "0.0.0.0";
constexpr size_t kLongestDestinationOffset = 9;  // further right the match is another column's
constexpr size_t kLineSize = 255;                // a longer line of the routing table counts as several
constexpr size_t kMacLength = 12;

constinit std::mutex gateway_file_lock;  // around netstat and the reading of gateway.txt

// What a cloud-connection report turns into: the status sent and the line printed, null for none.
struct CloudStatus {
    int code;
    const char *text;
};
constexpr CloudStatus kCloudOk{1, "***** CLOUD_OK !!!!!! *****"};
constexpr CloudStatus kNoInterface{2, nullptr};
constexpr CloudStatus kLocalFail{2, "***** LOCAL_FAIL !!!!!! *****"};
constexpr CloudStatus kCloudLocalOk{3, "***** CLOUD_LOCAL_OK !!!!!! *****"};

void report(const CloudStatus &status) {
    if (status.text != nullptr) std::puts(status.text);
    send_cloud_status(status.code);
}

// The last line of what a command printed, without its end.
std::string last_line(std::string text) {
    if (text.ends_with('\n')) text.pop_back();
    return text.substr(text.rfind('\n') + 1);
}

// The text is data from a file and becomes part of a command.
bool is_address(const std::string &text) {
    in_addr address{};
    return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

// The gateway column of a routing table's line, when that line is the default route.
std::optional<std::string> gateway_of(std::string_view line) {
    const size_t match = line.find(kDefaultRoute);
    if (match > kLongestDestinationOffset) return std::nullopt;  // npos included
    const size_t start = line.find_first_of("0123456789", match + std::strlen(kDefaultRoute));
    if (start == std::string_view::npos) return std::nullopt;
    size_t dot = start;
    for (int dots = 0; dots < 3; dots++) {
        dot = line.find('.', dot + 1);
        if (dot == std::string_view::npos) return std::nullopt;
    }
    const size_t end = line.find_first_not_of("0123456789", dot + 1);
    const std::string gateway(line.substr(start, end == std::string_view::npos ? end : end - start));
    if (!is_address(gateway)) return std::nullopt;
    return gateway;
}

std::optional<std::string> ask_uuid(const std::string &url, const std::string &key) {
    const auto reply = perform_curl(url, key, "");
    if (!reply) {
        std::puts("get_uuid curl failed. response of perform_curl() is null.");
        return std::nullopt;
    }
    std::printf("get_uuid print response = %s\n ", reply.c_str());
    return find_xml_value(*reply, "UUID");
}

}  // namespace

std::optional<std::string> get_uuid() {
    char host[16];
    if (!conf_value_into(host, "hostIP")) {
        std::perror("Read hostIP failed.");
        return std::nullopt;
    }
    auto key = configured_session_key();
    if (!key) {
        std::perror("Read session_key failed.");
        return std::nullopt;
    }
    std::printf("get_uuid  start --- %s --- %d ---\n ", kUtilsSource, __LINE__);
    const std::string url = camera_url(host, "/CGI/CameraInfo");
    std::printf("url = %s\n", url.c_str());
    auto uuid = ask_uuid(url, *key);
    while (!uuid) {
        std::puts("find_xml_value failed. response of perform_curl() is null.");
        wait_for_curl_worker();          // without one each attempt fails at once
        key = configured_session_key();  // the one that was read may have expired meanwhile
        uuid = ask_uuid(url, key.value_or(""));
    }
    std::printf("get_uuid print value = %s\n ", uuid->c_str());
    return uuid;
}

std::string get_MAC_uppercase() {
    std::string mac =
        last_line(read_shell("line=$(ifconfig|grep HW); echo ${line##*HWaddr} | tr -d :").value_or(""));
    mac.resize(std::min(mac.size(), kMacLength));
    for (char &digit : mac) digit = static_cast<char>(std::toupper(static_cast<unsigned char>(digit)));
    std::printf("get_MAC_uppercase = \"%s\"\n", mac.c_str());
    return mac;
}

std::optional<std::string> get_default_gateway() {
    const std::lock_guard<std::mutex> lock(gateway_file_lock);
    const auto text = shell_file_text("netstat -rn > gateway.txt", "gateway.txt");
    if (!text) return std::nullopt;
    std::optional<std::string> gateway;
    for (std::string_view rest = *text; !gateway && !rest.empty();)
        gateway = gateway_of(next_line(rest, kLineSize));
    if (gateway) {
        std::printf("get default gateway:\"%s\"\n", gateway->c_str());
    } else {
        std::printf("Default gateway not found.\n");
    }
    return gateway;
}

int wlan0_exists() {
    const bool listed =
        last_line(read_shell("ifconfig|grep wlan0").value_or("")).find("wlan0") != std::string::npos;
    std::puts(listed ? "Device \"wlan0\" exists." : "Device \"wlan0\" does NOT exist.");
    return listed ? 1 : 0;
}

int ping_default_gateway() {
    if (wlan0_exists() == 0) {
        std::puts("Quit pinging default gateway.");
        return -1;
    }
    const auto gateway = get_default_gateway();
    if (!gateway) {
        std::puts("Quiting try pinging default gateway.");
        return -1;
    }
    const std::string command = format_text(64, "ping -c1 -s1 %s", gateway->c_str());
    std::printf("command:\"%s\"\n", command.c_str());
    std::puts("Try pinging default gateway...");
    if (run_shell(command.c_str()) == 0) {
        std::printf("(ping_default_gateway) ping %s succeeded.\n", gateway->c_str());
        return 0;
    }
    std::printf("(ping_default_gateway) ping %s failed.\n", gateway->c_str());
    return -1;
}

void notify_Z55_connection_status(int status) {
    if (status == 0) {
        report(kCloudOk);
    } else if (status == 1) {
        if (wlan0_exists() == 0) {
            report(kNoInterface);
        } else {
            report(ping_default_gateway() == 0 ? kCloudLocalOk : kLocalFail);
        }
    }
}
