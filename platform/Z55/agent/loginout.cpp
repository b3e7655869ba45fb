#include "loginout.h"

#include <cstdio>
#include <cstring>
#include <mutex>
#include <string_view>

#include "../exports.h"
#include "../log_sources.h"
#include "exchange.h"
#include "session_key.h"
#include "utils/conf_file.h"
#include "utils/files.h"
#include "utils/reply.h"
#include "utils/reply_text.h"
#include "utils/text.h"
#include "utils/threads.h"
#include "utils/transfer.h"

namespace {

constexpr size_t kPathSize = 200;
constexpr long kRetrySeconds = 5;

// Serialises the logins of several threads in writing their files; held for the disk.
constinit std::mutex storing;

struct LoginSettings {
    char host[16];
    char device[32];
    char stream[32];
    char password[32];
};

// The four settings in the order of their reading, each with its text for a file that cannot be read.
template <size_t HostSize, size_t TextSize>
bool read_login_settings(char (&host)[HostSize], char (&device_name)[TextSize], char (&stream_name)[TextSize],
                         char (&pass)[TextSize]) {
    if (!conf_value_into(host, "hostIP")) {
        std::puts("read hostIP in login() failed.");
        return false;
    }
    if (!conf_value_into(device_name, "ITEM_DEVICE")) {
        std::puts("read device in login() failed.");
        return false;
    }
    if (!conf_value_into(stream_name, "ITEM_STREAM")) {
        std::puts("read stream in login() failed.");
        return false;
    }
    if (!conf_value_into(pass, "PASSWORD")) {
        std::puts("read password in login() failed.");
        return false;
    }
    return true;
}

size_t login_body_callback(char *piece, size_t size, size_t nmemb, void *body) {
    const std::string_view text = piece_text(piece, size * nmemb);
    std::printf("write_callback_func, buffer=%.*s\n", static_cast<int>(text.size()), text.data());
    return static_cast<Reply *>(body)->append(text) ? size * nmemb : 0;
}

size_t login_header_callback(char *piece, size_t size, size_t nmemb, void *header) {
    const std::string_view line = piece_text(piece, size * nmemb);
    std::printf("header_callback_func, buffer=%.*s\n", static_cast<int>(line.size()), line.data());
    if (line.find("Session=") == std::string_view::npos) return size * nmemb;
    return static_cast<Reply *>(header)->assign(line) ? size * nmemb : 0;
}

// The login's whole reply, as far as it is of use.
struct LoginReply {
    Reply body;
    Reply session_header;
};

int post_login(const LoginSettings &settings, LoginReply &reply) {
    const std::string body = format_text(150, "password=%s", settings.password);
    const std::string path =
        format_text(kPathSize, "/CGI/CameraLogin?Device=%s&Stream=%s", settings.device, settings.stream);
    Exchange exchange({.url = camera_url(settings.host, path), .body = body, .traced = true},
                      {login_body_callback, &reply.body}, {login_header_callback, &reply.session_header});
    if (!exchange.prepared()) return kNoTransfer;
    std::puts("***(login) curl_perform starts ***");
    const int result = exchange.perform();
    std::puts("***(login) curl_perform ends ***");
    return result;
}

// Without luck the file is left out: what it is for is told elsewhere.
void store_file(const char *path, std::string_view text, mode_t mode) {
    const std::lock_guard<std::mutex> lock(storing);
    [[maybe_unused]] const bool stored = replace_file(path, text, mode);
}

void save_firmware_version(std::string_view body) {
    const auto version = find_xml_value(body, "FWVER");
    if (!version) {
        std::printf("res !=CURLE_OK: %s,line %d\n", kLoginSource, 285);
        std::puts("login get FWVER failure");
        return;
    }
    store_file(kFirmwareVersionFile, *version, 0644);
}

// The key that the login has just stored in the configuration; "" when it did not keep a usable one.
std::string stored_key() {
    const auto key = configured_session_key();
    if (!key) std::puts("read session key in config failed.");
    if (!key || !key->starts_with("(null)")) return key.value_or("");
    store_configured_key("");
    return {};
}

}  // namespace

int login(void) {
    std::puts("Loginning..");
    LoginSettings settings;
    if (!read_login_settings(settings.host, settings.device, settings.stream, settings.password)) return -1;
    LoginReply reply;
    const int result = post_login(settings, reply);
    if (result != 0) {
        std::printf("res !=CURLE_OK: %s,line %d\n", kLoginSource, 263);
        std::printf("***(login) error: curl perform failed. error code = %d***\n\n", result);
        std::printf("After res !=CURLE_OK: %s,line %d\n", kLoginSource, 266);
        return -1;
    }
    const auto key = getSessionKeyInHeader(reply.session_header ? reply.session_header.c_str() : nullptr);
    if (!key) return -1;
    std::printf("(login)session_key=%s\n", key->c_str());
    store_configured_key(*key);
    save_firmware_version(*reply.body);
    return 0;
}

std::optional<std::string> getSessionKeyInHeader(const char *header) {
    std::puts("getSessionKeyInHeader");
    if (header == nullptr) return std::nullopt;
    std::printf("header:%s\n", header);
    const char *found = std::strstr(header, "Session=");
    if (found == nullptr) {
        std::puts("Failed : getSessionKeyInHeader, \"Session=\" not found.");
        return std::nullopt;
    }
    const char *key = found + std::strlen("Session=");
    if (*key == '\0') return std::string();
    return std::string(key, 1 + std::strspn(key + 1, "0123456789"));
}

int getSessionKey(char *out) {
    std::string key;
    while (key.empty()) {
        std::puts("Getting Session Key...");
        if (login() != 0) {
            std::puts("*** (getSessionKey) login failed, waiting for next try... ***");
            store_configured_key("");
            pause_and_start_missing(kRetrySeconds);
            continue;
        }
        std::puts("***(getSessionKey) login succeeded. *** ");
        key = stored_key();
        if (key.empty()) {
            std::puts("*** (getSessionKey) failed, waiting for next try... ***");
            pause_and_start_missing(kRetrySeconds);
        }
    }
    save_cookie_file(key.c_str());
    std::printf("Session key=%s\n", key.c_str());
    store_session_key(out, key);
    return 0;
}

void save_cookie_file(const char *key) {
    char path[32];
    conf_value_into(path, "COOKIE");
    if (path[0] == '\0') return;
    store_file(path, format_text(64, " Set-Cookie: Session=%s\n", key), 0600);
}

void load_login_settings() {
    read_login_settings(hostIP, device, stream, password);
}
