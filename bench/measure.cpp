#include "measure.h"

#include <dlfcn.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>

#if __has_include(<valgrind/callgrind.h>) && !defined(__arm__)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_ZERO_STATS
#define CALLGRIND_DUMP_STATS_AT(name)
#endif

namespace {

constexpr int kWindows = 12;              // of each contestant; whoever counts takes the least
constexpr useconds_t kSettleTime = 5000;  // microseconds in which another thread is done with its part

std::int64_t nanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1'000'000'000LL + now.tv_nsec;
}

// Nanoseconds of one task.
double batch_time(const Contestant &contestant, int batch) {
    if (contestant.before) contestant.before();
    const std::int64_t start = nanoseconds();
    for (int i = 0; i < batch; i++) contestant.run();
    return static_cast<double>(nanoseconds() - start) / batch;
}

double quantile(std::vector<double> values, double share) {
    std::sort(values.begin(), values.end());
    return values[static_cast<size_t>(share * static_cast<double>(values.size() - 1))];
}

void begin_window(const std::string &name) {
    [[maybe_unused]] const ssize_t refused = write(-1, name.data(), name.size());
    CALLGRIND_ZERO_STATS;
}

void end_window([[maybe_unused]] const std::string &name) {
    CALLGRIND_DUMP_STATS_AT(name.c_str());
    [[maybe_unused]] const ssize_t refused = write(-1, "end", 3);
}

// Of bench/allocations.cpp, where it was loaded.
long allocations() {
    using Count = long (*)();
    static const Count count = reinterpret_cast<Count>(dlsym(RTLD_DEFAULT, "bench_allocations"));
    return count != nullptr ? count() : -1;
}

void count_window(const Row &row, const Contestant &contestant, std::FILE *report) {
    const std::string name = row.id + "|" + contestant.name;
    if (contestant.before) contestant.before();
    if (row.threads) pass_the_pacing();
    const long before = allocations();
    begin_window(name);
    contestant.run();
    if (row.threads) usleep(kSettleTime);
    end_window(name);
    std::fprintf(report, "window\t%s\t%s\t%ld\n", row.id.c_str(), contestant.name.c_str(),
                 allocations() - before);
}

}  // namespace

void pass_the_pacing() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const long milliseconds = now.tv_nsec / 1'000'000;
    if (milliseconds >= 105 && milliseconds < 900) return;
    usleep(static_cast<useconds_t>((milliseconds < 105 ? 105 - milliseconds : 1105 - milliseconds) * 1000));
}

void measure_times(const Row &row, std::FILE *report) {
    const size_t count = row.contestants.size();
    std::vector<std::vector<double>> times(count), ratios(count);
    for (int round = -2; round < row.rounds; round++) {  // two to warm up
        if (row.threads) pass_the_pacing();
        std::vector<double> now(count);
        for (size_t i = 0; i < count; i++) {
            const size_t place = (i + static_cast<size_t>(round + 2)) % count;  // each begins in its turn
            now[place] = batch_time(row.contestants[place], row.batch);
        }
        if (round < 0) continue;
        for (size_t i = 0; i < count; i++) {
            times[i].push_back(now[i]);
            ratios[i].push_back(now[i] / now[1]);
        }
    }
    for (size_t i = 0; i < count; i++) {
        std::fprintf(report, "time\t%s\t%s\t%.1f\t%.3f\t%.3f\t%.3f\n", row.id.c_str(),
                     row.contestants[i].name.c_str(), quantile(times[i], 0.5), quantile(ratios[i], 0.5),
                     quantile(ratios[i], 0.25), quantile(ratios[i], 0.75));
    }
    std::fflush(report);
}

void count_windows(const Row &row, size_t contestants, std::FILE *report) {
    for (size_t i = 0; i < std::min(contestants, row.contestants.size()); i++) {
        const Contestant &contestant = row.contestants[i];
        if (contestant.before) contestant.before();
        contestant.run();  // what is made at the first call
        if (row.threads) usleep(kSettleTime);
        for (int window = 0; window < kWindows; window++) count_window(row, contestant, report);
    }
    std::fflush(report);
}
