#include "misbehaviour.h"

#include <algorithm>
#include <cstdio>
#include <random>

#include "endpoints.h"

namespace {

std::atomic<bool> never{false};

bool send_text(Exchange &x, int status, std::string_view text, bool last) {
    x.status = status;
    return send_bytes(x.net, x.link, text, last);
}

std::string whole_text(const HttpReply &reply, std::string_view version = "HTTP/1.1") {
    return reply_header(reply, static_cast<long>(reply.body.size()), version) + reply.body;
}

bool error_code(Exchange &x, const json &parameters) {
    HttpReply reply;
    reply.body = error_document(x.request.endpoint(), parameters["value"]);
    return send_reply(x, reply);
}

bool http_status(Exchange &x, const json &parameters) {
    HttpReply reply;
    reply.status = parameters["status"];
    reply.body = "status " + std::to_string(reply.status);
    reply.content_type = "text/plain";
    return send_reply(x, reply);
}

bool redirect(Exchange &x, const json &parameters) {
    HttpReply reply;
    reply.status = parameters["status"];
    reply.header_lines = {"Location: " + parameters["location"].get<std::string>()};
    return send_reply(x, reply);
}

bool http10(Exchange &x, const json &) {
    HttpReply reply = x.true_reply();
    reply.close = true;
    send_text(x, reply.status, whole_text(reply, "HTTP/1.0"), true);
    return false;
}

bool delay(Exchange &x, const json &parameters) {
    return pause_link(x.net, x.link, parameters["ms"], x.cleared) && send_reply(x, x.true_reply());
}

bool close_silently(Exchange &x, const json &parameters) {
    if (parameters["after"]) x.true_reply();
    return false;
}

bool reset(Exchange &x, const json &parameters) {
    if (parameters["after"]) x.true_reply();
    std::lock_guard guard(x.net.lock);
    x.link.reset = true;
    return false;
}

bool truncate(Exchange &x, const json &parameters) {
    const HttpReply reply = x.true_reply();
    const std::string header = reply_header(reply, static_cast<long>(reply.body.size()));
    send_text(x, reply.status, header + reply.body.substr(0, parameters["bytes"]), true);
    return false;
}

bool drip(Exchange &x, const json &parameters) {
    const HttpReply reply = x.true_reply();
    const std::string text = whole_text(reply);
    const std::size_t piece = std::max(parameters["bytes"].get<std::size_t>(), std::size_t{1});
    for (std::size_t sent = 0; sent < text.size(); sent += piece) {
        if (sent > 0 && !pause_link(x.net, x.link, parameters["ms"], never)) return false;
        if (!send_text(x, reply.status, text.substr(sent, piece), sent + piece >= text.size())) return false;
    }
    return x.request.keep_alive();
}

std::string chunk(const std::string &bytes) {
    char size[24];
    std::snprintf(size, sizeof size, "%zx\r\n", bytes.size());
    return size + bytes + "\r\n";
}

bool pieces(Exchange &x, const json &parameters) {
    const HttpReply reply = x.true_reply();
    const bool chunked = parameters["chunked"];
    const std::size_t count = std::max(parameters["pieces"].get<std::size_t>(), std::size_t{1});
    std::string text = reply_header(reply, chunked ? -1 : static_cast<long>(reply.body.size()));
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t from = reply.body.size() * i / count, to = reply.body.size() * (i + 1) / count;
        const std::string piece = reply.body.substr(from, to - from);
        if (!piece.empty()) text += chunked ? chunk(piece) : piece;
        const bool last = i + 1 == count;
        if (last && chunked) text += "0\r\n\r\n";
        if (i > 0 && !pause_link(x.net, x.link, parameters["ms"], never)) return false;
        if (!send_text(x, reply.status, text, last)) return false;
        text.clear();
    }
    return x.request.keep_alive();
}

bool oversize(Exchange &x, const json &parameters) {
    HttpReply reply = x.true_reply();
    reply.body.resize(std::max(reply.body.size(), parameters["bytes"].get<std::size_t>()), ' ');
    return send_reply(x, std::move(reply));
}

bool garbage(Exchange &x, const json &parameters) {
    std::minstd_rand noise;  // the same bytes each time
    HttpReply reply;
    reply.body.resize(parameters["bytes"]);
    for (std::size_t i = 0; i < reply.body.size(); ++i)
        reply.body[i] = i % 16 == 7 ? '\0' : static_cast<char>(noise() >> 8);
    if (!parameters["raw"]) return send_reply(x, std::move(reply));
    send_text(x, 0, reply.body, true);
    return false;
}

bool literal_body(Exchange &x, const json &parameters) {
    HttpReply reply;
    reply.body = parameters["text"];
    if (!parameters["raw"]) return send_reply(x, std::move(reply));
    send_text(x, 0, reply.body, true);
    return false;
}

bool hang(Exchange &x, const json &) {
    return pause_link(x.net, x.link, -1, x.cleared) && send_reply(x, x.true_reply());
}

constexpr MisbehaviourKind kKinds[] = {
    {"error_code", R"({"value":-1})", error_code},
    {"http_status", R"({"status":500})", http_status},
    {"redirect", R"({"location":"/","status":302})", redirect},
    {"http10", R"({})", http10},
    {"delay", R"({"ms":1000})", delay},
    {"close", R"({"after":false})", close_silently},
    {"reset", R"({"after":false})", reset},
    {"truncate", R"({"bytes":10})", truncate},
    {"drip", R"({"bytes":1,"ms":10})", drip},
    {"pieces", R"({"pieces":2,"ms":20,"chunked":false})", pieces},
    {"oversize", R"({"bytes":1048576})", oversize},
    {"garbage", R"({"bytes":256,"raw":false})", garbage},
    {"body", R"({"text":"","raw":false})", literal_body},
    {"hang", R"({})", hang},
};

}  // namespace

const MisbehaviourKind *find_misbehaviour(const std::string &name) {
    for (const auto &kind : kKinds)
        if (name == kind.name) return &kind;
    return nullptr;
}

bool send_reply(Exchange &x, HttpReply reply) {
    reply.close = reply.close || !x.request.keep_alive();
    return send_text(x, reply.status, whole_text(reply), true) && !reply.close;
}
