// The bent clocks: what they read, and how long bent times really last. Lengths are nanoseconds in int64_t,
// readings and deadlines are moments, so that this part is the same for every size of time_t and every year.
// Any thread and any signal handler may call these; none blocks.
#ifndef DEVKIT_DEVICE_BEND_CLOCK_H
#define DEVKIT_DEVICE_BEND_CLOCK_H

#include <dlfcn.h>
#include <time.h>

#include <atomic>
#include <cstdint>

namespace bend {

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int64_t kMillisecond = 1'000'000;
constexpr std::int64_t kMicrosecond = 1'000;

// A reading of a clock or a deadline on it.
struct Moment {
    std::int64_t seconds;      // since the clock's zero, negative before it
    std::int64_t nanoseconds;  // beyond them, 0 to 999,999,999 on either side of zero
};

// `start` plus so many nanoseconds, which may be negative.
Moment later(const Moment &start, std::int64_t nanoseconds);

// The length of so many seconds and nanoseconds; what is longer than some 127 years is those.
std::int64_t to_length(std::int64_t seconds, std::int64_t nanoseconds);

// A wait for a moment of the wall clock looks this often (in real time) whether the clock was stepped.
constexpr std::int64_t kStepCheck = 20 * kMillisecond;

// Reads a real clock past every preload. Negative on an unknown clock, errno set.
std::int64_t real_now(clockid_t clock);

// True for the clocks that run faster and can be waited for; the CPU clocks are not among them.
bool is_bent(clockid_t clock);

// Reading of a bent clock.
Moment now(clockid_t clock);

// Bent length until the bent `clock` reads `deadline`, negative when that is past.
std::int64_t left_until(clockid_t clock, const Moment &deadline);

// The real length of a bent length, rounded up; zero and less stay as they are.
std::int64_t to_real(std::int64_t bent_length);

// The bent length of a real length.
std::int64_t to_bent(std::int64_t real_length);

// Real time left until the bent `clock` reads `deadline`, 0 when it has passed; at most kStepCheck for the
// wall clock.
std::int64_t real_wait(clockid_t clock, const Moment &deadline);

// The function of that name behind this library: the sanitizer's where there is one, else libc's. Looked up
// at the first use, so that other libraries' constructors find it too.
template <typename Function>
class NextFunction {
  public:
    explicit constexpr NextFunction(const char *name) : name_(name) {}

    Function *get() {
        Function *found = found_.load(std::memory_order_relaxed);
        if (found == nullptr) {
            found = reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name_));
            found_.store(found, std::memory_order_relaxed);
        }
        return found;
    }

  private:
    const char *name_;
    std::atomic<Function *> found_{nullptr};
};

// Counts the signals sent to a condition (conditions may share a counter).
std::atomic<unsigned> &signals_sent(const void *condition);

}  // namespace bend

#endif
