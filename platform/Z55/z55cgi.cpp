#include "z55cgi.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>

#include "agent/curlmgr.h"
#include "agent/exchange.h"
#include "agent/session_key.h"
#include "agent/utils/conf_file.h"
#include "agent/utils/text.h"
#include "agent/utils/transfer.h"
#include "log_sources.h"
#include "shared.h"

namespace {

constexpr size_t kResultSize = 128;                 // bytes that result_write_callback fills
constexpr size_t kLargestPhoto = 32 * 1024 * 1024;  // bytes

constinit std::mutex last_request_lock;
constinit char *response_before = nullptr;  // what `response` was before: somebody may still read it

bool read_host(char (&host)[16]) {
    if (conf_value_into(host, "hostIP")) return true;
    std::puts("read hostIP in login() failed.");
    return false;
}

std::string handler_url(const std::string &path) {
    return camera_url(camera_host().c_str(), path);
}

void log_transfer_error(const char *source, int line, int after_line) {
    std::printf("res !=CURLE_OK: %s,line %d\n", source, line);
    std::printf("After res !=CURLE_OK: %s,line %d\n", source, after_line);
}

bool is_ok(int status, const char *source, int line) {
    if (status == 200) return true;
    std::printf("status != 200, status code = %d  (%s: %d)\n", status, source, line);
    return false;
}

// What the log says of where a primitive failed: these numbers are texts.
struct Place {
    const char *source;
    int error_line, after_line, status_line;
};

bool succeeded(int result, const Exchange &exchange, const Place &place) {
    if (result == 0) return is_ok(exchange.status(), place.source, place.status_line);
    log_transfer_error(place.source, place.error_line, place.after_line);
    return false;
}

std::string current_cookie() {
    std::string text = cut_to_buffer(session_cookie(session_key().value_or("")), sizeof cookie);
    remember_cookie(text);
    return text;
}

void remember_response(Reply reply) {
    const std::lock_guard<std::mutex> lock(last_request_lock);
    std::free(response_before);
    response_before = response;
    store_shared(response, reply.release());
}

// An exchange whose reply goes into a 128-byte result buffer.
struct ResultExchange {
    char buffer[kResultSize + 1] = {};
    Exchange exchange;

    explicit ResultExchange(const Request &request) : exchange(request, {result_write_callback, buffer}) {}
};

}  // namespace

void remember_cookie(const std::string &cookie_text) {
    const std::lock_guard<std::mutex> lock(last_request_lock);
    copy_text(cookie, cookie_text);
}

void remember_post_fields(const std::string &body) {
    const std::lock_guard<std::mutex> lock(last_request_lock);
    copy_text(post_fields, body);
}

std::string post_body(const std::string &document, int length) {
    return format_text(
        sizeof post_fields,
        "HTTP/1.1\nContent-Length: %d\nContent-Type: application/x-www-form-urlencoded\n\r\n\r\n%s", length,
        document.c_str());
}

std::string post_body(const std::string &document) {
    return post_body(document, static_cast<int>(document.size()));
}

size_t poll_write_callback(char *piece, size_t size, size_t nmemb, void *body) {
    Reply &last = *static_cast<Reply *>(body);
    if (!last.assign(piece_text(piece, size * nmemb))) return 0;
    std::printf("*** (poll) write_callback_func: %s ***\n", last.c_str());
    return size * nmemb;
}

size_t result_write_callback(char *chunk, size_t size, size_t nmemb, void *buffer) {
    const size_t length = std::min(strnlen(chunk, size * nmemb), kResultSize);
    std::memset(buffer, 0, kResultSize);
    std::memcpy(buffer, chunk, length);
    return size * nmemb;
}

size_t photo_write_callback(char *chunk, size_t size, size_t nmemb, void *photo) {
    const size_t length = size * nmemb;
    std::printf("realloc memory, size: %d\n", static_cast<int>(length));
    photo_buffer &sink = *static_cast<photo_buffer *>(photo);
    const bool fits = length < UINT32_MAX - sink.count;
    void *grown = fits ? std::realloc(sink.data, sink.count + length + 1) : nullptr;
    if (grown == nullptr) {
        std::puts("not enough memory (realloc returned NULL)");
        std::free(sink.data);
        sink = photo_buffer{0, nullptr};
        return 0;
    }
    sink.data = static_cast<char *>(grown);
    std::memcpy(sink.data + sink.count, chunk, length);
    sink.count += static_cast<uint32_t>(length);
    sink.data[sink.count] = '\0';
    return length;
}

// hostIP is written before the SDK has threads, and never after: they read it without a lock.
std::string camera_host() {
    if (hostIP[0] != '\0') return hostIP;
    char host[sizeof hostIP];
    conf_value_into(host, "hostIP");
    return host;
}

Reply get_status(const std::string &name) {
    return curl_GET(handler_url("/CGI/CameraStatus?" + name));
}

Reply get_setting(const std::string &group) {
    return curl_GET(handler_url("/CGI/CameraSetting?" + group));
}

int post_setup(const std::string &document) {
    return curl_POST(handler_url("/CGI/CameraSetup"), post_body(document));
}

int post_remote_control(const std::string &document) {
    return post_remote_control(document, static_cast<int>(document.size()));
}

int post_remote_control(const std::string &document, int length) {
    return curl_POST(handler_url("/CGI/RemoteControl"), post_body(document, length));
}

Reply curl_GET(const std::string &url) {
    const std::string cookie_text = current_cookie();
    std::printf("curl_GET url = %s , cookie = %s\n,---  %s,%d -----\n", url.c_str(), cookie_text.c_str(),
                kModelSource, 1345);
    Reply body;
    Exchange exchange({.url = url, .cookie = cookie_text}, {poll_write_callback, &body});
    const int result = exchange.queue(kDefaultPriority, "curl_GET");
    store_shared(res, result);
    if (!succeeded(result, exchange, {kModelSource, 1364, 1366, 1370})) return {};
    return body;
}

int curl_POST(const std::string &url, const std::string &body) {
    const std::string cookie_text = current_cookie();
    remember_post_fields(body);
    std::printf("curl_POST  url = %s , cookie = %s,---  %s,%d -----\n", url.c_str(), cookie_text.c_str(),
                kModelSource, 1304);
    Reply reply;
    Exchange exchange({.url = url, .cookie = cookie_text, .body = body}, {poll_write_callback, &reply}, {});
    const int result = exchange.queue(kDefaultPriority, "curl_POST");
    store_shared(res, result);
    remember_response(std::move(reply));
    if (result != 0) {
        log_transfer_error(kModelSource, 1321, 1323);
        std::printf("curl_POST failure res = %d\n", result);
        return result;
    }
    std::printf("curl_POST ok , res = %d\n", result);
    return result;
}

Reply perform_curl(const std::string &url, const std::string &key, const std::string &query) {
    const std::string whole = format_text(kUrlSize, "%s?%s", url.c_str(), query.c_str());
    std::printf("(poll) perform_curl url = %s\n", whole.c_str());
    Reply body;
    Exchange exchange({.url = whole, .cookie = session_cookie(key), .traced = true},
                      {poll_write_callback, &body});
    std::puts("*** (poll) curl_perform starts ***");
    const int result = exchange.queue(kHighPriority, "polling");
    std::puts("*** (poll) curl_perform ends ***");
    if (result != 0) {
        std::fprintf(stderr, "curl_easy_perform() failed: %s\n", transfer_error_text(result));
        std::printf("After res !=CURLE_OK: %s,line %d\n", kPollingSource, 126);
        return {};
    }
    if (!is_ok(exchange.status(), kPollingSource, 132)) return {};
    return body;
}

int mobileAudio(const std::string &key, const void *audio, size_t length, std::string &reply) {
    char host[16];
    if (!read_host(host)) return -1;
    std::fputs("\n***(easy remote control) curl_perform starts ***\n", stdout);
    ResultExchange post({.url = camera_url(host, "/CGI/MobileAudio"),
                         .cookie = session_cookie(key),
                         .body = std::string_view(static_cast<const char *>(audio), length)});
    const bool sent = post.exchange.prepared();
    const int result = sent ? post.exchange.queue(kDefaultPriority, "mobileAudio") : 0;
    std::fputs("\n***(easy remote control) curl_perform ends ***\n", stdout);
    reply = post.buffer;
    if (!sent) std::puts("not enough memory for a request");
    // Then nothing was sent and nothing has failed.
    if (sent && !succeeded(result, post.exchange, {kCgiSource, 300, 301, 305})) return -1;
    std::puts(reply.c_str());
    return 0;
}

int getSingleCameraStatus(const std::string &key, const char *query, std::string &reply) {
    char host[16];
    if (!read_host(host)) return -1;
    std::fputs("\n***(get camera status) curl_perform starts ***\n", stdout);
    ResultExchange get(
        {.url = camera_url(host, std::string("/CGI/CameraStatus?") + query), .cookie = session_cookie(key)});
    const int result = get.exchange.queue(kDefaultPriority, "getSingleCameraStatus");
    std::fputs("\n***(get camera status) curl_perform ends ***\n", stdout);
    get.exchange.release();
    std::fputs("\n***(After clean) curl_perform ends ***\n", stdout);
    reply = get.buffer;
    if (!succeeded(result, get.exchange, {kCgiSource, 227, 229, 234})) return -1;
    std::printf("CURL: PHOTO_TO_MOBILE: %d\n", result);
    return 0;
}

int easyRemoteControl(const std::string &key, const char *action, std::string &reply) {
    char host[16];
    if (!read_host(host)) return -1;
    const std::string body =
        format_text(150, "\r\n\r\n<RemoteControl><Action>%s</Action></RemoteControl>", action);
    std::fputs("\n***(easy remote control) curl_perform starts ***\n", stdout);
    ResultExchange post(
        {.url = camera_url(host, "/CGI/RemoteControl"), .cookie = session_cookie(key), .body = body});
    const int result = post.exchange.queue(kDefaultPriority, "easyRemoteControl");
    reply = post.buffer;
    if (result != 0) {
        std::printf("res !=CURLE_OK, res = %d. (%s,line %d\n)", result, kCgiSource, 75);
        std::printf("After res !=CURLE_OK: %s,line %d\n", kCgiSource, 77);
        return -1;
    }
    if (!is_ok(post.exchange.status(), kCgiSource, 82)) return -1;
    std::printf("easy remote: %s,line %d \n", kCgiSource, 86);
    std::puts(reply.c_str());
    return 0;
}

int z55_get_photo(photo_buffer *photo, const char *path) {
    *photo = photo_buffer{0, static_cast<char *>(std::calloc(1, 1))};
    char host[16];
    if (!read_host(host)) return -1;
    std::fputs("\n***(photo to mobile) curl_perform starts ***\n", stdout);
    Exchange get({.url = camera_url(host, path)}, {photo_write_callback, photo, kLargestPhoto});
    const int result = get.queue(kDefaultPriority, "z55_get_photo");
    std::fputs("\n***(photo to mobile) curl_perform ends ***\n", stdout);
    if (!succeeded(result, get, {kCgiSource, 167, 169, 174})) return -1;
    std::printf("CURL: PHOTO_TO_MOBILE: %d\n", result);
    return 0;
}
