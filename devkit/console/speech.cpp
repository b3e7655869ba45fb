#include "speech.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

namespace {

constexpr double kTargetRate = 12000;

std::string output_of(char *const arguments[]) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return "";
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, ends[1], 1);
    pid_t pid = 0;
    const int error = posix_spawnp(&pid, arguments[0], &files, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&files);
    close(ends[1]);
    std::string output;
    char piece[16384];
    for (ssize_t n; error == 0 && (n = read(ends[0], piece, sizeof piece)) > 0;)
        output.append(piece, static_cast<size_t>(n));
    close(ends[0]);
    if (error == 0) waitpid(pid, nullptr, 0);
    return output;
}

// The mean of the samples that fall into each new one: enough for speech.
std::string resampled(const std::vector<int16_t> &from, double rate) {
    std::string result;
    const double step = rate / kTargetRate;
    for (double at = 0; at + step <= static_cast<double>(from.size()); at += step) {
        double sum = 0;
        const auto first = static_cast<size_t>(at), end = static_cast<size_t>(at + step);
        for (size_t i = first; i < std::max(end, first + 1); i++) sum += from[i];
        const auto sample =
            static_cast<int16_t>(std::lround(sum / static_cast<double>(std::max(end - first, size_t{1}))));
        result.append(reinterpret_cast<const char *>(&sample), sizeof sample);
    }
    return result;
}

}  // namespace

std::string spoken(const std::string &sentence) {
    std::string said = sentence;
    char program[] = "espeak-ng", option[] = "--stdout", end[] = "--";
    char *const arguments[] = {program, option, end, said.data(), nullptr};
    const std::string wav = output_of(arguments);
    const size_t data = wav.find("data", 12);
    if (wav.size() < 44 || data == std::string::npos || wav.size() < data + 8) return "";
    uint32_t rate = 0;
    memcpy(&rate, wav.data() + 24, sizeof rate);
    std::vector<int16_t> samples((wav.size() - data - 8) / 2);
    memcpy(samples.data(), wav.data() + data + 8, samples.size() * 2);
    return resampled(samples, rate);
}
