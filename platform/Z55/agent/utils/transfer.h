// One prepared HTTP transfer: an owned libcurl easy handle with the options of its request and those that
// every request of the agent shares. Nobody but this module and the job queue speaks to libcurl.
#ifndef Z55_AGENT_UTILS_TRANSFER_H
#define Z55_AGENT_UTILS_TRANSFER_H

#include <curl/curl.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct TransferCleanup {
    bool reusable = false;  // the handle may wait for the next request
    void operator()(CURL *handle) const;
};
using Transfer = std::unique_ptr<CURL, TransferCleanup>;

// What is asked: a GET, or with a body, which may be binary and is not copied, a POST of it.
struct Request {
    std::string url;
    std::optional<std::string> cookie = {};  // the header's whole value
    std::optional<std::string_view> body = {};
    bool traced = false;                // libcurl tells of it on standard error
    bool https_redirects_only = false;  // none to HTTP
    long connect_seconds = 0;           // limits; 0: the job queue's, libcurl's
    long whole_seconds = 0;
};

inline constexpr size_t kLargestReply = 4 * 1024 * 1024;  // bytes

// Where the bytes of a reply's body, or of its header, go.
struct Sink {
    curl_write_callback take;     // null: nowhere
    void *target;                 // its last argument
    size_t room = kLargestReply;  // bytes that it may still be given
};

// The result of what could not even be tried: no memory for a handle.
inline constexpr int kNoTransfer = CURLE_FAILED_INIT;

// Once, before any other thread runs.
void prepare_transfers();

// A transfer by HTTP or HTTPS that follows redirects, raises no signals, asks no environment variable for a
// proxy and opens sockets that no child inherits. No time-out of its own would tell a slow camera from a dead
// one; it ends when the host has vanished (30 s without an acknowledgement) or sends nothing for 10 minutes,
// and does not wait for name servers that it gives up. Its connection ends with it at the latest. Null when
// there is no memory. One handle at a time waits for the next request of the kind that nobody can tell from
// one with a new handle.
[[nodiscard]] Transfer new_transfer(const Request &request);

// Both keep a pointer to `sink`. A reply with more bytes than it has room for ends the transfer with
// libcurl's write error, and none of those beyond reach it. Harmless on a null transfer.
void set_body_sink(const Transfer &transfer, Sink &sink);
void set_header_sink(const Transfer &transfer, Sink &sink);

// Performs the transfer on this thread. Returns libcurl's result, 0 for success; kNoTransfer for a null one.
[[nodiscard]] int perform(const Transfer &transfer);

// libcurl's words for its result.
const char *transfer_error_text(int result);

// The bytes of a libcurl piece as a C text has them: up to its first NUL.
std::string_view piece_text(const char *piece, size_t length);

#endif
