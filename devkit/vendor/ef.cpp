// libef.so: the capture library's entries and its part of the JSON interface.
#include <atomic>
#include <cstring>
#include <memory>

#include "capture.h"
#include "contract.h"
#include "json_http.h"
#include "text_values.h"
#include "threads.h"

using desk::json;
using desk::JsonReply;
using desk::JsonRequest;

namespace {

std::atomic<int (*)(int)> error_callback{nullptr};

JsonReply get_capture() {
    json capture = desk::capture_state();
    capture["error_callback"] = error_callback.load() != nullptr;
    return {200, capture};
}

JsonReply put_capture(const json &order) {
    desk::change_capture(order);
    return {};
}

// Each frame in a block of exactly its size that ends with the call: a sink that reads on, or later, is found
// out.
JsonReply post_frame(const json &order) {
    const std::string data = desk::from_base64(order.value("data_base64", ""));
    uint32_t timestamp = order.value("timestamp", 0U);
    const int count = order.value("count", 1);
    for (int i = 0; i < count; i++, timestamp += order.value("timestamp_step", 0U)) {
        const std::unique_ptr<uint8_t[]> bytes(new uint8_t[data.size()]);
        memcpy(bytes.get(), data.data(), data.size());
        captured_frame frame{
            bytes.get(), order.value("field2", 0),          order.value("field3", 0), order.value("kind", 1),
            timestamp,   static_cast<uint32_t>(data.size())};
        if (!desk::deliver_frame(frame)) throw desk::BadRequest{"capture is not initialised"};
    }
    return {};
}

JsonReply post_synthetic(const json &order) {
    desk::FramePlan plan = desk::live_plan();
    plan.pace = desk::FramePace::fast;
    desk::change_plan(plan, order);
    const uint64_t count = order.value("count", uint64_t{1});
    if (count == 0 || plan.video_fps == 0) throw desk::BadRequest{"count is at least 1 video frame"};
    if (order.value("async", false)) {
        desk::detached_thread([plan, count] { desk::make_frames(plan, count, desk::deliver_frame); });
        return {200, {{"started", 1}}};
    }
    const desk::FrameCounts made = desk::make_frames(plan, count, desk::deliver_frame);
    if (made.video == 0) throw desk::BadRequest{"capture is not initialised"};
    return {200, {{"video", made.video}, {"audio", made.audio}}};
}

JsonReply post_error(const json &order) {
    const auto callback = error_callback.load();
    if (callback == nullptr) throw desk::BadRequest{"no error callback was set"};
    const int code = order.at("code");
    int result = 0;
    desk::quiet_thread([&] { result = callback(code); }).join();
    return {200, {{"result", result}}};
}

JsonReply answer(const JsonRequest &request) {
    const std::string what = request.method + " " + request.path;
    if (what == "GET /capture") return get_capture();
    if (what == "PUT /capture") return put_capture(request.body);
    if (what == "POST /capture/frame") return post_frame(request.body);
    if (what == "POST /capture/synthetic") return post_synthetic(request.body);
    if (what == "POST /capture/error") return post_error(request.body);
    return {404, {{"error", "no such request: " + what}}};
}

}  // namespace

DESK_EXPORT void SetErrorCallback(int (*callback)(int error_code)) {
    error_callback = callback;
}

DESK_EXPORT int ExFramer_Capture_Init(void (*sink)(captured_frame *frame)) {
    return desk::initialise_capture(sink);
}

DESK_EXPORT int ExFramer_Capture_Start() {
    return desk::start_capture();
}

DESK_EXPORT int ExFramer_Capture_Stop() {
    return desk::stop_capture();
}

DESK_EXPORT int desk_ef_request(const char *method, const char *target, const char *body, char **reply) {
    return desk::answer_json_text(answer, method, target, body, reply);
}
