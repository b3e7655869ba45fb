// The C boundary: every name that this executable exports. The cloud SDK finds them in the callback table or
// with dlsym, on threads of its own and several at a time. Nothing here throws, and a null or overlong text
// gives the function's own failure result. exports.list holds the same names for the linker.
#ifndef Z55_EXPORTS_H
#define Z55_EXPORTS_H

#include <pthread.h>
#include <stddef.h>

#include "sdk/ef.h"
#include "sdk/vq_ipca.h"

// The sink of photo_write_callback: `data` is a malloc block of count + 1 bytes, NUL-terminated at `count`.
struct photo_buffer {
    uint32_t count;
    char *data;
};

#pragma GCC visibility push(default)
extern "C" {

// --- Variables. The SDK reads them as plain types; the agent touches the shared ones through shared.h.

extern char *(*get_session_key)(void);  // fresh malloc copy of the session key, null while none is held
extern mipc_api_table *mipc_api;        // the SDK's table, null until vq_ipca_init has returned

extern char hostIP[16];  // camera address, host or host:port; the four login globals are written once, before
extern char device[30];  // the SDK starts, by the cloud thread
extern char stream[30];
extern char password[30];

extern char cookie[50];        // "Session=" and key of the last generic request
extern char post_fields[350];  // body of the last generic POST
extern char *response;         // reply to the last generic POST, malloc; the one before stays readable
extern int res;                // libcurl result of the last generic request

extern int video_recording;          // 1 while a recording started here runs
extern int gResolutionType;          // stream profile 1..3
extern int NTP_FAIL;                 // 0 when the clock was set at start-up, else -1
extern int ota_enable;               // 1 from the first upgrade on
extern int get_frame_callback_flag;  // counts captured frames; cleared by the watchdog

extern pthread_t resolutionChange_t, recVideo_t, audioback_thread;
extern pthread_attr_t resolutionChange_attr, recVideo_attr,
    audioback_attr;  // detached, prepared before the SDK starts

extern unsigned char wav_header[44];
extern int wav_header_len;
extern char g_dir[64];  // media folder on the SD card

// --- Functions of the SDK's callback table.

int get_device_status(const char *name, char **value);
int get_device_param(const char *name, char **value);
int set_device_param(const char *name, const char *value, int value_length);
int device_play_audio(talkback_frame *frame);
int ptz_direction_control(int command, int param);
int get_camera_snapshot(snapshot_record *record, int mode);
void notify_Z55_connection_status(int status);
int start_recording_video(long length_seconds);
int stop_recording_video(void);

// --- Functions that are found by name.

int read_conf_value(const char *key, char *out, const char *path);
int login(void);
int rebootOperation();
void *resolutionChange(void *address_of_param);
int c_request_video(int, int);
int c_end_video(int, int);
int c_request_audio(int, int);
int e_get_param_str(int);
int error_callback(int error_code);
void new_getframe_callback(captured_frame *frame);
void alarm_func(int);
void *OTA_monitor(void *);
void *waitAndPlay(void *clip);
void *autocut_recording(void *length);
int get_record_start_time(char *buffer, int size);
void *perform_curls_in_queue(void *);
size_t http_status_code_checker(char *line, size_t size, size_t nmemb, void *status);
size_t result_write_callback(char *chunk, size_t size, size_t nmemb, void *buffer);
size_t photo_write_callback(char *chunk, size_t size, size_t nmemb, void *photo);

}  // extern "C"
#pragma GCC visibility pop

#endif
