// bend-step: steps the bent wall clock of the processes that share BEND_FILE.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bend_file.h"

namespace {

constexpr double kNanosecondsPerSecond = 1e9;

int usage() {
    std::fputs(
        "usage: BEND_FILE=FILE bend-step SECONDS    steps the wall clock (may be negative, may have a "
        "fraction)\n"
        "       BEND_FILE=FILE bend-step --show     prints the sum of all steps in seconds\n",
        stderr);
    return 2;
}

}  // namespace

int main(int count, char **arguments) {
    // "--" is allowed for the sake of negative numbers.
    const char *argument = count > 1 ? arguments[count - 1] : "";
    const bool show = std::strcmp(argument, "--show") == 0;
    char *end = nullptr;
    const double seconds = std::strtod(argument, &end);
    if (!show && (end == argument || *end != '\0' || !std::isfinite(seconds))) return usage();
    const char *path = std::getenv("BEND_FILE");
    if (path == nullptr) return usage();
    bend_file *file = map_bend_file(path);
    if (file == nullptr) {
        std::perror(path);
        return 1;
    }
    if (show) {
        const std::int64_t offset = __atomic_load_n(&file->wall_offset_ns, __ATOMIC_RELAXED);
        std::printf("%.9f\n", static_cast<double>(offset) / kNanosecondsPerSecond);
    } else {
        __atomic_add_fetch(&file->wall_offset_ns, std::llround(seconds * kNanosecondsPerSecond),
                           __ATOMIC_RELAXED);
    }
    return 0;
}
