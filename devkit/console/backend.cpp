#include "backend.h"

#include <httplib.h>

#include <fstream>

namespace {

constexpr int kQuickSeconds = 5;

Answer nobody(Side to) {
    const char *name = to == Side::camera ? "the camera" : "the agent's SDK";
    return {502, json_text({{"error", std::string(name) + " does not answer"}}), "application/json"};
}

}  // namespace

json Backend::ports(Side of) const {
    std::ifstream file(run_ + (of == Side::camera ? "/camera.json" : "/sdk.json"));
    json parsed = json::parse(file, nullptr, false);
    return parsed.is_object() ? parsed : json::object();
}

int Backend::agent_pid() const {
    return ports(Side::sdk).value("pid", 0);
}

Answer Backend::send(Side to, const std::string &method, const std::string &path, const std::string &body,
                     int seconds) const {
    const int port = ports(to).value(to == Side::camera ? "control" : "port", 0);
    if (port == 0) return nobody(to);
    httplib::Client client("127.0.0.1", port);
    client.set_connection_timeout(2);
    client.set_read_timeout(seconds);
    httplib::Request order;
    order.method = method;
    order.path = path;
    order.body = body;
    if (!body.empty()) order.set_header("Content-Type", "application/json");
    const httplib::Result reply = client.send(order);
    if (!reply) return nobody(to);
    return {reply->status, reply->body, reply->get_header_value("Content-Type")};
}

std::optional<json> Backend::ask(Side to, const std::string &method, const std::string &path,
                                 const json &body) const {
    const Answer got = send(to, method, path, body.is_null() ? "" : json_text(body), kQuickSeconds);
    json parsed = json::parse(got.body, nullptr, false);
    if (got.status / 100 != 2 || parsed.is_discarded()) return std::nullopt;
    return parsed;
}
