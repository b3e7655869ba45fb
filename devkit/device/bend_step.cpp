// bend-step: steps the bent wall clock of the processes that share BEND_FILE.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bend_file.h"

namespace {

constexpr double kMicrosecondsPerSecond = 1e6;
constexpr double kLongestStep = 1e12;  // seconds, some 30,000 years

int usage() {
    std::fputs(
        "usage: BEND_FILE=FILE bend-step SECONDS    steps the wall clock (may be negative, may have a "
        "fraction; up to 1e12)\n"
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
    if (!show && (end == argument || *end != '\0' || !(std::fabs(seconds) <= kLongestStep))) return usage();
    const char *path = std::getenv("BEND_FILE");
    if (path == nullptr) return usage();
    BendFile *file = map_bend_file(path);
    if (file == nullptr) {
        std::perror(path);
        return 1;
    }
    if (show) {
        const std::int64_t offset = __atomic_load_n(&file->wall_offset_us, __ATOMIC_RELAXED);
        std::printf("%.9f\n", static_cast<double>(offset) / kMicrosecondsPerSecond);
    } else {
        __atomic_add_fetch(&file->wall_offset_us, std::llround(seconds * kMicrosecondsPerSecond),
                           __ATOMIC_RELAXED);
    }
    return 0;
}
