// libvq_ipca.so: the SDK's globals and entry, its function table, and the JSON interface of all three
// libraries.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "contract.h"
#include "json_http.h"
#include "sdk_alarms.h"
#include "sdk_calls.h"
#include "sdk_frames.h"
#include "sdk_variables.h"
#include "threads.h"

using desk::json;
using desk::json_reply;
using desk::json_request;

DESK_EXPORT int request_vedio;
DESK_EXPORT pthread_attr_t thread_attr;
int request_vedio;
pthread_attr_t thread_attr;

namespace {

int take_audio(audio_record *record) {
    desk::keep_audio(*record);
    return 0;
}

int take_video(video_record *record) {
    desk::keep_video(*record);
    return 0;
}

int take_alarm(alarm_record *record, mipc_api_table *table);

struct slot_row {
    int slot;
    any_function function;
};

const slot_row real_slots[] = {
    {audio_slot, reinterpret_cast<any_function>(take_audio)},
    {video_slot, reinterpret_cast<any_function>(take_video)},
    {alarm_slot, reinterpret_cast<any_function>(take_alarm)},
};

mipc_api_table table{};  // the agent reads the slots as they are

struct session {
    std::string uuid, interface_name;
    int init_count = 0;
    bool null_table = false;  // what vq_ipca_init returns
    int port = 0;             // 0: the interface is not up
    json at_init;             // the replies to DESK_SDK_AT_INIT
};
std::mutex lock;

// Under `lock`. Made at the first use, never destroyed: threads outlive main.
session &now() {
    static session &made = *new session;
    return made;
}

int take_alarm(alarm_record *record, mipc_api_table *given) {
    return desk::keep_alarm(*record, given == &table);
}

// The agent reads the slot without a lock of ours, as it would with the real table.
__attribute__((no_sanitize("thread"))) void set_slot(int slot, any_function function) {
    *const_cast<volatile any_function *>(&table.slot[slot]) = function;
}

void change_slot(const json &order) {
    for (const slot_row &row : real_slots) {
        if (row.slot != order.at("slot")) continue;
        set_slot(row.slot, order.value("present", true) ? row.function : nullptr);
        return;
    }
    throw desk::bad_request{"a slot is 0, 7 or 14"};
}

json_reply change_table(const json_request &request) {
    if (request.body.contains("alarm_result")) desk::set_alarm_result(request.body.at("alarm_result"));
    if (request.body.contains("slot")) change_slot(request.body);
    if (request.body.contains("null")) {
        const std::lock_guard guard(lock);
        now().null_table = request.body.at("null");
    }
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
    return ask_library("desk_ef_request", request.method, request.path, desk::json_text(request.body));
}

json_reply to_tokens(const json_request &request) {
    return ask_library("desk_usock_request", request.method, request.path, desk::json_text(request.body));
}

json slots_present() {
    json present = json::array();
    for (const any_function slot : table.slot) present.push_back(slot != nullptr);
    return present;
}

json_reply get_state(const json_request &) {
    json state{
        {"pid", getpid()},
        {"callbacks", desk::present_callbacks()},
        {"request_vedio", __atomic_load_n(&request_vedio, __ATOMIC_SEQ_CST)},
        {"alarm_count", desk::alarm_count()},
        {"alarm_result", desk::alarm_result()},
        {"calls", desk::call_counts()},
        {"slots", slots_present()},
        {"frames", desk::frame_counts()},
        {"token", ask_library("desk_usock_request", "GET", "/token", "").body.value("token", json())},
        {"cloud_status",
         ask_library("desk_usock_request", "GET", "/cloud_status", "").body.value("values", json())},
        {"bitrates", ask_library("desk_usock_request", "GET", "/bitrates", "").body.value("values", json())},
        {"capture", ask_library("desk_ef_request", "GET", "/capture", "").body}};
    const std::lock_guard guard(lock);
    state["uuid"] = now().uuid;
    state["interface"] = now().interface_name;
    state["init_count"] = now().init_count;
    state["at_init"] = now().at_init;
    return {200, state};
}

json_reply get_alarms(const json_request &request) {
    const auto since = request.query.find("since");
    return {200, desk::alarms_since(
                     since == request.query.end() ? 0 : strtoull(since->second.c_str(), nullptr, 10))};
}

json_reply delete_alarms(const json_request &) {
    desk::forget_alarms();
    return {};
}

json_reply put_request(const json_request &request) {
    __atomic_store_n(&request_vedio, request.body.at("value").get<int>(), __ATOMIC_SEQ_CST);
    return {};
}

json_reply put_watch(const json_request &request) {
    const bool on = request.body.at("on");
    __atomic_store_n(&request_vedio, on ? 1 : 0, __ATOMIC_SEQ_CST);
    return {200, desk::call_handler({{"name", on ? "c_request_video" : "c_end_video"}, {"args", {0, 0}}})};
}

json_reply post_call(const json_request &request) {
    return {200, desk::call_handler(request.body)};
}

json_reply get_calls(const json_request &) {
    return {200, desk::call_counts()};
}

json_reply post_talk(const json_request &request) {
    return {200, desk::talk(request.body)};
}

json_reply get_variable(const json_request &request) {
    const auto name = request.query.find("name");
    if (name == request.query.end()) throw desk::bad_request{"which name?"};
    return {200, desk::read_variable(name->second)};
}

json_reply put_variable(const json_request &request) {
    desk::set_variable(request.body.at("name"), request.body.at("value"));
    return {};
}

json_reply get_frames(const json_request &) {
    json frames = desk::frame_counts();
    frames["records"] = desk::frame_records();
    return {200, frames};
}

json_reply delete_frames(const json_request &) {
    desk::forget_frames();
    return {};
}

json_reply save_frames(const json_request &request) {
    desk::start_saving(request.body.value("h264", ""), request.body.value("aac", ""));
    return {};
}

json_reply stop_frames(const json_request &) {
    return {200, desk::stop_saving()};
}

struct route {
    const char *method;  // null: any
    const char *path;
    desk::json_handler handler;
};

const route routes[] = {
    {"GET", "/state", get_state},
    {"GET", "/alarms", get_alarms},
    {"DELETE", "/alarms", delete_alarms},
    {"PUT", "/table", change_table},
    {"PUT", "/request_vedio", put_request},
    {"PUT", "/watch", put_watch},
    {"POST", "/call", post_call},
    {"GET", "/calls", get_calls},
    {"POST", "/talk", post_talk},
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

// Applies the requests that an environment variable holds, [[method, target, body], ...]; returns the
// replies.
json apply_orders(const char *variable) {
    const char *text = getenv(variable);
    if (text == nullptr || *text == '\0') return nullptr;
    json replies = json::array();
    const json orders = json::parse(text, nullptr, false);
    if (!orders.is_array()) fprintf(stderr, "vq_ipca: %s is no JSON array\n", variable);
    for (const json &order : orders) {
        if (!order.is_array() || order.size() < 2) continue;
        const std::string body = order.size() > 2 ? desk::json_text(order.at(2)) : "";
        const json_reply reply = desk::answer_json(answer, order.at(0), order.at(1), body);
        if (reply.status != 200)
            fprintf(stderr, "vq_ipca: %s: %s\n", variable, desk::json_text(reply.body).c_str());
        replies.push_back(reply.body);
    }
    return replies;
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

// Called with `lock` held.
void bring_interface_up() {
    if (now().port != 0) return;
    const char *text = getenv("DESK_SDK_PORT");
    const int wanted = text == nullptr ? 0 : atoi(text);
    now().port = desk::start_json_server(wanted, answer);
    if (now().port < 0) {
        fprintf(stderr, "vq_ipca: port %d is busy, taking any free one\n", wanted);
        now().port = desk::start_json_server(0, answer);
    }
    write_ports_file(now().port);
}

__attribute__((constructor)) void load() {
    pthread_attr_init(&thread_attr);
    pthread_attr_setstacksize(&thread_attr, 256 * 1024);
    for (const slot_row &row : real_slots) set_slot(row.slot, row.function);
    apply_orders("DESK_SDK_AT_LOAD");
}

}  // namespace

DESK_EXPORT mipc_api_table *vq_ipca_init(const char *uuid, const char *interface_name,
                                         const device_callbacks *callbacks) {
    desk::set_callbacks(callbacks);
    {
        const std::lock_guard guard(lock);
        now().uuid = uuid == nullptr ? "" : uuid;
        now().interface_name = interface_name == nullptr ? "" : interface_name;
        now().init_count++;
        bring_interface_up();
    }
    json replies;
    desk::quiet_thread([&replies] { replies = apply_orders("DESK_SDK_AT_INIT"); }).join();
    const std::lock_guard guard(lock);
    now().at_init = replies;
    return now().null_table ? nullptr : &table;
}
