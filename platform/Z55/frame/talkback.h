// Talk-back: collects the remote user's voice into WAV clips and plays each on the camera from a thread of
// its own, one at a time. The handlers are in exports.h: device_play_audio (the SDK's delivery thread),
// waitAndPlay (a clip's thread).
#ifndef Z55_FRAME_TALKBACK_H
#define Z55_FRAME_TALKBACK_H

#include <cstdint>

// One clip: a WAV file in memory. Owned by its waitAndPlay thread, which frees it.
struct TalkClip {
    uint8_t *data;    // kClipSize bytes, malloc; begins with wav_header
    uint32_t length;  // bytes used, the header included
};

#endif
