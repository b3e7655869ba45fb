// The binary contract of the three vendor libraries as their stand-ins see it: records, tables, entries. The
// agent has headers of its own; the two agree by layout alone, so sizes and offsets of the 32-bit target are
// asserted here.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>

#define DESK_EXPORT extern "C" __attribute__((visibility("default")))

struct alarm_record {
    int32_t index;
    char name[32];
    int32_t status;
};

struct video_record {
    int32_t word0, word1;
    uint8_t byte8;
    int32_t word3, key_frame;
    uint32_t counter, timestamp, length;
    uint8_t *data;
    int32_t word9, word10;
};

struct audio_record {
    int32_t word0;
    uint32_t sequence, counter, timestamp;
    int32_t word4;
    uint32_t length;
    uint8_t *data;
    int32_t word7, word8;
};

struct talkback_frame {
    int32_t word0;
    uint32_t sequence;
    int32_t word2, word3, word4;
    uint32_t length;
    uint8_t *data;
};

struct snapshot_record {
    int32_t word0, kind;
    uint8_t byte8;
    int32_t word3, word4, word5, capture_time;
    uint32_t length;
    uint8_t *data;
};

struct photo_buffer {
    uint32_t count;
    char *data;
};

struct captured_frame {
    uint8_t *data;
    int32_t field2, field3, kind;
    uint32_t timestamp, length;
};

static_assert(sizeof(alarm_record) == 40);
#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(video_record) == 44 && offsetof(video_record, data) == 32);
static_assert(sizeof(audio_record) == 36 && offsetof(audio_record, data) == 24);
static_assert(sizeof(talkback_frame) == 28 && offsetof(talkback_frame, data) == 24);
static_assert(sizeof(snapshot_record) == 36 && offsetof(snapshot_record, data) == 32);
static_assert(sizeof(captured_frame) == 24 && offsetof(captured_frame, length) == 20);
#endif

using AnyFunction = void (*)();  // cast to its own signature when it is called

constexpr int kAudioSlot = 0, kVideoSlot = 7, kAlarmSlot = 14, kTableSlots = 16;
struct mipc_api_table {
    AnyFunction slot[kTableSlots];
};

// The nine handlers in the order of the table.
constexpr int kCallbackCount = 9;
struct device_callbacks {
    AnyFunction handler[kCallbackCount];
};

// How libvq_ipca.so passes a request of its JSON interface to the two other libraries, which it finds by
// these names when they are loaded: answers the HTTP status and, in *reply, a JSON text that the caller
// frees.
using DeskRequestFunction = int (*)(const char *method, const char *target, const char *body, char **reply);
