// Starts the tests anew under the preload, at speed 100, with an offset file of their own.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#include "../../bend_file.h"
#include "bend_test.h"

void step_wall_clock(double seconds) {
    BendFile *file = map_bend_file(getenv("BEND_FILE"));
    ASSERT_NE(file, nullptr);
    __atomic_add_fetch(&file->wall_offset_us, static_cast<std::int64_t>(seconds * 1e6), __ATOMIC_RELAXED);
    munmap(file, sizeof *file);
}

namespace {

int start_bent(char **arguments) {
    char file[] = "/tmp/bend_test.XXXXXX";
    close(mkstemp(file));
    setenv("BEND_FILE", file, 1);
    setenv("BEND_SPEED", std::to_string(kSpeed).c_str(), 1);
    setenv("LD_PRELOAD", BEND_LIBRARY, 1);
    const char *sanitizer = getenv("ASAN_OPTIONS");
    const std::string options =
        "verify_asan_link_order=0:" + std::string(sanitizer != nullptr ? sanitizer : "");
    setenv("ASAN_OPTIONS", options.c_str(), 1);
    execv("/proc/self/exe", arguments);
    perror("cannot start the tests anew");
    return 1;
}

}  // namespace

int main(int count, char **arguments) {
    if (getenv("BEND_SPEED") == nullptr) return start_bent(arguments);
    testing::InitGoogleTest(&count, arguments);
    const int result = RUN_ALL_TESTS();
    unlink(getenv("BEND_FILE"));
    return result;
}
