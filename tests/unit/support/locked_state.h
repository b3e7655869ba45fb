// A fake's state, which any thread may touch at any time.
#ifndef UNIT_SUPPORT_LOCKED_STATE_H
#define UNIT_SUPPORT_LOCKED_STATE_H

#include <mutex>
#include <utility>

// For static storage. Never destroyed: parked threads and the queue's worker outlive main.
template <typename State>
class LockedState {
  public:
    // `use` is called with the state while nobody else has it; it calls nothing of the agent or the test.
    template <typename Use>
    decltype(auto) with(Use use) {
        const std::lock_guard<std::mutex> guard(all_.lock);
        return use(all_.state);
    }
    template <typename T>
    T get(T State::*member) {
        return with([member](State &state) { return state.*member; });
    }
    template <typename T>
    void set(T State::*member, T value) {
        with([member, &value](State &state) { state.*member = std::move(value); });
    }
    void reset() {
        with([](State &state) { state = State{}; });
    }

  private:
    struct All {
        std::mutex lock;
        State state;
    };
    All &all_ = *new All;
};

#endif
