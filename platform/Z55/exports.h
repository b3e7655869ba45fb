// The C boundary: every name that this executable exports. The cloud SDK finds them in the callback table or
// with dlsym. exports.list holds the same names for the linker; exports.cpp defines the variables.
//
// Conventions, unless a name says otherwise:
//  1. Threads. Functions may be called on any thread, several at a time, from the moment vq_ipca_init is
//  entered. None is
//     async-signal-safe but alarm_func.
//  2. Exceptions. Nothing is thrown into the caller. Memory that runs out for something small ends the
//  process with one
//     line on standard error; for a frame, a clip, a picture or a reply it is the function's failure.
//  3. Memory. What an argument points to stays the caller's and is not used after the return. What is handed
//  out is one
//     malloc block of the caller's.
//  4. Arguments. A null text reads as "", a null pointer to be filled gives the failure result; an overlong
//  text is cut to
//     the buffer that it goes into. Names are compared exactly.
//  5. Results. 0 is success, -1 failure; a camera's error code and libcurl's transfer results are passed on
//  where it is
//     said. Read handlers return the length of their text, and 5 with the text "ERROR" on failure.
//  6. Blocking. "R requests" means that each waits for its turn in the queue, then for at most 2 s to
//  connect, 30 s for a
//     camera that is lost midway and 10 minutes for one that says nothing; a slow one has no limit. The next
//     request starts up to 0.1 s later. "Waits for a key" has no limit: it ends with the main thread's next
//     login.
//  7. Variables keep plain types. Those marked atomic are written and read as whole words by several threads;
//  texts may
//     change while they are read, but for those marked "written once".
#ifndef Z55_EXPORTS_H
#define Z55_EXPORTS_H

#include <pthread.h>
#include <stddef.h>

#include <cstdint>

#include "sdk/ef.h"
#include "sdk/vq_ipca.h"

// The sink of photo_write_callback: `data` is a malloc block of count + 1 bytes, NUL-terminated at `count`;
// null when memory has run out.
struct photo_buffer {
    uint32_t count;
    char *data;
};

#pragma GCC visibility push(default)
extern "C" {

// --- Variables

// Returns a fresh malloc copy (30 bytes) of the session key, null while none is held. Never null itself.
// Written by the agent's threads as they start, always with the same function.
extern char *(*get_session_key)(void);

// The SDK's table; null until vq_ipca_init has returned. Atomic, written once.
extern mipc_api_table *mipc_api;

// What the login says: the camera's address (host or host:port) and the three settings. Written once, before
// the SDK starts.
extern char hostIP[16];
extern char device[30];
extern char stream[30];
extern char password[30];

// Of the generic requests (curl_GET, curl_POST, the clock's): the last cookie, "Session=" and key; the last
// POST's body; the reply to the last POST, malloc and the agent's, readable until the POST after the next is
// answered; libcurl's result of the last GET or POST (atomic), or the last step's of a snapshot.
extern char cookie[50];
extern char post_fields[350];
extern char *response;
extern int res;

extern int video_recording;  // 1 while a recording that was started here runs, else 0. Atomic
extern int gResolutionType;  // selected stream profile, 1 to 3. Atomic
extern int NTP_FAIL;    // 0 when the clock was set at start-up, else -1. Written once, before the threads
extern int ota_enable;  // 1 from the first upgrade on; the frame watchdog rests. Atomic
extern int get_frame_callback_flag;  // frames since the watchdog cleared it. Atomic

// The thread of its kind that was started last (it may have ended), and the attributes of all: detached,
// prepared before the SDK starts.
extern pthread_t resolutionChange_t;
extern pthread_t recVideo_t;
extern pthread_t audioback_thread;
extern pthread_attr_t resolutionChange_attr;
extern pthread_attr_t recVideo_attr;
extern pthread_attr_t audioback_attr;

extern unsigned char
    wav_header[44];         // a clip's header with both sizes 0: PCM, mono, 12000 Hz, 16 bit. Constant
extern int wav_header_len;  // 44. Constant
extern char g_dir[64];      // media folder on the SD card; "" before the first recording's end

// --- The SDK's callback table

// Reads a live state by its cloud name. `*value` becomes a zeroed 130-byte buffer with the text, on failure
// too; a null `value` is allowed. One request, or `df` for at most a minute, or the file of the firmware
// version.
int get_device_status(const char *name, char **value);

// Reads a setting by its cloud name, as above. One request, or the configuration file.
int get_device_param(const char *name, char **value);

// Changes a setting or triggers an action; `value` is a decimal number, a text for the thresholds. Returns 0
// when done or accepted, -1 when it failed or the name is unknown or `value` null, 5 when the camera's own
// setting lacks an element. `value_length` is only logged. Two requests, and another thread's change of the
// same group; "doOTA": up to 31 requests and, where the order fails, 10 minutes of `dd`; "sdformat": one
// request and the same; "manual_record": as the recording functions; the others none.
int set_device_param(const char *name, const char *value, int value_length);

// Takes a piece of talk-back sound: 16-bit mono PCM at 12000 Hz. Returns 0 when taken, -1 when memory or
// threads ran out or 32 clips are alive. Does not block.
int device_play_audio(talkback_frame *frame);

// Carries out a numbered command. Returns 0 whatever comes of it. Two requests at most; 45 starts a thread
// and returns.
int ptz_direction_control(int command, int param);

// Fills the record with a photo taken now (`mode` 0) or the newest thumbnail on the card. record->data is
// null or a malloc block of the caller's: it is replaced once the new picture is whole, and released then.
// Returns 0; -1 for a null record or a failed request; -99 for a failure of the card's files; 1 and others:
// the camera records or refuses. Waits for a key; three requests and 3 s for the photo.
int get_camera_snapshot(snapshot_record *record, int mode);

// Tells whether the cloud is connected (0) or lost (1); other values are ignored. Turns into
// send_cloud_status. Up to four commands of at most a minute each.
void notify_Z55_connection_status(int status);

// Starts a recording of so many seconds, 0 for one until it is stopped, cut into pieces. Returns 0; -10 when
// one runs (at once); -1 on a failed request; the camera's error code; the error of a thread that cannot be
// created. Three requests and 2 s, after another thread's start or stop.
int start_recording_video(long length_seconds);

// Ends the recording and the job it belongs to, and logs it. Returns 0; -1 when none runs (at once) or on a
// failed request; the camera's error code. Two requests and 5 s, after another thread's start or stop; waits
// for a key where none is held, the recording being over by then.
int stop_recording_video(void);

// --- Found by name

// Copies the value of the first line with `key` in the file `path` to `out`, however long it is (at most
// 1,021 characters and a NUL); leaves `out` alone where there is none. Returns 0, or 1 when the file cannot
// be read or an argument is null.
int read_conf_value(const char *key, char *out, const char *path);

// One login attempt; stores the key in the configuration. Returns 0 or -1. One request, past the queue and
// without a limit to connect but that for a lost camera (30 s).
int login(void);

// Replaces the process with the reboot tool. Returns only on failure: -1. Whatever the SDK passes is ignored.
int rebootOperation();

// Thread routine of a resolution change; the argument is only logged. Returns 0, -1 or -10 as a pointer.
// Waits for a key; ten requests and 9 s.
void *resolutionChange(void *address_of_param);

// Start and end of live video: the capture library's. Both return 1. The arguments are not used.
int c_request_video(int, int);
int c_end_video(int, int);

// Kept for the SDK: they do nothing and return 1 and 0.
int c_request_audio(int, int);
int e_get_param_str(int);

// The capture library's error handler. 0 is only logged; any other code reboots the device. Returns 0 where
// it returns.
int error_callback(int error_code);

// The frame sink: hands the frame, copied, to the SDK. `frame` and its data are the library's. Does not
// block.
void new_getframe_callback(captured_frame *frame);

// The SIGALRM handler: arms the next second. Async-signal-safe; harmless at any time.
void alarm_func(int);

// Thread routine of an upgrade's monitor; the argument is not used. Returns null when a download has failed,
// else never.
void *OTA_monitor(void *);

// Thread routine of a clip {data, used length}, both malloc blocks that it releases: plays it. Returns null.
// Waits for a key; two requests, 3 s, and the clips before it.
void *waitAndPlay(void *clip);

// Thread routine of a recording's cutting; the argument is the length in seconds. Returns null when the job
// is over.
void *autocut_recording(void *length);

// Writes the running recording's start as "%Y%m%d%H%M%S" and clears the rest of `size` bytes. Returns 0, or
// -1 when none runs or `size` is under 15. Does not block.
int get_record_start_time(char *buffer, int size);

// Thread routine of the queue's worker. Never returns. One at a time.
void *perform_curls_in_queue(void *);

// libcurl callbacks; each returns size * nmemb. The first stores an HTTP/1.1 status through `status` (int *);
// the second copies the piece's first 128 bytes over the 128 bytes of `buffer`; the third appends to a
// photo_buffer, and returns 0 and leaves null data when memory runs out or the photo passes 32 MiB.
size_t http_status_code_checker(char *line, size_t size, size_t nmemb, void *status);
size_t result_write_callback(char *chunk, size_t size, size_t nmemb, void *buffer);
size_t photo_write_callback(char *chunk, size_t size, size_t nmemb, void *photo);

}  // extern "C"
#pragma GCC visibility pop

#endif
