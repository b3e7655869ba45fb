// The small file that the failing preload and whoever drives it share by mapping (fail_file.py has the same
// layout).
#ifndef TESTS_TORTURE_FAIL_FILE_H
#define TESTS_TORTURE_FAIL_FILE_H

#include <cstdint>

// What a counted call wants. fail_file.py has the same order.
enum Kind : std::int32_t {
    kAlloc,
    kOpen,
    kRead,
    kWrite,  // ENOSPC
    kShortWrite,
    kSync,
    kRename,
    kClose,
    kFork,
    kPipe,
    kThread,
    kSocket,
    kConnect,
    kSend,
    kReceive,
    kSemaphore,
    kClock,
    kKinds
};

constexpr int kTraceSize = 1024;

struct FailFile {
    std::int32_t armed;         // 0: nothing is counted and nothing fails
    std::int32_t kind;          // that fails
    std::int64_t nth;           // call of that kind since it was armed; 0: none
    std::int32_t from_then_on;  // 1: those after it as well, until it is disarmed
    std::int32_t traced;        // the trace is complete
    std::uint64_t failed;       // calls that failed
    std::uint64_t size;         // bytes that the last of them wanted, of an allocation
    std::uint64_t counts[kKinds];
    char trace[kTraceSize];  // "object+offset ..." of the first that failed, innermost first
};

#endif
