// The cloud camera SDK, libvq_ipca.so: a closed library; this header is the agent's half of its binary
// contract. Records are plain C in natural alignment; the sizes asserted below are those of the 32-bit
// target.
#ifndef Z55_SDK_VQ_IPCA_H
#define Z55_SDK_VQ_IPCA_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>

#pragma GCC visibility push(default)
extern "C" {

struct alarm_record {
    int32_t index;
    char name[32];  // NUL-terminated
    int32_t status;
};

struct video_record {
    int32_t word0, word1;
    uint8_t byte8;
    int32_t word3, key_frame;
    uint32_t counter, timestamp, length;
    uint8_t *data;  // one malloc block, the SDK's from the call on
    int32_t word9, word10;
};

struct audio_record {
    int32_t word0;
    uint32_t sequence, counter, timestamp;
    int32_t word4;
    uint32_t length;
    uint8_t *data;  // one malloc block, the SDK's from the call on
    int32_t word7, word8;
};

struct talkback_frame {
    int32_t word0;
    uint32_t sequence;
    int32_t word2, word3, word4;
    uint32_t length;  // bytes
    uint8_t *data;    // the SDK's
};

struct snapshot_record {
    int32_t word0;
    int32_t kind;
    uint8_t byte8;
    int32_t word3, word4, word5;
    int32_t capture_time;  // seconds since the epoch
    uint32_t length;       // bytes
    uint8_t *data;         // grown with realloc, released by the SDK
};

struct device_callbacks {
    int (*get_device_status)(const char *name, char **value);
    int (*get_device_param)(const char *name, char **value);
    int (*set_device_param)(const char *name, const char *value, int value_length);
    int (*device_play_audio)(talkback_frame *frame);
    int (*ptz_direction_control)(int command, int param);
    int (*get_camera_snapshot)(snapshot_record *record, int mode);
    void (*notify_Z55_connection_status)(int status);
    int (*start_recording_video)(long length_seconds);
    int (*stop_recording_video)(void);
};

// The SDK's function table: at least 15 slots, any of which may be null.
struct mipc_api_table {
    int (*audio_frame)(audio_record *);  // slot 0
    void *slots_1_to_6[6];
    int (*video_frame)(video_record *);  // slot 7
    void *slots_8_to_13[6];
    int (*SendAlarmData)(alarm_record *, mipc_api_table *);  // slot 14, synchronous
};

extern int request_vedio;           // non-zero while the cloud wants live video; written by the SDK's threads
extern pthread_attr_t thread_attr;  // attributes for the job-queue worker, initialised when the SDK loads

// Starts the SDK. It keeps the pointer to `callbacks` and may call them, on threads of its own and several at
// a time, before this returns. The table is the SDK's.
mipc_api_table *vq_ipca_init(const char *uuid, const char *interface_name, const device_callbacks *callbacks);

}  // extern "C"
#pragma GCC visibility pop

static_assert(sizeof(alarm_record) == 40 && offsetof(alarm_record, status) == 36);
static_assert(offsetof(mipc_api_table, video_frame) == 7 * sizeof(void *));
static_assert(offsetof(mipc_api_table, SendAlarmData) == 14 * sizeof(void *));

#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(video_record) == 44 && offsetof(video_record, key_frame) == 16);
static_assert(offsetof(video_record, length) == 28 && offsetof(video_record, data) == 32);
static_assert(sizeof(audio_record) == 36 && offsetof(audio_record, length) == 20);
static_assert(offsetof(audio_record, data) == 24);
static_assert(sizeof(talkback_frame) == 28 && offsetof(talkback_frame, data) == 24);
static_assert(sizeof(snapshot_record) == 36 && offsetof(snapshot_record, capture_time) == 24);
static_assert(offsetof(snapshot_record, data) == 32);
static_assert(sizeof(device_callbacks) == 36);
#endif

#endif
