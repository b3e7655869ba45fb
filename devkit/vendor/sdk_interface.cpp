#include "sdk_interface.h"

#include <dlfcn.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "contract.h"
#include "sdk_alarms.h"
#include "sdk_calls.h"
#include "sdk_frames.h"
#include "sdk_session.h"
#include "sdk_variables.h"

namespace desk {
namespace {

JsonReply put_table(const JsonRequest &request) {
    if (request.body.contains("alarm_result")) set_alarm_result(request.body.at("alarm_result"));
    if (request.body.contains("slot")) set_slot(request.body.at("slot"), request.body.value("present", true));
    if (request.body.contains("null")) give_null_table(request.body.at("null"));
    return {};
}

JsonReply ask_library(const char *function, const std::string &method, const std::string &target,
                      const std::string &body) {
    const auto ask = reinterpret_cast<DeskRequestFunction>(dlsym(RTLD_DEFAULT, function));
    if (ask == nullptr) return {404, {{"error", std::string(function) + ": its library is not loaded"}}};
    char *text = nullptr;
    const int status = ask(method.c_str(), target.c_str(), body.c_str(), &text);
    JsonReply reply{status, json::parse(text, nullptr, false)};
    free(text);
    return reply;
}

JsonReply to_capture(const JsonRequest &request) {
    return ask_library("desk_ef_request", request.method, request.path, json_text(request.body));
}

JsonReply to_tokens(const JsonRequest &request) {
    return ask_library("desk_usock_request", request.method, request.path, json_text(request.body));
}

JsonReply get_state(const JsonRequest &) {
    json state{
        {"pid", getpid()},
        {"callbacks", present_callbacks()},
        {"alarm_count", alarm_count()},
        {"alarm_result", alarm_result()},
        {"calls", call_counts()},
        {"frames", frame_counts()},
        {"token", ask_library("desk_usock_request", "GET", "/token", "").body.value("token", json())},
        {"cloud_status",
         ask_library("desk_usock_request", "GET", "/cloud_status", "").body.value("values", json())},
        {"bitrates", ask_library("desk_usock_request", "GET", "/bitrates", "").body.value("values", json())},
        {"capture", ask_library("desk_ef_request", "GET", "/capture", "").body}};
    state.update(session_state());
    return {200, state};
}

JsonReply get_alarms(const JsonRequest &request) {
    const auto since = request.query.find("since");
    return {200,
            alarms_since(since == request.query.end() ? 0 : strtoull(since->second.c_str(), nullptr, 10))};
}

JsonReply delete_alarms(const JsonRequest &) {
    forget_alarms();
    return {};
}

JsonReply put_request(const JsonRequest &request) {
    want_video(request.body.at("value"));
    return {};
}

JsonReply put_watch(const JsonRequest &request) {
    const bool on = request.body.at("on");
    want_video(on ? 1 : 0);
    return {200, call_handler({{"name", on ? "c_request_video" : "c_end_video"}, {"args", {0, 0}}})};
}

JsonReply post_call(const JsonRequest &request) {
    return {200, call_handler(request.body)};
}

JsonReply get_calls(const JsonRequest &) {
    return {200, call_counts()};
}

JsonReply post_talk(const JsonRequest &request) {
    return {200, talk(request.body)};
}

JsonReply get_heap(const JsonRequest &) {
#if defined(__GLIBC__) && __GLIBC_PREREQ(2, 33)
    const struct mallinfo2 heap = mallinfo2();
    return {200, {{"in_use", heap.uordblks + heap.hblkhd}}};
#else
    return {200, {{"in_use", nullptr}}};
#endif
}

JsonReply get_variable(const JsonRequest &request) {
    const auto name = request.query.find("name");
    if (name == request.query.end()) throw BadRequest{"which name?"};
    return {200, read_variable(name->second)};
}

JsonReply put_variable(const JsonRequest &request) {
    set_variable(request.body.at("name"), request.body.at("value"));
    return {};
}

JsonReply get_frames(const JsonRequest &) {
    json frames = frame_counts();
    frames["records"] = frame_records();
    return {200, frames};
}

JsonReply delete_frames(const JsonRequest &) {
    forget_frames();
    return {};
}

JsonReply save_frames(const JsonRequest &request) {
    start_saving(request.body.value("h264", ""), request.body.value("aac", ""));
    return {};
}

JsonReply stop_frames(const JsonRequest &) {
    return {200, stop_saving()};
}

struct Route {
    const char *method;  // null: any
    const char *path;
    JsonHandler handler;
};

const Route kRoutes[] = {
    {"GET", "/state", get_state},
    {"GET", "/alarms", get_alarms},
    {"DELETE", "/alarms", delete_alarms},
    {"PUT", "/table", put_table},
    {"PUT", "/request_vedio", put_request},
    {"PUT", "/watch", put_watch},
    {"POST", "/call", post_call},
    {"GET", "/calls", get_calls},
    {"POST", "/talk", post_talk},
    {"GET", "/heap", get_heap},
    {"GET", "/variable", get_variable},
    {"PUT", "/variable", put_variable},
    {"GET", "/frames", get_frames},
    {"DELETE", "/frames", delete_frames},
    {"POST", "/frames/save", save_frames},
    {"POST", "/frames/stop", stop_frames},
    {nullptr, "/capture", to_capture},
    {nullptr, "/capture/frame", to_capture},
    {nullptr, "/capture/synthetic", to_capture},
    {nullptr, "/capture/error", to_capture},
    {nullptr, "/token", to_tokens},
    {nullptr, "/cloud_status", to_tokens},
    {nullptr, "/bitrates", to_tokens},
};

JsonReply answer(const JsonRequest &request) {
    for (const Route &row : kRoutes) {
        if (request.path == row.path && (row.method == nullptr || request.method == row.method))
            return row.handler(request);
    }
    return {404, {{"error", "no such request: " + request.method + " " + request.path}}};
}

void write_ports_file(int port) {
    const char *path = getenv("DESK_SDK_PORTS_FILE");
    if (path == nullptr || *path == '\0') return;
    const std::string beside = std::string(path) + ".new";
    FILE *file = fopen(beside.c_str(), "we");
    if (file == nullptr) {
        perror(beside.c_str());
        return;
    }
    fprintf(file, "{\"port\":%d,\"pid\":%d}\n", port, static_cast<int>(getpid()));
    fclose(file);
    if (rename(beside.c_str(), path) != 0) perror(path);
}

}  // namespace

json apply_orders(const char *variable) {
    const char *text = getenv(variable);
    if (text == nullptr || *text == '\0') return nullptr;
    json replies = json::array();
    const json orders = json::parse(text, nullptr, false);
    if (!orders.is_array()) fprintf(stderr, "vq_ipca: %s is no JSON array\n", variable);
    for (const json &order : orders) {
        if (!order.is_array() || order.size() < 2) continue;
        const std::string body = order.size() > 2 ? json_text(order.at(2)) : "";
        const JsonReply reply = answer_json(answer, order.at(0), order.at(1), body);
        if (reply.status != 200) {
            fprintf(stderr, "vq_ipca: %s: %s\n", variable, json_text(reply.body).c_str());
        }
        replies.push_back(reply.body);
    }
    return replies;
}

int start_interface() {
    const char *text = getenv("DESK_SDK_PORT");
    const int wanted = text == nullptr ? 0 : atoi(text);
    int port = start_json_server(wanted, answer);
    if (port < 0) {
        fprintf(stderr, "vq_ipca: port %d is busy, taking any free one\n", wanted);
        port = start_json_server(0, answer);
    }
    write_ports_file(port);
    return port;
}

}  // namespace desk
