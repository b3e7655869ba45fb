#include "json_http.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>

#include "real_time.h"
#include "threads.h"

namespace desk {
namespace {

constexpr size_t kMaxHead = 64 * 1024, kMaxBody = 64 * 1024 * 1024;

sockaddr_in local_address(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

bool send_all(int fd, const std::string &text) {
    for (size_t sent = 0; sent < text.size();) {
        const ssize_t n = send(fd, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        sent += static_cast<size_t>(n);
    }
    return true;
}

// Appends one piece of what arrives; false at the end or on an error.
bool receive_more(int fd, std::string &text) {
    char piece[16384];
    ssize_t n;
    do {
        n = recv(fd, piece, sizeof piece, 0);
    } while (n < 0 && errno == EINTR);
    if (n <= 0) return false;
    text.append(piece, static_cast<size_t>(n));
    return true;
}

// The value of a header in `head` (whose lines end in CRLF), matched without regard to case; empty when
// missing.
std::string header_value(const std::string &head, const char *name) {
    const size_t length = strlen(name);
    for (size_t at = head.find("\r\n"); at != std::string::npos; at = head.find("\r\n", at + 2)) {
        const char *line = head.c_str() + at + 2;
        if (strncasecmp(line, name, length) != 0 || line[length] != ':') continue;
        const char *value = line + length + 1;
        while (*value == ' ') value++;
        return std::string(value, strcspn(value, "\r"));
    }
    return "";
}

struct Message {
    std::string head, body;
};

// Reads a whole request or reply; the body has the announced length (none announced: nothing).
std::optional<Message> receive_message(int fd) {
    std::string text;
    size_t end;
    while ((end = text.find("\r\n\r\n")) == std::string::npos) {
        if (text.size() > kMaxHead || !receive_more(fd, text)) return std::nullopt;
    }
    Message result{text.substr(0, end + 2), text.substr(end + 4)};
    const size_t length = strtoul(header_value(result.head, "Content-Length").c_str(), nullptr, 10);
    if (length > kMaxBody) return std::nullopt;
    const bool asks_first = !header_value(result.head, "Expect").empty();
    if (asks_first && result.body.size() < length) send_all(fd, "HTTP/1.1 100 Continue\r\n\r\n");
    while (result.body.size() < length) {
        if (!receive_more(fd, result.body)) return std::nullopt;
    }
    return result;
}

// What is sent in answer to a request.
std::string reply_text(const Message &got, JsonHandler handler) {
    const size_t first = got.head.find(' '), second = got.head.find(' ', first + 1);
    JsonReply reply{400, {{"error", "no request line"}}};
    if (second != std::string::npos) {
        const std::string method = got.head.substr(0, first);
        reply = answer_json(handler, method, got.head.substr(first + 1, second - first - 1), got.body);
    }
    const std::string text = json_text(reply.body) + "\n";
    return "HTTP/1.1 " + std::to_string(reply.status) + (reply.status == 200 ? " OK" : " Error") +
           "\r\nContent-Type: application/json\r\nConnection: close\r\nContent-Length: " +
           std::to_string(text.size()) + "\r\n\r\n" + text;
}

void serve_connection(int fd, JsonHandler handler) {
    std::optional<Message> got = receive_message(fd);
    if (got) {
        const std::string text = reply_text(*got, handler);
        // Whoever has the answer may ask for the heap: that tells what is held, not what is yet to be freed.
        got.reset();
        send_all(fd, text);
    }
    close(fd);
}

void accept_connections(int listener, JsonHandler handler) {
    for (;;) {
        const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            real_sleep_until_ns(real_now_ns() + 10'000'000);  // out of descriptors: they come back
            continue;
        }
        try {
            detached_thread([fd, handler] { serve_connection(fd, handler); });
        } catch (const std::system_error &) {
            close(fd);
        }
    }
}

std::map<std::string, std::string> parse_query(const std::string &text) {
    std::map<std::string, std::string> query;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('&', at), text.size());
        const std::string pair = text.substr(at, end - at);
        const size_t equals = std::min(pair.find('='), pair.size());
        query[pair.substr(0, equals)] = equals < pair.size() ? pair.substr(equals + 1) : "";
        at = end + 1;
    }
    return query;
}

}  // namespace

int start_json_server(int port, JsonHandler handler) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listener < 0) return -1;
    const int on = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address = local_address(port);
    socklen_t size = sizeof address;
    if (bind(listener, reinterpret_cast<sockaddr *>(&address), size) != 0 || listen(listener, 128) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size) != 0) {
        close(listener);
        return -1;
    }
    detached_thread([listener, handler] { accept_connections(listener, handler); });
    return ntohs(address.sin_port);
}

JsonReply answer_json(JsonHandler handler, const std::string &method, const std::string &target,
                      const std::string &body) {
    try {
        const size_t mark = std::min(target.find('?'), target.size());
        JsonRequest request{method, target.substr(0, mark), {}, json::object()};
        if (mark < target.size()) request.query = parse_query(target.substr(mark + 1));
        if (!body.empty()) request.body = json::parse(body);
        if (!request.body.is_object()) throw BadRequest{"the body is not a JSON object"};
        return handler(request);
    } catch (const BadRequest &problem) {
        return {400, {{"error", problem.text}}};
    } catch (const json::exception &problem) {
        return {400, {{"error", problem.what()}}};
    }
}

int answer_json_text(JsonHandler handler, const char *method, const char *target, const char *body,
                     char **reply) {
    const JsonReply answer = answer_json(handler, method, target, body);
    *reply = strdup(json_text(answer.body).c_str());
    return answer.status;
}

JsonReply json_call(int port, const std::string &method, const std::string &target, const json &body,
                    int seconds) {
    JsonReply reply{0, json::object()};
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return reply;
    const timeval limit{seconds, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    const sockaddr_in address = local_address(port);
    const std::string text = body.is_null() ? "" : json_text(body);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 &&
        send_all(fd, method + " " + target +
                         " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\nContent-Length: " +
                         std::to_string(text.size()) + "\r\n\r\n" + text)) {
        if (const std::optional<Message> got = receive_message(fd)) {
            reply.status = atoi(got->head.c_str() + std::min(got->head.find(' '), got->head.size()));
            reply.body = json::parse(got->body, nullptr, false);
        }
    }
    close(fd);
    return reply;
}

std::string json_text(const json &value) {
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace desk
