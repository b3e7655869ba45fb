// A stand-in for the agent: exports its handlers with answers that are easy to check, hands frames, alarms
// and tokens to the libraries on demand, and ends with status 0 when its standard input does.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "contract.h"

#define EXPORT DESK_EXPORT

extern "C" {
extern int request_vedio;
extern pthread_attr_t thread_attr;
mipc_api_table *vq_ipca_init(const char *uuid, const char *interface_name, const device_callbacks *callbacks);
void SetErrorCallback(int (*callback)(int));
int ExFramer_Capture_Init(void (*sink)(captured_frame *));
int ExFramer_Capture_Start();
int ExFramer_Capture_Stop();
int send_cloud_status(int code);
int set_video_bitrate(int kilobits);
int remove_token();
int readTokenFromFile(char *token, int size);
int soapGetToken();
}

EXPORT int video_recording, NTP_FAIL;
EXPORT void *ready, *capture_refused;  // seen from outside as true or false
EXPORT unsigned char wav_header[44];
EXPORT char hostIP[16], cookie[50];
EXPORT char *response;
EXPORT mipc_api_table *mipc_api;
EXPORT char *(*get_session_key)(void);
int video_recording = 0, NTP_FAIL = -1;
void *ready = nullptr, *capture_refused = nullptr;
unsigned char wav_header[44] = {'R', 'I', 'F', 'F', 0xff};
char hostIP[16] = "127.0.0.1:80800", cookie[50] = "Session=17";
char *response = nullptr;
mipc_api_table *mipc_api = nullptr;
char *(*get_session_key)(void) = nullptr;

namespace {

int last_error = 0, played = 0;
uint32_t last_sequence = 0;

char *answer(const std::string &text) {
    auto *buffer = static_cast<char *>(calloc(1, 130));
    snprintf(buffer, 130, "%s", text.c_str());
    return buffer;
}

AnyFunction sdk_function(int slot) {
    const mipc_api_table *table = __atomic_load_n(&mipc_api, __ATOMIC_SEQ_CST);
    return table == nullptr ? nullptr : table->slot[slot];
}

int send_alarm(int status) {
    alarm_record record{1, "alarm", status};
    const auto send = reinterpret_cast<int (*)(alarm_record *, mipc_api_table *)>(sdk_function(kAlarmSlot));
    return send == nullptr ? -2 : send(&record, __atomic_load_n(&mipc_api, __ATOMIC_SEQ_CST));
}

// What the test asks of the agent beside its handlers, by parameter name.
int obey(const std::string &name, const char *value, int length) {
    const int number = value == nullptr ? 0 : atoi(value);
    if (name == "alarm") return send_alarm(number);
    if (name == "cloud_status") return send_cloud_status(number);
    if (name == "bitrate") return set_video_bitrate(number);
    if (name == "remove_token") return remove_token();
    if (name == "soap") return soapGetToken();
    return length;
}

int count_in_frame(const captured_frame &frame) {
    return frame.kind == 1 && frame.length > 4 && (frame.data[4] & 15) == 7;
}

uint8_t *copy_of(const captured_frame &frame, size_t room_before) {
    auto *copy = static_cast<uint8_t *>(malloc(frame.length + room_before));
    if (frame.length != 0) memcpy(copy + room_before, frame.data, frame.length);
    return copy;
}

// AAC-LC, 48 kHz, stereo; a player needs it before each frame.
void put_adts_header(uint8_t *to, uint32_t length) {
    const uint8_t header[] = {0xff,
                              0xf1,
                              0x4c,
                              static_cast<uint8_t>(0x80 | (length >> 11)),
                              static_cast<uint8_t>(length >> 3),
                              static_cast<uint8_t>(length << 5 | 0x1f),
                              0xfc};
    memcpy(to, header, sizeof header);
}

}  // namespace

EXPORT int get_device_status(const char *name, char **value) {
    if (value == nullptr) return -3;
    *value = name == nullptr ? answer("ERROR") : answer("status of " + std::string(name));
    return static_cast<int>(strlen(*value));
}

EXPORT int get_device_param(const char *name, char **value) {
    char token[8];
    const std::string asked = name == nullptr ? "" : name;
    if (asked == "token") {
        *value = answer(readTokenFromFile(token, sizeof token) == 0 ? token : "none");
    } else if (asked == "latin") {
        *value = answer("caf\xe9");
    } else if (asked == "played") {
        *value = answer(std::to_string(played) + " " + std::to_string(last_sequence));
    } else {
        *value = answer(asked.empty() ? "ERROR" : std::to_string(asked.size()));
    }
    return static_cast<int>(strlen(*value));
}

EXPORT int set_device_param(const char *name, const char *value, int length) {
    return name == nullptr ? 5 : obey(name, value, length);
}

EXPORT int device_play_audio(talkback_frame *frame) {
    if (frame == nullptr) return -1;
    for (uint32_t i = 0; i < frame->length; i++) played += frame->data[i];
    last_sequence = frame->sequence;
    return 0;
}

EXPORT int ptz_direction_control(int command, int param) {
    return command * 100 + param;
}

EXPORT int get_camera_snapshot(snapshot_record *record, int mode) {
    if (record == nullptr) return -1;
    if (mode == 9) return -99;
    record->word0 = 0;
    record->kind = 11;
    record->length = 3;
    record->data = static_cast<uint8_t *>(realloc(record->data, 3));
    memcpy(record->data, "jpg", 3);
    return 0;
}

EXPORT void notify_Z55_connection_status(int status) {
    send_cloud_status(status + 1);
}

EXPORT int start_recording_video(long seconds) {
    __atomic_store_n(&video_recording, 1, __ATOMIC_SEQ_CST);
    return static_cast<int>(seconds);
}

EXPORT int stop_recording_video() {
    return __atomic_exchange_n(&video_recording, 0, __ATOMIC_SEQ_CST) == 1 ? 0 : -1;
}

EXPORT int login() {
    return 0;
}

EXPORT int rebootOperation() {
    execl("/bin/true", "reboot", nullptr);
    return -1;
}

EXPORT int read_conf_value(const char *key, char *out, const char *path) {
    if (strcmp(path, "/missing") == 0) return 1;
    if (strcmp(key, "absent") != 0) strcpy(out, key);
    return 0;
}

EXPORT int c_request_video(int, int) {
    ExFramer_Capture_Start();
    return 1;
}

EXPORT int c_end_video(int, int) {
    ExFramer_Capture_Stop();
    return 1;
}

EXPORT int c_request_audio(int, int) {
    return 1;
}

EXPORT int e_get_param_str(int) {
    return 0;
}

EXPORT int error_callback(int code) {
    __atomic_store_n(&last_error, code, __ATOMIC_SEQ_CST);
    return code + 1;
}

EXPORT void alarm_func(int signal_number) {
    __atomic_store_n(&NTP_FAIL, signal_number, __ATOMIC_SEQ_CST);
}

EXPORT int get_record_start_time(char *buffer, int size) {
    if (size < 15) return -1;
    strcpy(buffer, "20250102030405");
    return 0;
}

EXPORT void new_getframe_callback(captured_frame *frame) {
    static uint32_t counter = 0;
    const auto video = reinterpret_cast<int (*)(video_record *)>(sdk_function(kVideoSlot));
    const auto audio = reinterpret_cast<int (*)(audio_record *)>(sdk_function(kAudioSlot));
    counter++;
    if (frame->kind == 1 && video != nullptr) {
        video_record record{};
        record.word0 = 2;
        record.word1 = 4;
        record.key_frame = count_in_frame(*frame);
        record.counter = counter;
        record.timestamp = frame->timestamp;
        record.length = frame->length;
        record.data = frame->field2 == 77 ? nullptr : copy_of(*frame, 0);
        video(&record);
    }
    if (frame->kind == 2 && audio != nullptr) {
        audio_record record{};
        record.sequence = counter;
        record.counter = 3 * counter;
        record.timestamp = frame->timestamp;
        record.length = frame->length + 7;
        record.data = copy_of(*frame, 7);
        put_adts_header(record.data, record.length);
        audio(&record);
    }
}

EXPORT void *resolutionChange(void *address) {
    return reinterpret_cast<void *>(static_cast<intptr_t>(*static_cast<int *>(address) * 2));
}

EXPORT void *autocut_recording(void *length) {
    return length;
}

EXPORT void *OTA_monitor(void *) {
    while (__atomic_load_n(&video_recording, __ATOMIC_SEQ_CST) == 0) usleep(1000);
    return nullptr;
}

EXPORT void *waitAndPlay(void *holder) {
    struct Clip {
        char *data;
        int used;
    };
    auto *given = static_cast<Clip *>(holder);
    const intptr_t result = given->used + given->data[0];
    free(given->data);
    free(given);
    return reinterpret_cast<void *>(result);
}

EXPORT size_t http_status_code_checker(char *line, size_t size, size_t nmemb, void *status) {
    *static_cast<int *>(status) = atoi(std::string(line, size * nmemb).c_str() + 9);
    return size * nmemb;
}

EXPORT size_t result_write_callback(char *chunk, size_t size, size_t nmemb, void *buffer) {
    memcpy(buffer, chunk, size * nmemb);
    return size * nmemb;
}

EXPORT size_t photo_write_callback(char *chunk, size_t size, size_t nmemb, void *sink) {
    auto *photo = static_cast<photo_buffer *>(sink);
    photo->data = static_cast<char *>(realloc(photo->data, photo->count + size * nmemb + 1));
    memcpy(photo->data + photo->count, chunk, size * nmemb);
    photo->count += static_cast<uint32_t>(size * nmemb);
    return size * nmemb;
}

int main() {
    static const device_callbacks callbacks = {{
        reinterpret_cast<AnyFunction>(get_device_status),
        reinterpret_cast<AnyFunction>(get_device_param),
        reinterpret_cast<AnyFunction>(set_device_param),
        reinterpret_cast<AnyFunction>(device_play_audio),
        reinterpret_cast<AnyFunction>(ptz_direction_control),
        reinterpret_cast<AnyFunction>(get_camera_snapshot),
        reinterpret_cast<AnyFunction>(notify_Z55_connection_status),
        reinterpret_cast<AnyFunction>(start_recording_video),
        reinterpret_cast<AnyFunction>(stop_recording_video),
    }};
    get_session_key = [] { return strdup("4711"); };
    size_t stack = 0;
    pthread_attr_getstacksize(&thread_attr, &stack);
    if (stack != 256 * 1024 || request_vedio != 0) return 3;
    __atomic_store_n(&mipc_api, vq_ipca_init("UUID-1", "wlan0", &callbacks), __ATOMIC_SEQ_CST);
    SetErrorCallback(error_callback);
    void *const yes = &ready;
    if (ExFramer_Capture_Init(new_getframe_callback) != 0) capture_refused = yes;
    __atomic_store_n(&ready, yes, __ATOMIC_SEQ_CST);
    char byte;
    while (read(0, &byte, 1) > 0) {
    }
    return 0;
}
