#include "transfer.h"

#include <cstring>

namespace {

constexpr long kKeepAliveIdleSeconds = 10;
constexpr long kKeepAliveProbeSeconds = 5;
constexpr long kRedirectLimit = 30;  // a camera that redirects in circles must not hold the queue

}  // namespace

Transfer new_transfer(const std::string &url) {
    Transfer transfer(curl_easy_init());
    if (!transfer) return transfer;
    CURL *handle = transfer.get();
    curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(handle, CURLOPT_MAXREDIRS, kRedirectLimit);
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_TCP_KEEPALIVE, 1L);
    curl_easy_setopt(handle, CURLOPT_TCP_KEEPIDLE, kKeepAliveIdleSeconds);
    curl_easy_setopt(handle, CURLOPT_TCP_KEEPINTVL, kKeepAliveProbeSeconds);
    return transfer;
}

std::string piece_text(const char *piece, size_t length) {
    return std::string(piece, strnlen(piece, length));
}
