#include "fake_vendor.h"

#include <algorithm>
#include <cstdlib>
#include <map>

#include "locked_state.h"

namespace {

struct Result {
    int value = 0;
    std::function<void()> action = {};
};

struct State {
    Texts calls;
    std::map<std::string, Result> results;
    std::string token;
    mipc_api_table table{};
    const device_callbacks *callbacks = nullptr;
    void (*sink)(captured_frame *) = nullptr;
    int (*error_callback)(int) = nullptr;
    std::vector<alarm_record> alarms;
    bool alarms_name_the_table = true;
    int alarm_result = 0;
    std::vector<fake_vendor::VideoFrame> video;
    std::vector<fake_vendor::AudioFrame> audio;
};

LockedState<State> &state() {
    static LockedState<State> instance;
    return instance;
}

// Records the call and gives the result that the test wants.
int called(const std::string &function, const std::string &arguments = "") {
    const Result result = state().with([&](State &s) {
        s.calls.push_back(function + arguments);
        return s.results[function];
    });
    if (result.action) result.action();
    return result.value;
}

// Keeps the record and a copy of its data, which it frees.
template <typename Frame, typename Record>
int take_frame(std::vector<Frame> State::*frames, Record *record) {
    const std::string data(reinterpret_cast<const char *>(record->data), record->length);
    std::free(record->data);
    state().with([&](State &s) { (s.*frames).push_back({*record, data}); });
    return 0;
}

int take_video(video_record *record) {
    return take_frame(&State::video, record);
}

int take_audio(audio_record *record) {
    return take_frame(&State::audio, record);
}

int take_alarm(alarm_record *record, mipc_api_table *table) {
    return state().with([=](State &s) {
        s.alarms.push_back(*record);
        if (table != &s.table) s.alarms_name_the_table = false;
        return s.alarm_result;
    });
}

pthread_attr_t prepared_attributes() {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, fake_vendor::kWorkerStack);
    return attributes;
}

}  // namespace

namespace fake_vendor {

void reset() {
    state().reset();
    mipc_api_table &slots = table();
    slots.audio_frame = take_audio;
    slots.video_frame = take_video;
    slots.SendAlarmData = take_alarm;
    __atomic_store_n(&request_vedio, 0, __ATOMIC_SEQ_CST);
}

Texts calls() {
    return state().get(&State::calls);
}

void result(const std::string &function, int value, std::function<void()> action) {
    state().with([&](State &s) { s.results[function] = {value, std::move(action)}; });
}

void token(const std::string &text) {
    state().set(&State::token, text);
}

mipc_api_table &table() {
    return state().with([](State &s) -> mipc_api_table & { return s.table; });
}

const device_callbacks *callbacks() {
    return state().get(&State::callbacks);
}

void (*sink())(captured_frame *) {
    return state().get(&State::sink);
}

int (*error_callback())(int) {
    return state().get(&State::error_callback);
}

std::vector<alarm_record> alarms() {
    return state().get(&State::alarms);
}

bool alarms_name_the_table() {
    return state().get(&State::alarms_name_the_table);
}

void alarm_result(int value) {
    state().set(&State::alarm_result, value);
}

std::vector<VideoFrame> video_frames() {
    return state().get(&State::video);
}

std::vector<AudioFrame> audio_frames() {
    return state().get(&State::audio);
}

}  // namespace fake_vendor

// --- The libraries' own names.

int request_vedio = 0;
pthread_attr_t thread_attr = prepared_attributes();

mipc_api_table *vq_ipca_init(const char *uuid, const char *interface_name,
                             const device_callbacks *callbacks) {
    state().set(&State::callbacks, callbacks);
    called("vq_ipca_init",
           std::string("(") + (uuid != nullptr ? uuid : "(null)") + ", " + interface_name + ")");
    return &fake_vendor::table();
}

void SetErrorCallback(int (*callback)(int error_code)) {
    state().set(&State::error_callback, callback);
    called("SetErrorCallback");
}

int ExFramer_Capture_Init(void (*sink)(captured_frame *frame)) {
    state().set(&State::sink, sink);
    return called("ExFramer_Capture_Init");
}

int ExFramer_Capture_Start(void) {
    return called("ExFramer_Capture_Start");
}

int ExFramer_Capture_Stop(void) {
    return called("ExFramer_Capture_Stop");
}

int send_cloud_status(int code) {
    return called("send_cloud_status", "(" + std::to_string(code) + ")");
}

int set_video_bitrate(int kilobits) {
    return called("set_video_bitrate", "(" + std::to_string(kilobits) + ")");
}

int remove_token(void) {
    return called("remove_token");
}

int readTokenFromFile(char *token, int size) {
    const int result = called("readTokenFromFile");
    if (result != 0 || size <= 0) return result;
    const std::string text = state().get(&State::token);
    // A token that fills the buffer comes without an end.
    const size_t length = text.copy(token, static_cast<size_t>(size));
    if (length < static_cast<size_t>(size)) token[length] = '\0';
    return result;
}

int soapGetToken(void) {
    return called("soapGetToken");
}
