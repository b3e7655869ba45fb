#include "z55cgi.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "agent/curlmgr.h"
#include "agent/loginout.h"
#include "agent/utils/conf_file.h"
#include "agent/utils/transfer.h"
#include "shared.h"

// Copies of the last generic request, for the SDK to read. Written under last_request_lock by any thread.
constinit char cookie[50] = {};
constinit char post_fields[350] = {};
constinit char *response = nullptr;  // atomic besides
constinit int res = 0;               // atomic

namespace {

constexpr char kModelSource[] = "platform/Z55/ak_model";
constexpr char kPollingSource[] = "platform/Z55/agent/polling";
constexpr char kCgiSource[] = "platform/Z55/z55cgi";

constexpr size_t kUrlSize = 200;
constexpr size_t kResultSize = 128;                 // bytes that result_write_callback fills
constexpr size_t kLargestPhoto = 32 * 1024 * 1024;  // bytes

constinit std::mutex last_request_lock;
constinit char *response_before = nullptr;  // what `response` was before: somebody may still read it

void set_cookie(CURL *handle, const std::string &text) {
    curl_easy_setopt(handle, CURLOPT_COOKIE, text.c_str());
}

bool read_host(char (&host)[16]) {
    if (conf_value_into(host, "hostIP")) return true;
    std::puts("read hostIP in login() failed.");
    return false;
}

void log_transfer_error(const char *source, int line, int after_line) {
    std::printf("res !=CURLE_OK: %s,line %d\n", source, line);
    std::printf("After res !=CURLE_OK: %s,line %d\n", source, after_line);
}

void log_status(int status, const char *source, int line) {
    std::printf("status != 200, status code = %d  (%s: %d)\n", status, source, line);
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

// One request and what comes back.
struct Exchange {
    int status = 0;  // HTTP; stays 0 where nobody looks at it
    Sink body, header{http_status_code_checker, &status};
    Transfer transfer;  // null without memory

    Exchange(const std::string &url, curl_write_callback keep, void *target, size_t room = kLargestReply)
        : body{keep, target, room}, transfer(new_transfer(url)) {
        set_body_sink(transfer, body);
        set_header_sink(transfer, header);
    }
    Exchange(const Exchange &) = delete;
    Exchange &operator=(const Exchange &) = delete;
    CURL *handle() const {
        return transfer.get();
    }
    // The libcurl result, or -1 where the queue refused it.
    int perform(int priority, const char *job_name) {
        return transfer ? curlmgr_enqueue_job(handle(), priority, job_name) : CURLE_FAILED_INIT;
    }
};

// One whose reply goes into a 128-byte result buffer.
struct ResultExchange : Exchange {
    char buffer[kResultSize + 1] = {};

    ResultExchange(const std::string &url, const std::string &cookie_text)
        : Exchange(url, result_write_callback, buffer) {
        set_cookie(handle(), cookie_text);
    }
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

size_t http_status_code_checker(char *line, size_t size, size_t nmemb, void *status) {
    const std::string_view text = piece_text(line, size * nmemb);
    const size_t version = text.find("HTTP/1.1");
    if (version != std::string_view::npos && status != nullptr) {
        char digits[4];
        copy_text(digits, text.substr(std::min(version + 9, text.size())));
        const int code = to_int(digits);
        *static_cast<int *>(status) = code;
        std::printf("res: %d\n", code);
    }
    return size * nmemb;
}

Reply curl_GET(const std::string &url) {
    const std::string cookie_text = current_cookie();
    std::printf("curl_GET url = %s , cookie = %s\n,---  %s,%d -----\n", url.c_str(), cookie_text.c_str(),
                kModelSource, 1345);
    Reply body;
    Exchange exchange(url, poll_write_callback, &body);
    curl_easy_setopt(exchange.handle(), CURLOPT_HTTPGET, 1L);
    set_cookie(exchange.handle(), cookie_text);
    const int result = exchange.perform(kDefaultPriority, "curl_GET");
    store_shared(res, result);
    if (result != CURLE_OK) {
        log_transfer_error(kModelSource, 1364, 1366);
        return {};
    }
    if (exchange.status != 200) {
        log_status(exchange.status, kModelSource, 1370);
        return {};
    }
    return body;
}

int curl_POST(const std::string &url, const std::string &body) {
    const std::string cookie_text = current_cookie();
    remember_post_fields(body);
    std::printf("curl_POST  url = %s , cookie = %s,---  %s,%d -----\n", url.c_str(), cookie_text.c_str(),
                kModelSource, 1304);
    Reply reply;
    Exchange exchange(url, poll_write_callback, &reply);
    exchange.header.take = nullptr;
    curl_easy_setopt(exchange.handle(), CURLOPT_POSTFIELDS, body.c_str());
    set_cookie(exchange.handle(), cookie_text);
    const int result = exchange.perform(kDefaultPriority, "curl_POST");
    store_shared(res, result);
    remember_response(std::move(reply));
    if (result != CURLE_OK) {
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
    Exchange exchange(whole, poll_write_callback, &body);
    std::puts("*** (poll) curl_perform starts ***");
    curl_easy_setopt(exchange.handle(), CURLOPT_HTTPGET, 1L);
    set_cookie(exchange.handle(), session_cookie(key));
    curl_easy_setopt(exchange.handle(), CURLOPT_VERBOSE, 1L);
    const int result = exchange.perform(kHighPriority, "polling");
    std::puts("*** (poll) curl_perform ends ***");
    if (result != CURLE_OK) {
        std::fprintf(stderr, "curl_easy_perform() failed: %s\n",
                     curl_easy_strerror(static_cast<CURLcode>(result)));
        std::printf("After res !=CURLE_OK: %s,line %d\n", kPollingSource, 126);
        return {};
    }
    if (exchange.status != 200) {
        log_status(exchange.status, kPollingSource, 132);
        return {};
    }
    return body;
}

int mobileAudio(const std::string &cookie_text, const void *audio, size_t length, std::string &reply) {
    char host[16];
    if (!read_host(host)) return -1;
    std::puts("\n***(easy remote control) curl_perform starts ***");
    ResultExchange exchange(format_text(kUrlSize, "http://%s/CGI/MobileAudio", host), cookie_text);
    curl_easy_setopt(exchange.handle(), CURLOPT_POST, 1L);
    curl_easy_setopt(exchange.handle(), CURLOPT_POSTFIELDS, audio);
    curl_easy_setopt(exchange.handle(), CURLOPT_POSTFIELDSIZE, static_cast<long>(length));
    int result = CURLE_OK;
    if (exchange.transfer) {
        result = exchange.perform(kDefaultPriority, "mobileAudio");
    } else {
        exchange.status = 200;  // without a handle nothing is sent and nothing has failed
    }
    std::puts("\n***(easy remote control) curl_perform ends ***");
    reply = exchange.buffer;
    if (result != CURLE_OK) {
        log_transfer_error(kCgiSource, 300, 301);
        return -1;
    }
    if (exchange.status != 200) {
        log_status(exchange.status, kCgiSource, 305);
        return -1;
    }
    std::puts(reply.c_str());
    return 0;
}

int getSingleCameraStatus(const std::string &cookie_text, const char *query, std::string &reply) {
    char host[16];
    if (!read_host(host)) return -1;
    std::puts("\n***(get camera status) curl_perform starts ***");
    ResultExchange exchange(format_text(kUrlSize, "http://%s/CGI/CameraStatus?%s", host, query), cookie_text);
    curl_easy_setopt(exchange.handle(), CURLOPT_HTTPGET, 1L);
    const int result = exchange.perform(kDefaultPriority, "getSingleCameraStatus");
    std::puts("\n***(get camera status) curl_perform ends ***");
    exchange.transfer.reset();
    std::puts("\n***(After clean) curl_perform ends ***");
    reply = exchange.buffer;
    if (result != CURLE_OK) {
        log_transfer_error(kCgiSource, 227, 229);
        return -1;
    }
    if (exchange.status != 200) {
        log_status(exchange.status, kCgiSource, 234);
        return -1;
    }
    std::printf("CURL: PHOTO_TO_MOBILE: %d\n", result);
    return 0;
}

int easyRemoteControl(const std::string &cookie_text, const char *action, std::string &reply) {
    char host[16];
    if (!read_host(host)) return -1;
    const std::string body =
        format_text(150, "\r\n\r\n<RemoteControl><Action>%s</Action></RemoteControl>", action);
    std::puts("\n***(easy remote control) curl_perform starts ***");
    ResultExchange exchange(format_text(kUrlSize, "http://%s/CGI/RemoteControl", host), cookie_text);
    curl_easy_setopt(exchange.handle(), CURLOPT_POSTFIELDS, body.c_str());
    const int result = exchange.perform(kDefaultPriority, "easyRemoteControl");
    reply = exchange.buffer;
    if (result != CURLE_OK) {
        std::printf("res !=CURLE_OK, res = %d. (%s,line %d\n)", result, kCgiSource, 75);
        std::printf("After res !=CURLE_OK: %s,line %d\n", kCgiSource, 77);
        return -1;
    }
    if (exchange.status != 200) {
        log_status(exchange.status, kCgiSource, 82);
        return -1;
    }
    std::printf("easy remote: %s,line %d \n", kCgiSource, 86);
    std::puts(reply.c_str());
    return 0;
}

int z55_get_photo(photo_buffer *photo, const char *path) {
    *photo = photo_buffer{0, static_cast<char *>(std::calloc(1, 1))};
    char host[16];
    if (!read_host(host)) return -1;
    std::puts("\n***(photo to mobile) curl_perform starts ***");
    Exchange exchange(format_text(kUrlSize, "http://%s%s", host, path), photo_write_callback, photo,
                      kLargestPhoto);
    curl_easy_setopt(exchange.handle(), CURLOPT_HTTPGET, 1L);
    const int result = exchange.perform(kDefaultPriority, "z55_get_photo");
    std::puts("\n***(photo to mobile) curl_perform ends ***");
    if (result != CURLE_OK) {
        log_transfer_error(kCgiSource, 167, 169);
        return -1;
    }
    if (exchange.status != 200) {
        log_status(exchange.status, kCgiSource, 174);
        return -1;
    }
    std::printf("CURL: PHOTO_TO_MOBILE: %d\n", result);
    return 0;
}
