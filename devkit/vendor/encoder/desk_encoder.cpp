// desk_encoder PROFILE: encodes a moving test picture and a tone live and writes the frames to standard
// output as protocol.h says, until nobody reads them any more (the broken pipe ends the program).
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "encoders.h"
#include "protocol.h"

namespace {

int64_t now_us(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

void sleep_until_us(int64_t deadline) {
    const timespec until{static_cast<time_t>(deadline / 1'000'000),
                         static_cast<long>(deadline % 1'000'000 * 1000)};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
}

void write_all(const void *from, size_t length) {
    const auto *at = static_cast<const uint8_t *>(from);
    while (length != 0) {
        const ssize_t n = write(STDOUT_FILENO, at, length);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) exit(0);
        at += n;
        length -= static_cast<size_t>(n);
    }
}

void write_frame(uint32_t kind, int64_t time_us, const uint8_t *data, uint32_t length) {
    const EncoderFrameHeader header{kind, static_cast<uint32_t>(time_us), length};
    write_all(&header, sizeof header);
    write_all(data, length);
}

}  // namespace

int main(int argc, char **argv) {
    const StreamProfile *profile = argc == 2 ? find_profile(argv[1]) : nullptr;
    if (profile == nullptr) {
        fprintf(stderr, "usage: desk_encoder RTP_H264_WQVGA|RTP_H264_WVGA|RTP_H264_HD\n");
        return 2;
    }
    MediaEncoder video = open_video(*profile), audio = open_audio();
    const int64_t start = now_us(CLOCK_MONOTONIC);
    for (;;) {
        const int64_t video_due = start + int64_t{video.number} * 1'000'000 / kVideoFps;
        const int64_t audio_due = start + int64_t{audio.number} * kSamplesPerFrame * 1'000'000 / kAudioRate;
        const int64_t due = video_due < audio_due ? video_due : audio_due;
        sleep_until_us(due);
        const uint32_t kind = video_due < audio_due ? 1 : 2;
        const auto take = [&](const uint8_t *data, uint32_t length) { write_frame(kind, due, data, length); };
        if (kind == 1) {
            encode_picture(video, now_us(CLOCK_REALTIME) / 1000, take);
        } else {
            encode_sound(audio, take);
        }
    }
}
