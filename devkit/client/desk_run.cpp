#include "desk_run.h"

#include <httplib.h>

#include <cstdlib>
#include <fstream>

namespace {

constexpr time_t kHour = 3600;

struct Interface {
    const char *file, *key, *name;
};

// By Side.
constexpr Interface kInterfaces[] = {{"camera.json", "control", "the camera"},
                                     {"sdk.json", "port", "the SDK"},
                                     {"console.json", "port", "the console"}};

const Interface &interface_of(Side to) {
    return kInterfaces[static_cast<size_t>(to)];
}

int port_of(Side to) {
    const std::string file = run_folder() + "/" + interface_of(to).file;
    std::ifstream stream(file);
    const nlohmann::json ports = nlohmann::json::parse(stream, nullptr, false);
    const char *key = interface_of(to).key;
    if (!ports.is_object() || !ports.contains(key)) {
        throw DeskError("nothing is running here: no port in " + file +
                        " (start ./run, or name its folder in DESK_RUN)");
    }
    return ports[key].get<int>();
}

std::string error_text(const httplib::Response &reply) {
    const nlohmann::json body = nlohmann::json::parse(reply.body, nullptr, false);
    if (body.is_object() && body.contains("error")) return body["error"].get<std::string>();
    return reply.body.empty() ? "no reason given" : reply.body;
}

}  // namespace

std::string run_folder() {
    const char *folder = std::getenv("DESK_RUN");
    return folder != nullptr && *folder != '\0' ? folder : DESK_DEFAULT_RUN;
}

std::string request(Side to, const std::string &method, const std::string &path, const std::string &body) {
    const int port = port_of(to);
    httplib::Client client("127.0.0.1", port);
    client.set_read_timeout(kHour);
    httplib::Request order;
    order.method = method;
    order.path = path;
    order.body = body;
    if (!body.empty()) order.set_header("Content-Type", "application/json");
    const httplib::Result reply = client.send(order);
    const std::string name = interface_of(to).name;
    if (!reply) throw DeskError(name + " does not answer at port " + std::to_string(port));
    if (reply->status / 100 != 2)
        throw DeskError(name + " answers " + std::to_string(reply->status) + ": " + error_text(*reply));
    return reply->body;
}

nlohmann::json request_json(Side to, const std::string &method, const std::string &path,
                            const nlohmann::json &body) {
    const std::string reply = request(to, method, path, body.is_null() ? "" : body.dump());
    nlohmann::json parsed = nlohmann::json::parse(reply, nullptr, false);
    if (parsed.is_discarded()) throw DeskError("this reply is no JSON: " + reply);
    return parsed;
}

std::string device_path(const std::string &path) {
    std::string pid;
    std::ifstream(run_folder() + "/view.pid") >> pid;
    return pid.empty() ? path : "/proc/" + pid + "/root/" + path;
}
