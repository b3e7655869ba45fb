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

json_reply put_table(const json_request &request) {
    if (request.body.contains("alarm_result")) set_alarm_result(request.body.at("alarm_result"));
    if (request.body.contains("slot")) set_slot(request.body.at("slot"), request.body.value("present", true));
    if (request.body.contains("null")) give_null_table(request.body.at("null"));
    return {};
}

json_reply ask_library(const char *function, const std::string &method, const std::string &target,
                       const std::string &body) {
    const auto ask = reinterpret_cast<desk_request_function>(dlsym(RTLD_DEFAULT, function));
    if (ask == nullptr) return {404, {{"error", std::string(function) + ": its library is not loaded"}}};
    char *text = nullptr;
    const int status = ask(method.c_str(), target.c_str(), body.c_str(), &text);
    json_reply reply{status, json::parse(text, nullptr, false)};
    free(text);
    return reply;
}

json_reply to_capture(const json_request &request) {
    return ask_library("desk_ef_request", request.method, request.path, json_text(request.body));
}

json_reply to_tokens(const json_request &request) {
    return ask_library("desk_usock_request", request.method, request.path, json_text(request.body));
}

json_reply get_state(const json_request &) {
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

json_reply get_alarms(const json_request &request) {
    const auto since = request.query.find("since");
    return {200,
            alarms_since(since == request.query.end() ? 0 : strtoull(since->second.c_str(), nullptr, 10))};
}

json_reply delete_alarms(const json_request &) {
    forget_alarms();
    return {};
}

json_reply put_request(const json_request &request) {
    want_video(request.body.at("value"));
    return {};
}

json_reply put_watch(const json_request &request) {
    const bool on = request.body.at("on");
    want_video(on ? 1 : 0);
    return {200, call_handler({{"name", on ? "c_request_video" : "c_end_video"}, {"args", {0, 0}}})};
}

json_reply post_call(const json_request &request) {
    return {200, call_handler(request.body)};
}

json_reply get_calls(const json_request &) {
    return {200, call_counts()};
}

json_reply post_talk(const json_request &request) {
    return {200, talk(request.body)};
}

json_reply get_heap(const json_request &) {
#if defined(__GLIBC__) && __GLIBC_PREREQ(2, 33)
    const struct mallinfo2 heap = mallinfo2();
    return {200, {{"in_use", heap.uordblks + heap.hblkhd}}};
#else
    return {200, {{"in_use", nullptr}}};
#endif
}

json_reply get_variable(const json_request &request) {
    const auto name = request.query.find("name");
    if (name == request.query.end()) throw bad_request{"which name?"};
    return {200, read_variable(name->second)};
}

json_reply put_variable(const json_request &request) {
    set_variable(request.body.at("name"), request.body.at("value"));
    return {};
}

json_reply get_frames(const json_request &) {
    json frames = frame_counts();
    frames["records"] = frame_records();
    return {200, frames};
}

json_reply delete_frames(const json_request &) {
    forget_frames();
    return {};
}

json_reply save_frames(const json_request &request) {
    start_saving(request.body.value("h264", ""), request.body.value("aac", ""));
    return {};
}

json_reply stop_frames(const json_request &) {
    return {200, stop_saving()};
}

struct route {
    const char *method;  // null: any
    const char *path;
    json_handler handler;
};

const route routes[] = {
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

json_reply answer(const json_request &request) {
    for (const route &row : routes) {
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
        const json_reply reply = answer_json(answer, order.at(0), order.at(1), body);
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
