#include "json_client.h"

#include <httplib.h>

#include <stdexcept>

json json_request(int port, const std::string &method, const std::string &path, const json &body) {
    httplib::Client client("127.0.0.1", port);
    client.set_tcp_nodelay(true);
    // A call may hold its caller for an hour of the agent's time, which is bent less on a busy machine.
    client.set_read_timeout(500);
    httplib::Request request;
    request.method = method;
    request.path = path;
    if (!body.is_null()) {
        request.body = body.dump();
        request.set_header("Content-Type", "application/json");
    }
    const auto result = client.send(request);
    if (!result) throw std::runtime_error(method + " " + path + ": " + httplib::to_string(result.error()));
    if (result->status != 200) throw std::runtime_error(method + " " + path + ": " + result->body);
    return result->body.empty() ? json() : json::parse(result->body);
}
