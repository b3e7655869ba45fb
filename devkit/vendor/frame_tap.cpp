#include "frame_tap.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "frame_ring.h"
#include "real_time.h"

namespace desk {
namespace {

RingHeader *ring = nullptr;  // mapped for the life of the process, because threads outlive main

uint8_t *ring_data() {
    return reinterpret_cast<uint8_t *>(ring + 1);
}

// Copies to a position, around the ring's end where need be; returns the position behind.
uint32_t put(uint32_t position, const void *from, uint32_t length) {
    const uint32_t at = position % kRingBytes, first = std::min(length, kRingBytes - at);
    memcpy(ring_data() + at, from, first);
    memcpy(ring_data(), static_cast<const uint8_t *>(from) + first, length - first);
    return position + length;
}

void wake_readers() {
    syscall(SYS_futex, &ring->head, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

// No byte that is written afterwards may be seen before `begun` is. ThreadSanitizer knows no fences.
void tell_begun(uint32_t end) {
#ifdef __SANITIZE_THREAD__
    __atomic_exchange_n(&ring->begun, end, __ATOMIC_SEQ_CST);
#else
    __atomic_store_n(&ring->begun, end, __ATOMIC_RELAXED);
    __atomic_thread_fence(__ATOMIC_SEQ_CST);
#endif
}

void put_frame(const RingFrame &frame, const uint8_t *data) {
    const uint32_t padded = (frame.length + 3) & ~3U;
    if (ring == nullptr || padded > kRingBytes / 2) return;
    const uint32_t start = ring->head, end = start + static_cast<uint32_t>(sizeof frame) + padded;
    tell_begun(end);
    put(put(start, &frame, sizeof frame), data, frame.length);
    if (frame.key != 0) {
        __atomic_store_n(&ring->last_key, start, __ATOMIC_RELEASE);
        __atomic_store_n(&ring->has_key, 1U, __ATOMIC_RELEASE);
    }
    __atomic_store_n(&ring->head, end, __ATOMIC_RELEASE);
    wake_readers();
}

RingHeader *map_ring(const std::string &path) {
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (fd < 0) return nullptr;
    const size_t size = sizeof(RingHeader) + kRingBytes;
    void *at = MAP_FAILED;
    if (ftruncate(fd, static_cast<off_t>(size)) == 0)
        at = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    return at == MAP_FAILED ? nullptr : static_cast<RingHeader *>(at);
}

}  // namespace

void open_tap() {
    const char *path = getenv("DESK_SDK_TAP");
    if (path == nullptr || *path == '\0') return;
    const std::string beside = std::string(path) + ".new";
    RingHeader *made = map_ring(beside);
    if (made == nullptr) return perror(beside.c_str());
    *made = {kRingMagic, kRingVersion, kRingBytes, static_cast<uint32_t>(getpid()), 0, 0, 0, 0};
    if (rename(beside.c_str(), path) != 0) return perror(path);
    ring = made;
}

void tap_video(const video_record &record) {
    put_frame({record.length, 1, static_cast<uint8_t>(record.key_frame != 0), 0, record.counter,
               record.timestamp, real_now_ns() / 1000},
              record.data);
}

void tap_audio(const audio_record &record) {
    put_frame({record.length, 0, 0, 0, record.counter, record.timestamp, real_now_ns() / 1000}, record.data);
}

}  // namespace desk
