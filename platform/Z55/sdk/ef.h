// The frame-capture library, libef.so: the agent's half of its binary contract.
#ifndef Z55_SDK_EF_H
#define Z55_SDK_EF_H

#include <stddef.h>
#include <stdint.h>

#pragma GCC visibility push(default)
extern "C" {

struct captured_frame {
    uint8_t *data;  // valid during the call only
    int32_t field2, field3;
    int32_t kind;  // 1 video (H.264, Annex B), 2 audio (raw AAC)
    uint32_t timestamp;
    uint32_t length;  // bytes
};

void SetErrorCallback(int (*callback)(int error_code));
// 0 on success; the sink runs on the library's thread.
int ExFramer_Capture_Init(void (*sink)(captured_frame *frame));
int ExFramer_Capture_Start(void);
int ExFramer_Capture_Stop(void);

}  // extern "C"
#pragma GCC visibility pop

#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(captured_frame) == 24 && offsetof(captured_frame, kind) == 12);
static_assert(offsetof(captured_frame, length) == 20);
#endif

#endif
