// bench with-camera COMMAND...   starts the little camera and becomes COMMAND, for what traces it from
// outside bench times | counts           measures every row bench curves | latency         how tasks grow;
// how long the handlers take All of it inside a device view, on one processor (BENCH_CPU). The report goes to
// descriptor 3.
#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "agent/utils/memory.h"
#include "camera.h"
#include "curves.h"
#include "measure.h"

namespace {

const char *from_environment(const char *name) {
    const char *value = std::getenv(name);
    if (value != nullptr) return value;
    std::fprintf(stderr, "bench: %s is not set\n", name);
    std::exit(2);
}

int with_camera(char **command) {
    setenv("BENCH_PORT", std::to_string(start_camera()).c_str(), 1);
    execvp(command[0], command);
    std::perror(command[0]);
    return 127;
}

void stay_on_one_processor() {
    const char *cpu = std::getenv("BENCH_CPU");
    if (cpu == nullptr) return;
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(static_cast<size_t>(std::atoi(cpu)), &set);
    sched_setaffinity(0, sizeof set, &set);
}

// As the agent's main has it, with the log thrown away.
void be_the_agent() {
    prepare_memory();
    const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nothing, STDOUT_FILENO);
    dup2(nothing, STDERR_FILENO);
    static char error_line[1024];
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    std::setvbuf(stderr, error_line, _IOLBF, sizeof error_line);
}

// What a window costs in which nothing is done.
Row empty_row(const char *id, bool threads) {
    return {id, {{"product", [] {}}, {"reference", [] {}}}, 1, 1, threads};
}

std::vector<Row> all_rows() {
    std::vector<Row> rows;
    add_request_rows(rows);
    add_text_rows(rows);
    add_conf_rows(rows);
    add_media_rows(rows);
    add_card_rows(rows);
    return rows;
}

void measure_all_times(std::FILE *report) {
    std::vector<Row> rows = all_rows();
    add_start_rows(rows);
    for (const Row &row : rows) measure_times(row, report);
}

// Of the product and of its reference.
void count_all(std::FILE *report) {
    const std::vector<Row> rows = all_rows();  // with the threads that stand in all windows
    count_windows(empty_row("nothing", false), 2, report);
    count_windows(empty_row("nothing beside threads", true), 2, report);
    for (const Row &row : rows) count_windows(row, 2, report);
}

void measure_all_curves(std::FILE *report) {
    all_rows();  // their start is the agent's
    measure_curves(report);
}

using Measure = void (*)(std::FILE *);

Measure measure_of(const std::string &mode) {
    if (mode == "times") return measure_all_times;
    if (mode == "counts") return count_all;
    if (mode == "curves") return measure_all_curves;
    return mode == "latency" ? measure_latency : nullptr;
}

}  // namespace

int server_port() {
    static const int port = std::atoi(from_environment("BENCH_PORT"));
    return port;
}

const std::string &disk_folder() {
    static const std::string folder = from_environment("BENCH_DISK");
    return folder;
}

const std::string &build_folder() {
    static const std::string folder = from_environment("BENCH_BUILD");
    return folder;
}

int main(int count, char **arguments) {
    const std::string mode = count > 1 ? arguments[1] : "";
    stay_on_one_processor();
    if (mode == "with-camera" && count > 2) return with_camera(arguments + 2);
    std::FILE *report = fdopen(3, "w");
    const auto measure = measure_of(mode);
    if (report == nullptr || measure == nullptr) return 2;
    be_the_agent();
    measure(report);
    std::fflush(report);
    _exit(0);  // the worker never ends
}
