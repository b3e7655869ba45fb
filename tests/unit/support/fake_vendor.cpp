#include "fake_vendor.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <mutex>

namespace {

struct Result {
    int value = 0;
    std::function<void()> action = {};
};

struct State {
    std::mutex lock;
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

State &state() {
    static State &instance = *new State;
    return instance;
}

template <typename T>
T locked(T State::*member) {
    State &s = state();
    const std::lock_guard<std::mutex> lock(s.lock);
    return s.*member;
}

template <typename T>
void set_locked(T State::*member, T value) {
    State &s = state();
    const std::lock_guard<std::mutex> lock(s.lock);
    s.*member = std::move(value);
}

// Records the call and gives the result that the test wants.
int called(const std::string &function, const std::string &arguments = "") {
    Result result;
    {
        State &s = state();
        const std::lock_guard<std::mutex> lock(s.lock);
        s.calls.push_back(function + arguments);
        result = s.results[function];
    }
    if (result.action) result.action();
    return result.value;
}

int take_video(video_record *record) {
    State &s = state();
    const std::lock_guard<std::mutex> lock(s.lock);
    const char *data = reinterpret_cast<const char *>(record->data);
    s.video.push_back({*record, std::string(data, record->length)});
    std::free(record->data);
    return 0;
}

int take_audio(audio_record *record) {
    State &s = state();
    const std::lock_guard<std::mutex> lock(s.lock);
    const char *data = reinterpret_cast<const char *>(record->data);
    s.audio.push_back({*record, std::string(data, record->length)});
    std::free(record->data);
    return 0;
}

int take_alarm(alarm_record *record, mipc_api_table *table) {
    State &s = state();
    const std::lock_guard<std::mutex> lock(s.lock);
    s.alarms.push_back(*record);
    if (table != &s.table) s.alarms_name_the_table = false;
    return s.alarm_result;
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
    State &s = state();
    const std::lock_guard<std::mutex> lock(s.lock);
    s.calls.clear();
    s.results.clear();
    s.token.clear();
    s.table = mipc_api_table{};
    s.table.audio_frame = take_audio;
    s.table.video_frame = take_video;
    s.table.SendAlarmData = take_alarm;
    s.callbacks = nullptr;
    s.sink = nullptr;
    s.error_callback = nullptr;
    s.alarms.clear();
    s.alarms_name_the_table = true;
    s.alarm_result = 0;
    s.video.clear();
    s.audio.clear();
    __atomic_store_n(&request_vedio, 0, __ATOMIC_SEQ_CST);
}

Texts calls() {
    return locked(&State::calls);
}

void result(const std::string &function, int value, std::function<void()> action) {
    State &s = state();
    const std::lock_guard<std::mutex> lock(s.lock);
    s.results[function] = {value, std::move(action)};
}

void token(const std::string &text) {
    set_locked(&State::token, text);
}

mipc_api_table &table() {
    return state().table;
}

const device_callbacks *callbacks() {
    return locked(&State::callbacks);
}

void (*sink())(captured_frame *) {
    return locked(&State::sink);
}

int (*error_callback())(int) {
    return locked(&State::error_callback);
}

std::vector<alarm_record> alarms() {
    return locked(&State::alarms);
}

bool alarms_name_the_table() {
    return locked(&State::alarms_name_the_table);
}

void alarm_result(int value) {
    set_locked(&State::alarm_result, value);
}

std::vector<VideoFrame> video_frames() {
    return locked(&State::video);
}

std::vector<AudioFrame> audio_frames() {
    return locked(&State::audio);
}

}  // namespace fake_vendor

// --- The libraries' own names.

int request_vedio = 0;
pthread_attr_t thread_attr = prepared_attributes();

mipc_api_table *vq_ipca_init(const char *uuid, const char *interface_name,
                             const device_callbacks *callbacks) {
    set_locked(&State::callbacks, callbacks);
    called("vq_ipca_init",
           std::string("(") + (uuid != nullptr ? uuid : "(null)") + ", " + interface_name + ")");
    return &state().table;
}

void SetErrorCallback(int (*callback)(int error_code)) {
    set_locked(&State::error_callback, callback);
    called("SetErrorCallback");
}

int ExFramer_Capture_Init(void (*sink)(captured_frame *frame)) {
    set_locked(&State::sink, sink);
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
    const std::string text = locked(&State::token);
    const size_t length = std::min(text.size(), static_cast<size_t>(size) - 1);
    text.copy(token, length);
    token[length] = '\0';
    return result;
}

int soapGetToken(void) {
    return called("soapGetToken");
}
