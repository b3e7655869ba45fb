#include "http.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <charconv>

namespace {

const char *reason(int status) {
    static constexpr struct {
        int status;
        const char *text;
    } kReasons[] = {{200, "OK"},
                    {301, "Moved Permanently"},
                    {302, "Found"},
                    {400, "Bad Request"},
                    {401, "Unauthorized"},
                    {404, "Not Found"},
                    {500, "Internal Server Error"},
                    {503, "Service Unavailable"}};
    for (const auto &row : kReasons)
        if (row.status == status) return row.text;
    return "Status";
}

bool same_name(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

// The text up to `separator`, which is taken off the front of `text` too; all of it where there is none.
std::string_view take_until(std::string_view &text, std::string_view separator) {
    const auto end = std::min(text.find(separator), text.size());
    const auto taken = text.substr(0, end);
    text.remove_prefix(std::min(end + separator.size(), text.size()));
    return taken;
}

bool parse_header(std::string_view text, HttpRequest &request) {
    std::string_view line = take_until(text, "\r\n");
    request.method = take_until(line, " ");
    request.target = take_until(line, " ");
    request.version = line;
    while (!text.empty()) {
        std::string_view value = take_until(text, "\r\n");
        const auto name = take_until(value, ":");
        value.remove_prefix(std::min(value.find_first_not_of(" \t"), value.size()));
        request.headers.emplace_back(name, value);
    }
    return !request.method.empty() && !request.target.empty() && request.version.starts_with("HTTP/1.");
}

bool body_length(const HttpRequest &request, std::size_t &length) {
    length = 0;
    if (!request.header("Transfer-Encoding").empty())
        return false;  // nothing that talks to a camera sends chunks
    const std::string text = request.header("Content-Length");
    if (text.empty()) return true;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), length);
    return parsed.ec == std::errc() && parsed.ptr == text.data() + text.size() && length <= kLargestBody;
}

}  // namespace

std::string HttpRequest::header(std::string_view name) const {
    for (const auto &[header_name, value] : headers)
        if (same_name(header_name, name)) return value;
    return "";
}

std::string HttpRequest::path() const {
    return target.substr(0, target.find('?'));
}

std::string HttpRequest::query() const {
    const auto mark = target.find('?');
    return mark == target.npos ? "" : target.substr(mark + 1);
}

std::string HttpRequest::endpoint() const {
    const std::string whole = path();
    return whole.starts_with("/CGI/") ? whole.substr(5) : "photo";
}

std::string HttpRequest::session() const {
    const std::string cookie = header("Cookie");
    const auto found = cookie.find("Session=");
    if (found == cookie.npos) return "";
    const auto start = cookie.begin() + static_cast<std::ptrdiff_t>(found + 8);
    return {start, std::find_if_not(start, cookie.end(), [](unsigned char c) { return std::isdigit(c); })};
}

bool HttpRequest::keep_alive() const {
    return version == "HTTP/1.1" && !same_name(header("Connection"), "close");
}

ParseResult take_request(std::string &buffer, HttpRequest &request, bool &wants_continue) {
    wants_continue = false;
    const auto header_end = buffer.find("\r\n\r\n");
    if (header_end == buffer.npos)
        return buffer.size() > kLargestHeader ? ParseResult::malformed : ParseResult::incomplete;
    HttpRequest parsed;
    std::size_t length = 0;
    if (!parse_header(std::string_view(buffer).substr(0, header_end), parsed) || !body_length(parsed, length))
        return ParseResult::malformed;
    const std::size_t body_start = header_end + 4;
    if (buffer.size() - body_start < length) {
        wants_continue = same_name(parsed.header("Expect"), "100-continue");
        return ParseResult::incomplete;
    }
    parsed.body = buffer.substr(body_start, length);
    buffer.erase(0, body_start + length);
    request = std::move(parsed);
    return ParseResult::complete;
}

std::string reply_header(const HttpReply &reply, long length, std::string_view version) {
    std::string text(version);
    text += " " + std::to_string(reply.status) + " " + reason(reply.status) +
            "\r\nContent-Type: " + reply.content_type + "\r\n";
    text +=
        length < 0 ? "Transfer-Encoding: chunked\r\n" : "Content-Length: " + std::to_string(length) + "\r\n";
    for (const auto &line : reply.header_lines) text += line + "\r\n";
    text += reply.close ? "Connection: close\r\n" : "Connection: keep-alive\r\n";
    return text + "\r\n";
}
