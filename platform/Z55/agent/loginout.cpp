#include "loginout.h"

#include <pthread.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "../exports.h"
#include "../shared.h"
#include "utils/conf_file.h"
#include "utils/files.h"
#include "utils/os.h"
#include "utils/reply.h"
#include "utils/reply_text.h"
#include "utils/threads.h"
#include "utils/transfer.h"

// Written by the cloud thread before the SDK starts, read by the SDK's threads afterwards.
constinit char hostIP[16] = {};
constinit char device[30] = {};
constinit char stream[30] = {};
constinit char password[30] = {};

// The current key, written by the main thread. All accesses hold key_lock.
constinit char session_key_buffer[kSessionKeySize] = {};

// Set by the threads that are started with the hook as their argument; never null.
char *(*get_session_key)(void) = copy_session_key;

namespace {

constexpr char kSource[] = "platform/Z55/agent/loginout";
constexpr char kFirmwareVersionFile[] = "/tmp/FWVER.txt";
constexpr long kRetrySeconds = 5;

constinit std::mutex key_lock;
constinit pthread_cond_t key_arrived = PTHREAD_COND_INITIALIZER;
constinit unsigned long keys_stored = 0;  // under key_lock; tells a waiter that a key came since it looked

// What the configuration should hold as SESSION_KEY but could not be made to; under key_lock.
constinit bool key_is_unwritten = false;
constinit char unwritten_key[kSessionKeySize] = {};

// Serialises the logins of several threads in writing what came of them; held for the disk.
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
    Sink body_sink{login_body_callback, &reply.body};
    Sink header_sink{login_header_callback, &reply.session_header};
    const Transfer transfer = new_transfer(format_text(200, "http://%s/CGI/CameraLogin?Device=%s&Stream=%s",
                                                       settings.host, settings.device, settings.stream));
    if (!transfer) return CURLE_FAILED_INIT;
    CURL *handle = transfer.get();
    curl_easy_setopt(handle, CURLOPT_POSTFIELDS, body.c_str());
    set_body_sink(transfer, body_sink);
    set_header_sink(transfer, header_sink);
    curl_easy_setopt(handle, CURLOPT_VERBOSE, 1L);
    std::puts("***(login) curl_perform starts ***");
    const int result = curl_easy_perform(handle);
    std::puts("***(login) curl_perform ends ***");
    return result;
}

// Without luck the file is left out: what it is for is told elsewhere.
void store_file(const char *path, std::string_view text, mode_t mode) {
    const std::lock_guard<std::mutex> lock(storing);
    [[maybe_unused]] const bool stored = replace_file(path, text, mode);
}

// Stores `key` in the configuration, or where that cannot be written keeps it as what should stand there: the
// one that does may have expired.
void store_configured_key(std::string_view key) {
    const std::lock_guard<std::mutex> order(storing);
    const bool written = write_conf_value("SESSION_KEY", key) == 0;
    const std::lock_guard<std::mutex> lock(key_lock);
    key_is_unwritten = !written;
    // White space alone is what the file would lose.
    copy_text(unwritten_key, trim_line(key).empty() ? "" : key);
}

void save_firmware_version(std::string_view body) {
    const auto version = find_xml_value(body, "FWVER");
    if (!version) {
        std::printf("res !=CURLE_OK: %s,line %d\n", kSource, 285);
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

void store_key(char *out, const std::string &key) {
    const std::lock_guard<std::mutex> lock(key_lock);
    copy_text(out, kSessionKeySize, key);
    keys_stored++;
    pthread_cond_broadcast(&key_arrived);
}

// The key in the buffer, nothing when it is empty.
std::optional<std::string> held_key() {
    char key[kSessionKeySize];
    {
        const std::lock_guard<std::mutex> lock(key_lock);
        copy_text(key, session_key_buffer);
    }
    if (key[0] == '\0') return std::nullopt;
    return key;
}

}  // namespace

int login(void) {
    std::puts("Loginning..");
    LoginSettings settings;
    if (!read_login_settings(settings.host, settings.device, settings.stream, settings.password)) return -1;
    LoginReply reply;
    const int result = post_login(settings, reply);
    if (result != CURLE_OK) {
        std::printf("res !=CURLE_OK: %s,line %d\n", kSource, 263);
        std::printf("***(login) error: curl perform failed. error code = %d***\n\n", result);
        std::printf("After res !=CURLE_OK: %s,line %d\n", kSource, 266);
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
    store_key(out, key);
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

void clear_session_key() {
    const std::lock_guard<std::mutex> lock(key_lock);
    std::memset(session_key_buffer, 0, sizeof session_key_buffer);
}

char *copy_session_key() {
    const std::lock_guard<std::mutex> lock(key_lock);
    if (session_key_buffer[0] == '\0') return nullptr;
    char *copy = static_cast<char *>(std::malloc(kSessionKeySize));
    if (copy != nullptr) copy_text(copy, kSessionKeySize, session_key_buffer);
    return copy;
}

std::optional<std::string> session_key() {
    const auto hook = load_shared(get_session_key);
    if (hook == copy_session_key) return held_key();  // a copy that there is no memory for is not "no key"
    char *copy = hook();
    if (copy == nullptr) return std::nullopt;
    std::string key = copy;
    std::free(copy);
    return key;
}

std::string wait_for_session_key() {
    for (unsigned long seen = 0;;) {
        {
            const std::lock_guard<std::mutex> lock(key_lock);
            seen = keys_stored;
        }
        if (auto key = session_key()) return *key;
        const std::lock_guard<std::mutex> lock(key_lock);
        while (keys_stored == seen) pthread_cond_wait(&key_arrived, key_lock.native_handle());
    }
}

std::optional<std::string> configured_session_key() {
    {
        const std::lock_guard<std::mutex> lock(key_lock);
        if (key_is_unwritten) return unwritten_key;
    }
    char key[kSessionKeySize];
    if (!conf_value_into(key, "SESSION_KEY")) return std::nullopt;
    return key;
}

std::string session_cookie(const std::string &key) {
    return "Session=" + key;
}
