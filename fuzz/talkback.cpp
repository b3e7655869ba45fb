// Talk-back: steps of a kind, a sequence number, a time and sound; then the camera's answers. A clip's thread
// runs when a step says so, or at the end.
#include "frame/talkback.h"

#include <algorithm>
#include <cstring>
#include <deque>

#include "exports.h"
#include "support/threads.h"
#include "support/wire.h"

namespace {

constexpr size_t kHeader = 44, kFull = 72000, kClip = 102400;
constexpr uint32_t kTicks = 3000000;
constexpr size_t kMostClips = 32;

// The clips as they should be: the sound of those that wait for their threads, the last one open or not.
std::deque<std::string> clips;
bool open_clip = false;
uint32_t last_sequence = 0;
unsigned long started = 0, now = 0;  // of clock(), as wide as the product's

int reference_play(uint32_t sequence, const std::string &sound, bool refused) {
    const bool goes_on = open_clip && sequence != 0 && sequence >= last_sequence && now - started < kTicks &&
                         kHeader + clips.back().size() < kFull;
    if (!goes_on) {
        open_clip = false;
        if (clips.size() == kMostClips || refused) return -1;
        clips.emplace_back();
        open_clip = true;
        started = now;
    }
    clips.back() += sound.substr(0, kClip - kHeader - clips.back().size());
    last_sequence = sequence;
    return 0;
}

std::string number_text(size_t number) {
    std::string text;
    for (int i = 0; i < 4; i++) text += static_cast<char>(number >> (8 * i) & 0xFF);
    return text;
}

// The format's header with sizes 8 more than its rule, and each sample half as loud again.
std::string reference_clip(std::string sound) {
    for (size_t i = 0; i + 1 < sound.size(); i += 2) {
        int16_t sample = 0;
        std::memcpy(&sample, sound.data() + i, 2);
        sample = static_cast<int16_t>(sample + sample / 2);
        std::memcpy(sound.data() + i, &sample, 2);
    }
    const size_t length = kHeader + sound.size();
    const std::string header(reinterpret_cast<const char *>(wav_header), kHeader);
    return header.substr(0, 4) + number_text(length) + header.substr(8, 32) + number_text(length - 36) +
           sound;
}

void play_next() {
    wire::script({{.headers = {"HTTP/1.1 200 OK"}, .pieces = {"<Action>AUDIO_ON</Action>"}},
                  {.headers = {"HTTP/1.1 200 OK"}, .pieces = {"played"}}});
    check(threads::run_next(), "each clip has a thread");
    if (clips.size() == 1) open_clip = false;
    check(!wire::posted().empty() && wire::posted().back() == reference_clip(clips.front()),
          "a clip is posted with its sizes and louder");
    clips.pop_front();
}

void deliver(Input &input) {
    const uint8_t kind = input.byte();
    if (kind % 8 == 7) {
        if (!clips.empty()) play_next();
        return;
    }
    const uint32_t sequence = kind % 2 == 0 ? last_sequence + 1 : input.number();
    if (kind % 16 == 5) now += input.number() % (2 * kTicks);
    threads::set_clock(static_cast<long>(now));
    const size_t factor = kind >= 128 ? 300 : 1;
    std::string sound;
    const std::string piece = input.bytes(input.byte());
    for (size_t i = 0; i < factor; i++) sound += piece;
    const bool no_data = kind % 32 == 2;
    if (no_data) sound.clear();
    const Block data(sound);
    talkback_frame frame{0,
                         sequence,
                         0,
                         0,
                         0,
                         no_data ? input.number() : static_cast<uint32_t>(data.size),
                         no_data ? nullptr : reinterpret_cast<uint8_t *>(data.data.get())};
    const bool refused = kind % 16 == 9;
    threads::refuse(refused);
    const int expected = reference_play(sequence, sound, refused);
    check(device_play_audio(&frame) == expected,
          "a frame is refused while 32 clips are alive, or without a thread");
    check(threads::waiting() == static_cast<int>(clips.size()), "frames that follow each other share a clip");
}

}  // namespace

void prepare() {
    wire::start_queue();
    threads::hold();
    check(waitAndPlay(nullptr) == nullptr, "no clip is no harm");
    check(device_play_audio(nullptr) == -1, "no frame is refused");
}

void try_input(Input input) {
    wire::configure();
    for (int steps = 0; !input.empty() && steps < 200; steps++) deliver(input);
    while (!clips.empty()) play_next();
}
