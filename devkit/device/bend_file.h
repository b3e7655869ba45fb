// The small file that bent processes, bend-step, bend-skip and whoever drives them share by mapping. Every
// number is read and written atomically; a new file is all zeros.
#ifndef DEVKIT_DEVICE_BEND_FILE_H
#define DEVKIT_DEVICE_BEND_FILE_H

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>

// A thread that waits. Free while `pid` is 0.
struct BendWait {
    std::int32_t pid;
    std::int32_t sleeps;       // 0: it waits for a peer, so that nothing may be skipped now; 0 in free ones
    std::int64_t deadline_ns;  // the reading of the bent monotonic clock that ends its sleep
};

// A process that lives in bent time.
struct BendProcess {
    std::int32_t pid;
    std::int32_t serves;      // 1: it acts when a wait ends or a peer asks, never by itself
    std::int64_t started_ns;  // reading of the bent monotonic clock
};

constexpr int kBendWaits = 160;
constexpr int kBendProcesses = 4096;  // the newest: a device starts some hundred times a year

struct BendFile {
    std::int64_t
        wall_offset_us;  // added to the wall clock; microseconds reach 292,000 years, nanoseconds 292
    std::int64_t
        origin_ns;  // reading of the real monotonic clock where the bent time began; 0: not yet begun
    std::int64_t skipped_ns;  // by which all bent clocks but the wall clock's steps are ahead of their speed
    std::int64_t skip_limit_ns;  // reading of the bent monotonic clock beyond which nothing may be skipped
    std::uint32_t changes;       // a futex: grows with every skip and every signal of a condition
    std::uint32_t waits_begun;   // a futex: grows with every wait that begins
    std::uint32_t processes_begun;
    std::uint32_t gate;  // a futex; 1 while bend-skip looks for the last time and skips: who is woken waits
    BendProcess processes[kBendProcesses];  // number n in place n modulo kBendProcesses
    BendWait waits[kBendWaits];
};

// Maps the file, creating or lengthening it as needed, for the life of the process. Null on failure, errno
// set.
inline BendFile *map_bend_file(const char *path) {
    const int file = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (file < 0) return nullptr;
    struct stat status {};
    void *map = MAP_FAILED;
    const bool long_enough =
        fstat(file, &status) == 0 &&
        (status.st_size >= static_cast<off_t>(sizeof(BendFile)) || ftruncate(file, sizeof(BendFile)) == 0);
    if (long_enough) map = mmap(nullptr, sizeof(BendFile), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    return map == MAP_FAILED ? nullptr : static_cast<BendFile *>(map);
}

#endif
