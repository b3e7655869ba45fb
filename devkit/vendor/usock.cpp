// libusock.so: access tokens and cloud status. Every call is kept in order.
#include <cstring>
#include <mutex>
#include <string>

#include "contract.h"
#include "json_http.h"
#include "real_time.h"
#include "record_ring.h"
#include "text_values.h"

using desk::json;
using desk::JsonReply;
using desk::JsonRequest;

namespace {

struct KeptCall {
    const char *name;
    json argument;
    int result, tid;
    int64_t real_ms;
};

struct TokenState {
    std::mutex lock;  // guards all below
    json token = "desk-token", soap_token = "desk-token";
    int soap_result = 0, remove_result = 0;
    desk::RecordRing<KeptCall, 256> calls;
    desk::RecordRing<int, 256> cloud_status, bitrates;
};

// Made at the first use, which may come before this library's own constructors; never destroyed.
TokenState &state() {
    static TokenState &made = *new TokenState;
    return made;
}

// Called with the lock held.
int keep_call(const char *name, json argument, int result) {
    state().calls.next() = {name, std::move(argument), result, desk::thread_id(), desk::real_now_ms()};
    return result;
}

JsonReply get_token() {
    json calls = json::array();
    state().calls.each_since(0, [&calls](uint64_t seq, const KeptCall &call) {
        calls.push_back({{"seq", seq},
                         {"call", call.name},
                         {"argument", call.argument},
                         {"result", call.result},
                         {"real_ms", call.real_ms},
                         {"tid", call.tid}});
    });
    return {200,
            {{"token", state().token},
             {"soap_token", state().soap_token},
             {"soap_result", state().soap_result},
             {"remove_result", state().remove_result},
             {"calls", calls}}};
}

JsonReply put_token(const json &body) {
    for (const char *name : {"token", "soap_token"}) {
        if (body.contains(name) && !body.at(name).is_null() && !body.at(name).is_string()) {
            throw desk::BadRequest{"a token is a text or null"};
        }
    }
    state().token = body.value("token", state().token);
    state().soap_token = body.value("soap_token", state().soap_token);
    state().soap_result = body.value("soap_result", state().soap_result);
    state().remove_result = body.value("remove_result", state().remove_result);
    return {};
}

JsonReply get_numbers(const desk::RecordRing<int, 256> &numbers) {
    json values = json::array();
    numbers.each_since(0, [&values](uint64_t, int value) { values.push_back(value); });
    return {200, {{"total", numbers.total()}, {"values", values}}};
}

JsonReply answer(const JsonRequest &request) {
    const std::lock_guard guard(state().lock);
    const std::string what = request.method + " " + request.path;
    if (what == "GET /token") return get_token();
    if (what == "PUT /token") return put_token(request.body);
    if (what == "GET /cloud_status") return get_numbers(state().cloud_status);
    if (what == "GET /bitrates") return get_numbers(state().bitrates);
    if (what != "DELETE /token") return {404, {{"error", "no such request: " + what}}};
    state().calls.clear();
    return {};
}

}  // namespace

DESK_EXPORT int send_cloud_status(int code) {
    const std::lock_guard guard(state().lock);
    state().cloud_status.next() = code;
    return keep_call("send_cloud_status", code, 0);
}

DESK_EXPORT int set_video_bitrate(int kilobits) {
    const std::lock_guard guard(state().lock);
    state().bitrates.next() = kilobits;
    return keep_call("set_video_bitrate", kilobits, 0);
}

DESK_EXPORT int remove_token() {
    const std::lock_guard guard(state().lock);
    if (state().remove_result == 0) state().token = nullptr;
    return keep_call("remove_token", nullptr, state().remove_result);
}

DESK_EXPORT int readTokenFromFile(char *token, int size) {
    const std::lock_guard guard(state().lock);
    const bool readable = state().token.is_string() && token != nullptr && size > 0;
    if (readable) {
        const std::string &text = state().token.get_ref<const std::string &>();
        const size_t length = std::min(text.size(), static_cast<size_t>(size) - 1);
        memcpy(token, text.data(), length);
        token[length] = '\0';
    }
    return keep_call("readTokenFromFile", size, readable ? 0 : -1);
}

DESK_EXPORT int soapGetToken() {
    const std::lock_guard guard(state().lock);
    if (state().soap_result == 0) state().token = state().soap_token;
    return keep_call("soapGetToken", nullptr, state().soap_result);
}

DESK_EXPORT int desk_usock_request(const char *method, const char *target, const char *body, char **reply) {
    return desk::answer_json_text(answer, method, target, body, reply);
}
