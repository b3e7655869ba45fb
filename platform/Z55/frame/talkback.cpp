#include "talkback.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>

#include "../agent/session_key.h"
#include "../agent/utils/os.h"
#include "../agent/utils/reply_text.h"
#include "../exports.h"
#include "../shared.h"
#include "../z55cgi.h"
#include "amplify.h"

namespace {

constexpr uint32_t kHeaderSize = sizeof wav_header;
constexpr uint32_t kClipSize = 102400;         // bytes
constexpr uint32_t kFullLength = 72000;        // bytes from which on the next frame starts a new clip
constexpr unsigned long kClipTicks = 3000000;  // of clock(), after which the next frame starts a new clip
constexpr long kBytesPerSecond = 24000;
constexpr long kFillMilliseconds = 3000;
constexpr int kMostClips = 32;  // alive at once; a camera that takes no audio must not take all memory

// The clip that takes frames. Under talk_lock; held for memory operations only.
constinit std::mutex talk_lock;
constinit TalkClip *current_clip = nullptr;
constinit uint32_t last_sequence = 0;
constinit unsigned long clip_start = 0;  // clock() when the current clip was started
constinit int clips_alive = 0;

// Held across the request that switches the speaker on; serialises only the clips' threads.
constinit std::mutex speaker_lock;
constinit bool speaker_enabled = false;

// Held by the clip that is playing, across its request and its playing time. Nothing prepares it, so nothing
// can fail to.
constinit std::mutex wav_turn;

void free_clip(TalkClip *clip) {
    if (clip == nullptr) return;
    std::free(clip->data);
    std::free(clip);
}

TalkClip *new_clip() {
    TalkClip *clip = static_cast<TalkClip *>(std::calloc(1, sizeof(TalkClip)));
    if (clip == nullptr) return nullptr;
    clip->data = static_cast<uint8_t *>(std::calloc(1, kClipSize));
    if (clip->data == nullptr) {
        free_clip(clip);
        return nullptr;
    }
    std::memcpy(clip->data, wav_header, kHeaderSize);
    clip->length = kHeaderSize;
    return clip;
}

bool goes_on(const talkback_frame &frame, unsigned long now) {
    return frame.sequence != 0 && frame.sequence >= last_sequence && current_clip != nullptr &&
           now - clip_start < kClipTicks && current_clip->length < kFullLength;
}

// The thread of a clip that counts among the living ones.
void *run_clip(void *clip) {
    waitAndPlay(clip);
    const std::lock_guard<std::mutex> lock(talk_lock);
    clips_alive--;
    return nullptr;
}

// Makes a new clip the current one and starts its thread. The clip before it belongs to its own thread
// already.
bool start_clip(unsigned long now) {
    current_clip = nullptr;
    if (clips_alive == kMostClips) return false;
    TalkClip *clip = new_clip();
    if (clip == nullptr) {
        std::puts("not enough memory for a clip");
        return false;
    }
    pthread_t thread{};
    if (const int error = pthread_create(&thread, &audioback_attr, run_clip, clip)) {
        std::printf("no thread for a clip: %s\n", std::strerror(error));
        free_clip(clip);
        return false;
    }
    store_shared(audioback_thread, thread);
    clips_alive++;
    current_clip = clip;
    clip_start = now;
    return true;
}

void append(const talkback_frame &frame) {
    const uint32_t room = kClipSize - current_clip->length;
    const uint32_t length = frame.data != nullptr ? std::min(frame.length, room) : 0;
    if (length > 0) std::memcpy(current_clip->data + current_clip->length, frame.data, length);
    current_clip->length += length;
    last_sequence = frame.sequence;
}

void enable_speaker(const std::string &key) {
    const std::lock_guard<std::mutex> lock(speaker_lock);
    if (speaker_enabled) return;
    std::string reply;
    (void)easyRemoteControl(key, "AUDIO_ON", reply);  // the reply tells
    speaker_enabled = reply.find("AUDIO_ON") != std::string::npos;
    if (!speaker_enabled) std::printf("AUDIO_ON ErrorCode: %d\n", error_code_number(reply));
}

// Whether there is anything to play in a clip that may still be taking frames.
bool playable(const TalkClip *clip) {
    const std::lock_guard<std::mutex> lock(talk_lock);
    return clip != nullptr && clip->data != nullptr && clip->length >= kHeaderSize;
}

// From here on the clip takes no more frames.
void close_clip(const TalkClip *clip) {
    const std::lock_guard<std::mutex> lock(talk_lock);
    if (current_clip == clip) current_clip = nullptr;
}

void store_le32(uint8_t *at, uint32_t value) {
    for (int i = 0; i < 4; i++) at[i] = static_cast<uint8_t>(value >> (8 * i));
}

// Both sizes are 8 more than the format's rule; the camera takes them so.
void finish_clip(TalkClip &clip) {
    store_le32(clip.data + 4, clip.length);
    store_le32(clip.data + 40, clip.length - 36);
    void *samples = clip.data + kHeaderSize;  // even, as malloc's block and the header are
    amplify(static_cast<int16_t *>(samples), (clip.length - kHeaderSize) / 2);
}

void play(const TalkClip &clip, const std::string &key) {
    const std::lock_guard<std::mutex> turn(wav_turn);
    std::string reply;
    (void)mobileAudio(key, clip.data, clip.length, reply);  // a clip that is lost is over
    sleep_milliseconds(1000L * static_cast<long>(clip.length - kHeaderSize) / kBytesPerSecond);
}

}  // namespace

int device_play_audio(talkback_frame *frame) {
    if (frame == nullptr) return -1;
    const std::lock_guard<std::mutex> lock(talk_lock);
    const unsigned long now =
        static_cast<unsigned long>(std::clock());  // under the lock: it must not run backwards
    if (!goes_on(*frame, now) && !start_clip(now)) return -1;
    append(*frame);
    return 0;
}

void *waitAndPlay(void *argument) {
    TalkClip *clip = static_cast<TalkClip *>(argument);
    if (!playable(clip)) {
        free_clip(clip);
        return nullptr;
    }
    const std::string key = wait_for_session_key();
    enable_speaker(key);
    sleep_milliseconds(kFillMilliseconds);
    close_clip(clip);
    finish_clip(*clip);
    play(*clip, key);
    free_clip(clip);
    return nullptr;
}
