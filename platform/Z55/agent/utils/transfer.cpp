#include "transfer.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <atomic>
#include <cstring>
#include <span>

namespace {

// Making a handle costs a quarter of a request. More than one that waits would cost descriptors and memory.
constinit std::atomic<CURL *> waiting_handle{nullptr};

constexpr unsigned kUnacknowledgedMilliseconds = 30'000;

struct NumberOption {
    CURLoption option;
    long value;
};
constexpr NumberOption kNumbers[] = {
    {CURLOPT_FOLLOWLOCATION, 1},   {CURLOPT_MAXREDIRS, 30},  // circles must not hold the queue
    {CURLOPT_NOSIGNAL, 1},         {CURLOPT_TCP_KEEPALIVE, 1}, {CURLOPT_TCP_KEEPIDLE, 10},  // seconds
    {CURLOPT_TCP_KEEPINTVL, 5},                                                             // seconds
    {CURLOPT_LOW_SPEED_LIMIT, 1},   // bytes per second
    {CURLOPT_LOW_SPEED_TIME, 600},  // seconds
#if LIBCURL_VERSION_NUM >= 0x075700
    {CURLOPT_QUICK_EXIT, 1},  // a look-up that is given up is left to its thread
#endif
};

// Of a handle that serves several requests: none leaves anything to the next, least of all its connection.
// One to a camera that has vanished would hold the next request for minutes.
constexpr NumberOption kReusableNumbers[] = {
    {CURLOPT_HTTPGET, 1},      {CURLOPT_CONNECTTIMEOUT, 0},    {CURLOPT_TIMEOUT, 0},
    {CURLOPT_FORBID_REUSE, 1}, {CURLOPT_DNS_CACHE_TIMEOUT, 0}, {CURLOPT_SSL_SESSIONID_CACHE, 0},
};

struct TextOption {
    CURLoption option;
    const char *value;
};
constexpr TextOption kTexts[] = {
    {CURLOPT_PROXY, ""},  // none, whatever http_proxy says
    {CURLOPT_PROTOCOLS_STR, "http,https"},
    {CURLOPT_REDIR_PROTOCOLS_STR, "http,https"},
};

// Keep-alive sends no probe while sent bytes are unacknowledged, and the system's own limit is a quarter of
// an hour.
curl_socket_t open_socket(void *, curlsocktype, curl_sockaddr *address) {
    const int handle = socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    if (handle >= 0) {
        setsockopt(handle, IPPROTO_TCP, TCP_USER_TIMEOUT, &kUnacknowledgedMilliseconds,
                   sizeof kUnacknowledgedMilliseconds);
    }
    return handle;
}

size_t give(char *piece, size_t size, size_t nmemb, void *argument) {
    Sink &sink = *static_cast<Sink *>(argument);
    const size_t length = size * nmemb;
    if (length > sink.room) return 0;
    sink.room -= length;
    return sink.take != nullptr ? sink.take(piece, size, nmemb, sink.target) : length;
}

// An option that a lean libcurl lacks is one that it needs not be told; a text that there was no memory for
// is another matter.
bool tell(CURL *handle, CURLoption option, const char *text) {
    return curl_easy_setopt(handle, option, text) != CURLE_OUT_OF_MEMORY;
}

void tell(CURL *handle, std::span<const NumberOption> numbers) {
    for (const NumberOption &number : numbers) curl_easy_setopt(handle, number.option, number.value);
}

// The trace counts a handle's connections, and one by HTTPS begins with what the handle knows of the server.
bool may_reuse_handle(const Request &request) {
    return !request.traced && request.url.starts_with("http:");
}

Transfer new_handle(bool reusable) {
    CURL *waiting = reusable ? waiting_handle.exchange(nullptr) : nullptr;
    return Transfer(waiting != nullptr ? waiting : curl_easy_init(), {reusable});
}

bool set_request(CURL *handle, const Request &request) {
    bool told = tell(handle, CURLOPT_URL, request.url.c_str());
    if (request.cookie) told = tell(handle, CURLOPT_COOKIE, request.cookie->c_str()) && told;
    if (request.https_redirects_only) told = tell(handle, CURLOPT_REDIR_PROTOCOLS_STR, "https") && told;
    if (request.body) {
        curl_easy_setopt(handle, CURLOPT_POSTFIELDS, request.body->data());
        curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE, static_cast<long>(request.body->size()));
    }
    if (request.traced) curl_easy_setopt(handle, CURLOPT_VERBOSE, 1L);
    if (request.connect_seconds > 0)
        curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, request.connect_seconds);
    if (request.whole_seconds > 0) curl_easy_setopt(handle, CURLOPT_TIMEOUT, request.whole_seconds);
    return told;
}

}  // namespace

void TransferCleanup::operator()(CURL *handle) const {
    CURL *none = nullptr;
    if (!reusable || !waiting_handle.compare_exchange_strong(none, handle)) curl_easy_cleanup(handle);
}

void prepare_transfers() {
    curl_global_init(CURL_GLOBAL_ALL);
}

Transfer new_transfer(const Request &request) {
    Transfer transfer = new_handle(may_reuse_handle(request));
    CURL *handle = transfer.get();
    if (handle == nullptr) return transfer;
    tell(handle, kNumbers);
    // Not curl_easy_reset: it takes memory, and where there is none the handle misses something from then on,
    // unsaid.
    if (transfer.get_deleter().reusable) tell(handle, kReusableNumbers);
    if (transfer.get_deleter().reusable) curl_easy_setopt(handle, CURLOPT_COOKIE, nullptr);
    curl_easy_setopt(handle, CURLOPT_OPENSOCKETFUNCTION, open_socket);
    bool told = true;
    for (const TextOption &text : kTexts) told = tell(handle, text.option, text.value) && told;
    if (!set_request(handle, request) || !told) {
        transfer.get_deleter().reusable = false;
        transfer.reset();
    }
    return transfer;
}

void set_body_sink(const Transfer &transfer, Sink &sink) {
    curl_easy_setopt(transfer.get(), CURLOPT_WRITEFUNCTION, give);
    curl_easy_setopt(transfer.get(), CURLOPT_WRITEDATA, &sink);
}

void set_header_sink(const Transfer &transfer, Sink &sink) {
    curl_easy_setopt(transfer.get(), CURLOPT_HEADERFUNCTION, give);
    curl_easy_setopt(transfer.get(), CURLOPT_HEADERDATA, &sink);
}

int perform(const Transfer &transfer) {
    return transfer ? curl_easy_perform(transfer.get()) : kNoTransfer;
}

const char *transfer_error_text(int result) {
    return curl_easy_strerror(static_cast<CURLcode>(result));
}

std::string_view piece_text(const char *piece, size_t length) {
    return {piece, strnlen(piece, length)};
}
