// One prepared HTTP transfer: an owned libcurl easy handle with the options that every request of the agent
// shares.
#ifndef Z55_AGENT_UTILS_TRANSFER_H
#define Z55_AGENT_UTILS_TRANSFER_H

#include <curl/curl.h>

#include <memory>
#include <string>

struct TransferCleanup {
    void operator()(CURL *handle) const {
        curl_easy_cleanup(handle);
    }
};
using Transfer = std::unique_ptr<CURL, TransferCleanup>;

// A transfer of `url` by HTTP or HTTPS that follows redirects, raises no signals, asks no environment
// variable for a proxy and opens sockets that no child inherits. No time-out of its own would tell a slow
// camera from a dead one; it ends when the host has vanished (30 s without an acknowledgement) or sends
// nothing for 10 minutes, and does not wait for name servers that it gives up. Null when there is no memory.
Transfer new_transfer(const std::string &url);

// The bytes of a libcurl piece as a C text: up to its first NUL.
std::string piece_text(const char *piece, size_t length);

#endif
