#include "ring_reader.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace {

constexpr timespec kPatience{0, 250'000'000};

}  // namespace

RingReader::~RingReader() {
    close_ring();
}

void RingReader::close_ring() {
    if (ring_ != nullptr) munmap(const_cast<RingHeader *>(ring_), size_);
    ring_ = nullptr;
}

// True where the file is another than the one that was open.
bool RingReader::open_if_new() {
    struct stat status {};
    if (stat(path_.c_str(), &status) != 0 || (ring_ != nullptr && status.st_ino == file_)) return false;
    close_ring();
    const int fd = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    size_ = static_cast<size_t>(status.st_size);
    void *at = size_ > sizeof(RingHeader) ? mmap(nullptr, size_, PROT_READ, MAP_SHARED, fd, 0) : MAP_FAILED;
    close(fd);
    if (at == MAP_FAILED) return false;
    ring_ = static_cast<const RingHeader *>(at);
    file_ = status.st_ino;
    if (ring_->magic != kRingMagic || ring_->version != kRingVersion || size_ != sizeof *ring_ + ring_->bytes)
        close_ring();
    if (ring_ != nullptr) position_ = __atomic_load_n(&ring_->head, __ATOMIC_ACQUIRE);
    return ring_ != nullptr;
}

bool RingReader::overtaken() const {
    __atomic_thread_fence(__ATOMIC_SEQ_CST);
    return __atomic_load_n(&ring_->begun, __ATOMIC_RELAXED) - position_ > ring_->bytes;
}

void RingReader::get(uint32_t position, void *to, uint32_t length) const {
    const auto *data = reinterpret_cast<const uint8_t *>(ring_ + 1);
    const uint32_t at = position % ring_->bytes, first = std::min(length, ring_->bytes - at);
    memcpy(to, data + at, first);
    memcpy(static_cast<uint8_t *>(to) + first, data, length - first);
}

std::shared_ptr<const LiveFrame> RingReader::next(bool &fresh) {
    fresh = open_if_new();
    if (fresh || ring_ == nullptr) {
        if (ring_ == nullptr) nanosleep(&kPatience, nullptr);
        return nullptr;
    }
    const uint32_t head = __atomic_load_n(&ring_->head, __ATOMIC_ACQUIRE);
    if (position_ == head) {
        syscall(SYS_futex, &ring_->head, FUTEX_WAIT, head, &kPatience, nullptr, 0);
        if (__atomic_load_n(&ring_->head, __ATOMIC_ACQUIRE) == head) return nullptr;
    }
    RingFrame header{};
    get(position_, &header, sizeof header);
    auto frame = std::make_shared<LiveFrame>();
    if (!overtaken() && header.length <= ring_->bytes) {
        frame->data.resize(header.length);
        get(position_ + static_cast<uint32_t>(sizeof header), frame->data.data(), header.length);
    }
    if (overtaken()) {
        position_ = __atomic_load_n(&ring_->last_key, __ATOMIC_ACQUIRE);
        return nullptr;
    }
    position_ += static_cast<uint32_t>(sizeof header) + ((header.length + 3) & ~3U);
    frame->video = header.video != 0;
    frame->key = header.key != 0;
    frame->real_us = header.real_us;
    return frame;
}
