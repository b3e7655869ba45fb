// The newest N records of something that never stops coming, with a sequence number that starts at 1. All
// memory is there from the start, so that a long run stays flat. Not locked: the owner's mutex guards it.
#pragma once

#include <array>
#include <cstdint>

namespace desk {

template <typename Record, uint64_t N>
class RecordRing {
  public:
    // The slot for the next record, holding an old one; counts it.
    Record &next() {
        return slots_[total_++ % N];
    }
    void clear() {
        first_ = total_;
    }
    uint64_t total() const {
        return total_;
    }
    // Calls visit(seq, record) for every kept record with seq > `since`, oldest first.
    template <typename Visit>
    void each_since(uint64_t since, Visit visit) const {
        uint64_t begin = total_ > N ? total_ - N : 0;
        begin = begin > first_ ? begin : first_;
        for (uint64_t at = begin > since ? begin : since; at < total_; at++) visit(at + 1, slots_[at % N]);
    }

  private:
    std::array<Record, N> slots_{};
    uint64_t total_ = 0, first_ = 0;
};

}  // namespace desk
