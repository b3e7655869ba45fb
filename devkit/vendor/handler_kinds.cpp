#include "handler_kinds.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <vector>

#include "text_values.h"

namespace desk {
namespace {

constexpr int32_t kUntouched = 0x5a5a5a5a;
constexpr size_t kClipSize = 102400;

template <typename Function>
Function as(AnyFunction handler) {
    return reinterpret_cast<Function>(handler);
}

json argument(const json &call, size_t index) {
    const json args = call.value("args", json::array());
    return index < args.size() ? args.at(index) : json();
}

int number(const json &call, size_t index, int otherwise = 0) {
    const json value = argument(call, index);
    return value.is_null() ? otherwise : value.get<int>();
}

// A text argument that lives as long as the call.
struct CText {
    std::optional<std::string> text;
    CText(const json &call, size_t index) : text(text_argument(argument(call, index))) {}
    const char *get() const {
        return text ? text->c_str() : nullptr;
    }
    int length() const {
        return text ? static_cast<int>(strlen(text->c_str())) : 0;
    }
};

// Bytes in a block of exactly their size, so that a read beyond them is seen.
struct ExactBlock {
    std::unique_ptr<uint8_t[]> bytes;
    uint32_t length;
    explicit ExactBlock(const std::string &from)
        : bytes(new uint8_t[from.size()]), length(static_cast<uint32_t>(from.size())) {
        std::copy(from.begin(), from.end(), bytes.get());
    }
};

json thread_result(void *result) {
    return {{"result", static_cast<int>(reinterpret_cast<intptr_t>(result))}};
}

json call_read(AnyFunction handler, const json &call) {
    const CText name(call, 0);
    char *value = nullptr;
    const bool wanted = argument(call, 1) != json(false);
    const int result = as<int (*)(const char *, char **)>(handler)(name.get(), wanted ? &value : nullptr);
    json out{{"result", result}, {"value", text_value(value)}};
    free(value);
    return out;
}

json call_write(AnyFunction handler, const json &call) {
    const CText name(call, 0), value(call, 1);
    const int length = number(call, 2, value.length());
    return {
        {"result", as<int (*)(const char *, const char *, int)>(handler)(name.get(), value.get(), length)}};
}

json call_with_nothing(AnyFunction handler, const json &) {
    return {{"result", as<int (*)()>(handler)()}};
}

json call_with_int(AnyFunction handler, const json &call) {
    return {{"result", as<int (*)(int)>(handler)(number(call, 0))}};
}

json call_with_ints(AnyFunction handler, const json &call) {
    return {{"result", as<int (*)(int, int)>(handler)(number(call, 0), number(call, 1))}};
}

json call_with_long(AnyFunction handler, const json &call) {
    return {{"result", as<int (*)(long)>(handler)(number(call, 0))}};
}

json tell_int(AnyFunction handler, const json &call) {
    as<void (*)(int)>(handler)(number(call, 0));
    return json::object();
}

json call_play(AnyFunction handler, const json &call) {
    const auto play = as<int (*)(talkback_frame *)>(handler);
    const json order = argument(call, 0);
    if (order.is_null()) return {{"result", play(nullptr)}};
    std::string data = from_base64(order.value("data_base64", ""));
    if (order.contains("wav")) {
        const std::string file = read_file(order.at("wav"));
        data =
            file.substr(std::min<size_t>(order.value("offset", 44), file.size()), order.value("length", 640));
    }
    const ExactBlock payload(data);
    talkback_frame frame{};
    frame.sequence = order.value("sequence", 1U);
    frame.length = payload.length;
    frame.data = payload.bytes.get();
    return {{"result", play(&frame)}};
}

json snapshot_json(const snapshot_record &record, const json &call) {
    json out{{"word0", record.word0},   {"kind", record.kind},
             {"byte8", record.byte8},   {"word3", record.word3},
             {"word4", record.word4},   {"word5", record.word5},
             {"length", record.length}, {"capture_time", record.capture_time}};
    const size_t size = record.data == nullptr ? 0 : record.length;
    if (call.contains("save")) {
        std::ofstream(call.at("save").get<std::string>(), std::ios::binary)
            .write(reinterpret_cast<const char *>(record.data), static_cast<std::streamsize>(size));
    } else {
        out["data_base64"] = to_base64(record.data, size);
    }
    return out;
}

json call_snapshot(AnyFunction handler, const json &call) {
    const auto take = as<int (*)(snapshot_record *, int)>(handler);
    if (call.value("null_record", false)) return {{"result", take(nullptr, number(call, 0))}};
    snapshot_record record{};
    record.word0 = record.kind = record.word3 = record.word4 = record.word5 = record.capture_time =
        kUntouched;
    record.byte8 = kUntouched & 0xff;
    if (call.contains("buffer"))
        record.data = static_cast<uint8_t *>(malloc(call.at("buffer").get<size_t>()));
    const int result = take(&record, number(call, 0));
    json out = snapshot_json(record, call);
    out["result"] = result;
    free(record.data);
    return out;
}

json call_read_conf(AnyFunction handler, const json &call) {
    const CText key(call, 0), path(call, 1);
    std::vector<char> out(4096, '\xff');
    const int result =
        as<int (*)(const char *, char *, const char *)>(handler)(key.get(), out.data(), path.get());
    const size_t length = strnlen(out.data(), out.size());
    const bool written = out[0] != '\xff' && length < out.size();
    return {{"result", result}, {"value", written ? text_value(out.data()) : json()}};
}

json call_for_text(AnyFunction handler, const json &) {
    char *text = as<char *(*)()>(handler)();
    json out{{"value", text_value(text)}};
    free(text);
    return out;
}

json call_fill_buffer(AnyFunction handler, const json &call) {
    const int size = number(call, 0, 32);
    std::vector<char> buffer(static_cast<size_t>(std::max(size, 0)) + 1);
    const int result = as<int (*)(char *, int)>(handler)(buffer.data(), size);
    return {{"result", result}, {"value", text_value(buffer.data())}};
}

json call_sink(AnyFunction handler, const json &call) {
    const json order = argument(call, 0);
    const ExactBlock data(from_base64(order.value("data_base64", "")));
    captured_frame frame{data.bytes.get(), 0, 0, order.value("kind", 1), order.value("timestamp", 0U),
                         data.length};
    as<void (*)(captured_frame *)>(handler)(&frame);
    return json::object();
}

json call_with_address(AnyFunction handler, const json &call) {
    int value = number(call, 0);
    return thread_result(as<void *(*)(void *)>(handler)(&value));
}

json call_with_number_in_pointer(AnyFunction handler, const json &call) {
    return thread_result(as<void *(*)(void *)>(handler)(reinterpret_cast<void *>(intptr_t{number(call, 0)})));
}

json call_with_clip(AnyFunction handler, const json &call) {
    struct Clip {
        char *data;
        int used;
    };
    const json order = argument(call, 0);
    const std::string bytes = from_base64(order.value("data_base64", "")).substr(0, kClipSize);
    auto *holder = static_cast<Clip *>(calloc(1, sizeof(Clip)));
    *holder = {static_cast<char *>(calloc(1, kClipSize)),
               order.value("used", static_cast<int>(bytes.size()))};
    std::copy(bytes.begin(), bytes.end(), holder->data);
    return thread_result(as<void *(*)(void *)>(handler)(holder));
}

using TransferCallback = size_t (*)(char *, size_t, size_t, void *);

json call_header_sink(AnyFunction handler, const json &call) {
    std::string line = text_argument(argument(call, 0)).value_or("");
    int status = 0;
    const size_t result = as<TransferCallback>(handler)(line.data(), 1, line.size(), &status);
    return {{"result", result}, {"status", status}};
}

json call_result_sink(AnyFunction handler, const json &call) {
    std::string chunk = text_argument(argument(call, 0)).value_or("");
    std::vector<char> buffer(129);
    const size_t result = as<TransferCallback>(handler)(chunk.data(), 1, chunk.size(), buffer.data());
    return {{"result", result}, {"value", text_value(buffer.data())}};
}

json call_photo_sink(AnyFunction handler, const json &call) {
    photo_buffer photo{};
    size_t result = 0;
    for (const json &piece : call.value("args", json::array())) {
        std::string chunk = text_argument(piece).value_or("");
        result = as<TransferCallback>(handler)(chunk.data(), 1, chunk.size(), &photo);
    }
    json out{{"result", result}, {"count", photo.count}};
    out["data_base64"] = to_base64(photo.data, photo.data == nullptr ? 0 : photo.count);
    free(photo.data);
    return out;
}

constexpr HandlerRow kHandlers[] = {
    {"get_device_status", call_read, 0, false},
    {"get_device_param", call_read, 1, false},
    {"set_device_param", call_write, 2, false},
    {"device_play_audio", call_play, 3, false},
    {"ptz_direction_control", call_with_ints, 4, false},
    {"get_camera_snapshot", call_snapshot, 5, false},
    {"notify_Z55_connection_status", tell_int, 6, false},
    {"start_recording_video", call_with_long, 7, false},
    {"stop_recording_video", call_with_nothing, 8, false},
    {"login", call_with_nothing, -1, false},
    {"rebootOperation", call_with_nothing, -1, false},
    {"read_conf_value", call_read_conf, -1, false},
    {"get_session_key", call_for_text, -1, true},
    {"c_request_video", call_with_ints, -1, false},
    {"c_end_video", call_with_ints, -1, false},
    {"c_request_audio", call_with_ints, -1, false},
    {"e_get_param_str", call_with_int, -1, false},
    {"error_callback", call_with_int, -1, false},
    {"alarm_func", tell_int, -1, false},
    {"get_record_start_time", call_fill_buffer, -1, false},
    {"new_getframe_callback", call_sink, -1, false},
    {"resolutionChange", call_with_address, -1, false},
    {"autocut_recording", call_with_number_in_pointer, -1, false},
    {"OTA_monitor", call_with_number_in_pointer, -1, false},
    {"perform_curls_in_queue", call_with_number_in_pointer, -1, false},
    {"waitAndPlay", call_with_clip, -1, false},
    {"http_status_code_checker", call_header_sink, -1, false},
    {"result_write_callback", call_result_sink, -1, false},
    {"photo_write_callback", call_photo_sink, -1, false},
};

}  // namespace

const HandlerRow *find_handler(const std::string &name) {
    for (const HandlerRow &row : kHandlers) {
        if (name == row.name) return &row;
    }
    return nullptr;
}

const char *callback_name(int slot) {
    return kHandlers[slot].name;
}

}  // namespace desk
