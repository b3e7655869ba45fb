// HTTP/1.1 as the camera speaks it: parses exactly what arrives, writes replies as text. No sockets.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct HttpRequest {
    std::string method, target, version;
    std::vector<std::pair<std::string, std::string>> headers;  // as sent, in order
    std::string body;

    // The value of a header (name in any letter case); empty when absent.
    std::string header(std::string_view name) const;
    // The target without its query, and the query.
    std::string path() const;
    std::string query() const;
    // The name after /CGI/, or "photo" for any other path.
    std::string endpoint() const;
    // The digits of the cookie "Session=...".
    std::string session() const;
    bool keep_alive() const;
};

struct HttpReply {
    int status = 200;
    std::string body;
    std::string content_type = "text/xml";
    std::vector<std::string> header_lines;  // "Name: value" without line end
    bool close = false;                     // the connection ends after it
};

enum class ParseResult { incomplete, complete, malformed };

constexpr std::size_t kLargestHeader = 64 * 1024, kLargestBody = 32 * 1024 * 1024;

// Takes one request off the front of `buffer`. Incomplete: more bytes are needed and the buffer stays as it
// is; then `wants_continue` tells that the header is complete and the peer waits for "100 Continue" before it
// sends the body.
ParseResult take_request(std::string &buffer, HttpRequest &request, bool &wants_continue);

// The header of a reply up to and with its empty line. `length` is what Content-Length says; below 0: the
// body comes in chunks.
std::string reply_header(const HttpReply &reply, long length, std::string_view version = "HTTP/1.1");
