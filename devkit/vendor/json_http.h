// A small HTTP/1.1 server and client for JSON on 127.0.0.1: a thread per connection, one request per
// connection. No time-outs on the server's side: the process's clocks may be bent, and a handler may take
// minutes.
//
// By hand, because it runs inside the agent's process, which a library's server would change: cpp-httplib's
// makes the whole process ignore SIGPIPE, ends connections by time-outs in bent time, keeps a pool of threads
// and loads libcrypto and more; under ThreadSanitizer it is code without instrumentation between the tests
// and the agent.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>

namespace desk {

using nlohmann::json;

struct JsonRequest {
    std::string method, path;
    std::map<std::string, std::string> query;
    json body;  // an empty object when the request has none
};

struct JsonReply {
    int status = 200;
    json body = json::object();
};

// What a handler throws to answer 400 with this text.
struct BadRequest {
    std::string text;
};

using JsonHandler = JsonReply (*)(const JsonRequest &request);

// Serves `handler` on 127.0.0.1 for the rest of the process's life; returns the port, or -1 when `port` (0:
// any) is not free.
int start_json_server(int port, JsonHandler handler);

// Answers one request without a socket: parses target and body, turns bad_request and JSON errors into a 400.
JsonReply answer_json(JsonHandler handler, const std::string &method, const std::string &target,
                      const std::string &body);

// The same for the C boundary between the libraries: *reply is a JSON text that the caller frees.
int answer_json_text(JsonHandler handler, const char *method, const char *target, const char *body,
                     char **reply);

// Sends one request to 127.0.0.1:port and waits for the reply, at most `seconds` of real time between two
// pieces of it; status 0 when nobody answered.
JsonReply json_call(int port, const std::string &method, const std::string &target, const json &body,
                    int seconds);

// JSON text; bytes that are no UTF-8 are replaced.
std::string json_text(const json &value);

}  // namespace desk
