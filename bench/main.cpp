// bench with-camera COMMAND...   starts the little camera and becomes COMMAND, for what traces it from outside
// bench times | counts [N]       measures every row; counts of the first N contestants of each
// All of it inside a device view, on one processor (BENCH_CPU). The report goes to descriptor 3.
#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "agent/utils/memory.h"
#include "camera.h"
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
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
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
    return rows;
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
    if (report == nullptr || (mode != "times" && mode != "counts")) return 2;
    be_the_agent();
    std::vector<Row> rows = all_rows();
    if (mode == "times") {
        add_start_rows(rows);
        for (const Row &row : rows) measure_times(row, report);
    } else {
        const size_t contestants = count > 2 ? static_cast<size_t>(std::atoi(arguments[2])) : 1;
        count_windows(empty_row("nothing", false), contestants, report);
        count_windows(empty_row("nothing beside threads", true), contestants, report);
        for (const Row &row : rows) count_windows(row, contestants, report);
    }
    std::fflush(report);
    _exit(0);  // the worker never ends
}
