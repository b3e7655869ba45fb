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
constinit char *response = nullptr;
constinit int res = 0;  // atomic

namespace {

constexpr char kModelSource[] = "platform/Z55/ak_model";
constexpr char kPollingSource[] = "platform/Z55/agent/polling";
constexpr char kCgiSource[] = "platform/Z55/z55cgi";

constexpr size_t kUrlSize = 200;
constexpr size_t kResultSize = 128;  // bytes that result_write_callback fills
constexpr size_t kLargestPhoto =
    32 * 1024 * 1024;  // bytes; a camera that never stops sending must not take all memory

constinit std::mutex last_request_lock;

void set_cookie(CURL *handle, const std::string &text) {
    curl_easy_setopt(handle, CURLOPT_COOKIE, text.c_str());
}

void set_sink(CURL *handle, curl_write_callback sink, void *target) {
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, sink);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, target);
}

void set_status_check(CURL *handle, int *status) {
    curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, http_status_code_checker);
    curl_easy_setopt(handle, CURLOPT_HEADERDATA, status);
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

void remember_response(const std::optional<std::string> &body) {
    const std::lock_guard<std::mutex> lock(last_request_lock);
    std::free(response);
    response = body ? strdup(body->c_str()) : nullptr;
}

// What a request with a 128-byte result buffer has in common: its transfer, the buffer, the status.
struct ResultRequest {
    Transfer transfer;
    char buffer[kResultSize + 1] = {};
    int status = 0;

    explicit ResultRequest(const std::string &url, const std::string &cookie_text)
        : transfer(new_transfer(url)) {
        if (!transfer) return;
        set_cookie(transfer.get(), cookie_text);
        set_sink(transfer.get(), result_write_callback, buffer);
        set_status_check(transfer.get(), &status);
    }
    int perform(const char *job_name) {
        return transfer ? curlmgr_enqueue_job(transfer.get(), kDefaultPriority, job_name) : -1;
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
    const std::string text = piece_text(piece, size * nmemb);
    std::printf("*** (poll) write_callback_func: %s ***\n", text.c_str());
    *static_cast<std::optional<std::string> *>(body) = text;
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
    const bool fits = length < kLargestPhoto && sink.count < kLargestPhoto - length;
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
    const std::string text = piece_text(line, size * nmemb);
    const size_t version = text.find("HTTP/1.1");
    if (version != std::string::npos && status != nullptr) {
        const std::string digits = text.size() > version + 9 ? text.substr(version + 9, 3) : "";
        const int code = to_int(digits.c_str());
        *static_cast<int *>(status) = code;
        std::printf("res: %d\n", code);
    }
    return size * nmemb;
}

std::optional<std::string> curl_GET(const std::string &url) {
    const std::string cookie_text = current_cookie();
    std::printf("curl_GET url = %s , cookie = %s\n,---  %s,%d -----\n", url.c_str(), cookie_text.c_str(),
                kModelSource, 1345);
    const Transfer transfer = new_transfer(url);
    std::optional<std::string> body;
    int status = 0;
    int result = CURLE_FAILED_INIT;
    if (transfer) {
        curl_easy_setopt(transfer.get(), CURLOPT_HTTPGET, 1L);
        set_cookie(transfer.get(), cookie_text);
        set_sink(transfer.get(), poll_write_callback, &body);
        set_status_check(transfer.get(), &status);
        result = curlmgr_enqueue_job(transfer.get(), kDefaultPriority, "curl_GET");
    }
    store_shared(res, result);
    if (result != CURLE_OK) {
        log_transfer_error(kModelSource, 1364, 1366);
        return std::nullopt;
    }
    if (status != 200) {
        log_status(status, kModelSource, 1370);
        return std::nullopt;
    }
    return body;
}

int curl_POST(const std::string &url, const std::string &body) {
    const std::string cookie_text = current_cookie();
    remember_post_fields(body);
    std::printf("curl_POST  url = %s , cookie = %s,---  %s,%d -----\n", url.c_str(), cookie_text.c_str(),
                kModelSource, 1304);
    const Transfer transfer = new_transfer(url);
    std::optional<std::string> reply;
    int result = CURLE_FAILED_INIT;
    if (transfer) {
        curl_easy_setopt(transfer.get(), CURLOPT_POSTFIELDS, body.c_str());
        set_cookie(transfer.get(), cookie_text);
        set_sink(transfer.get(), poll_write_callback, &reply);
        result = curlmgr_enqueue_job(transfer.get(), kDefaultPriority, "curl_POST");
    }
    store_shared(res, result);
    remember_response(reply);
    if (result != CURLE_OK) {
        log_transfer_error(kModelSource, 1321, 1323);
        std::printf("curl_POST failure res = %d\n", result);
        return result;
    }
    std::printf("curl_POST ok , res = %d\n", result);
    return result;
}

std::optional<std::string> perform_curl(const std::string &url, const std::string &key,
                                        const std::string &query) {
    const std::string whole = format_text(kUrlSize, "%s?%s", url.c_str(), query.c_str());
    std::printf("(poll) perform_curl url = %s\n", whole.c_str());
    const Transfer transfer = new_transfer(whole);
    std::optional<std::string> body;
    int status = 0;
    int result = CURLE_FAILED_INIT;
    std::puts("*** (poll) curl_perform starts ***");
    if (transfer) {
        curl_easy_setopt(transfer.get(), CURLOPT_HTTPGET, 1L);
        set_cookie(transfer.get(), session_cookie(key));
        set_sink(transfer.get(), poll_write_callback, &body);
        set_status_check(transfer.get(), &status);
        curl_easy_setopt(transfer.get(), CURLOPT_VERBOSE, 1L);
        result = curlmgr_enqueue_job(transfer.get(), kHighPriority, "polling");
    }
    std::puts("*** (poll) curl_perform ends ***");
    if (result != CURLE_OK) {
        std::fprintf(stderr, "curl_easy_perform() failed: %s\n",
                     curl_easy_strerror(static_cast<CURLcode>(result)));
        std::printf("After res !=CURLE_OK: %s,line %d\n", kPollingSource, 126);
        return std::nullopt;
    }
    if (status != 200) {
        log_status(status, kPollingSource, 132);
        return std::nullopt;
    }
    return body;
}

int mobileAudio(const std::string &cookie_text, const void *audio, size_t length, std::string &reply) {
    char host[16];
    if (!read_host(host)) return -1;
    std::puts("\n***(easy remote control) curl_perform starts ***");
    ResultRequest request(format_text(kUrlSize, "http://%s/CGI/MobileAudio", host), cookie_text);
    int result = CURLE_OK;
    if (request.transfer) {
        curl_easy_setopt(request.transfer.get(), CURLOPT_POST, 1L);
        curl_easy_setopt(request.transfer.get(), CURLOPT_POSTFIELDS, audio);
        curl_easy_setopt(request.transfer.get(), CURLOPT_POSTFIELDSIZE, static_cast<long>(length));
        result = request.perform("mobileAudio");
    } else {
        request.status = 200;  // without a handle nothing is sent and nothing has failed
    }
    std::puts("\n***(easy remote control) curl_perform ends ***");
    reply = request.buffer;
    if (result != CURLE_OK) {
        log_transfer_error(kCgiSource, 300, 301);
        return -1;
    }
    if (request.status != 200) {
        log_status(request.status, kCgiSource, 305);
        return -1;
    }
    std::puts(reply.c_str());
    return 0;
}

int getSingleCameraStatus(const std::string &cookie_text, const char *query, std::string &reply) {
    char host[16];
    if (!read_host(host)) return -1;
    std::puts("\n***(get camera status) curl_perform starts ***");
    ResultRequest request(format_text(kUrlSize, "http://%s/CGI/CameraStatus?%s", host, query), cookie_text);
    if (request.transfer) curl_easy_setopt(request.transfer.get(), CURLOPT_HTTPGET, 1L);
    const int result = request.perform("getSingleCameraStatus");
    std::puts("\n***(get camera status) curl_perform ends ***");
    request.transfer.reset();
    std::puts("\n***(After clean) curl_perform ends ***");
    reply = request.buffer;
    if (result != CURLE_OK) {
        log_transfer_error(kCgiSource, 227, 229);
        return -1;
    }
    if (request.status != 200) {
        log_status(request.status, kCgiSource, 234);
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
    ResultRequest request(format_text(kUrlSize, "http://%s/CGI/RemoteControl", host), cookie_text);
    if (request.transfer) curl_easy_setopt(request.transfer.get(), CURLOPT_POSTFIELDS, body.c_str());
    const int result = request.perform("easyRemoteControl");
    reply = request.buffer;
    if (result != CURLE_OK) {
        std::printf("res !=CURLE_OK, res = %d. (%s,line %d\n)", result, kCgiSource, 75);
        std::printf("After res !=CURLE_OK: %s,line %d\n", kCgiSource, 77);
        return -1;
    }
    if (request.status != 200) {
        log_status(request.status, kCgiSource, 82);
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
    const Transfer transfer = new_transfer(format_text(kUrlSize, "http://%s%s", host, path));
    int status = 0;
    int result = CURLE_FAILED_INIT;
    if (transfer) {
        curl_easy_setopt(transfer.get(), CURLOPT_HTTPGET, 1L);
        set_sink(transfer.get(), photo_write_callback, photo);
        set_status_check(transfer.get(), &status);
        result = curlmgr_enqueue_job(transfer.get(), kDefaultPriority, "z55_get_photo");
    }
    std::puts("\n***(photo to mobile) curl_perform ends ***");
    if (result != CURLE_OK) {
        log_transfer_error(kCgiSource, 167, 169);
        return -1;
    }
    if (status != 200) {
        log_status(status, kCgiSource, 174);
        return -1;
    }
    std::printf("CURL: PHOTO_TO_MOBILE: %d\n", result);
    return 0;
}
