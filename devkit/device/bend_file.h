// The small file that bent processes and bend-step share by mapping. Both numbers are read and written
// atomically.
#ifndef DEVKIT_DEVICE_BEND_FILE_H
#define DEVKIT_DEVICE_BEND_FILE_H

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>

struct BendFile {
    std::int64_t
        wall_offset_us;  // added to the wall clock; microseconds reach 292,000 years, nanoseconds 292
    std::int64_t
        origin_ns;  // reading of the real monotonic clock where the bent time began; 0: not yet begun
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
