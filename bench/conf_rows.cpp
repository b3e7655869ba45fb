// The configuration file: one key read, one key written.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>

#include "agent/utils/conf_file.h"
#include "bench.h"

namespace {

constexpr int kLines = 25;
constexpr int kSoughtLine = 13;

std::string conf_of(int lines) {
    std::string text;
    for (int i = 1; i <= lines; i++) {
        char line[64];
        std::snprintf(line, sizeof line,
                      i == kSoughtLine ? "SOUGHT_KEY=3600\n" : "SOME_SETTING_%02d=some value\n", i);
        text += line;
    }
    return text;
}

void store(const std::string &path, const std::string &text) {
    std::ofstream(path) << text;
}

// As a careful programmer writes it in ten lines of C.
void read_by_fgets(const char *path) {
    constexpr char kKey[] = "SOUGHT_KEY=";
    FILE *file = std::fopen(path, "re");
    if (file == nullptr) return;
    char line[1024], value[1024] = "";
    while (std::fgets(line, sizeof line, file) != nullptr) {
        if (std::strncmp(line, kKey, sizeof kKey - 1) != 0) continue;
        line[std::strcspn(line, "\n")] = '\0';
        std::snprintf(value, sizeof value, "%s", line + sizeof kKey - 1);
        break;
    }
    std::fclose(file);
    keep(value);
}

void read_by_stream(const char *path) {
    std::ifstream file(path);
    std::string line;
    while (std::getline(file, line)) {
        if (line.compare(0, 11, "SOUGHT_KEY=") != 0) continue;
        const std::string value = line.substr(11);
        keep(value.data());
        return;
    }
}

// One read of all, one search.
void read_by_search(const char *path) {
    char text[4096];
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    const ssize_t length = read(file, text, sizeof text - 1);
    close(file);
    text[length > 0 ? length : 0] = '\0';
    const char *found = std::strstr(text, "\nSOUGHT_KEY=");
    keep(found);
}

Row reading_row() {
    static const std::string path = "/tmp/bench.conf";
    store(path, conf_of(kLines));
    return {"one key of 25 lines",
            {{"product",
              [] {
                  const auto value = conf_value("SOUGHT_KEY", path.c_str());
                  keep(&value);
              }},
             {"fopen, fgets", [] { read_by_fgets(path.c_str()); }},
             {"floor: open, read, strstr", [] { read_by_search(path.c_str()); }},
             {"std::ifstream", [] { read_by_stream(path.c_str()); }}},
            50};
}

// A file beside it, synced, renamed over it.
void replace(const std::string &path, const std::string &text) {
    const std::string beside = path + ".new";
    const int file = open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    [[maybe_unused]] const ssize_t written = write(file, text.data(), text.size());
    fsync(file);
    close(file);
    std::rename(beside.c_str(), path.c_str());
}

Row writing_row(const char *id, const std::string &folder, int batch, int rounds) {
    const std::string mine = folder + "/mine.conf", theirs = folder + "/theirs.conf",
                      floor = folder + "/floor.conf";
    const std::string text = conf_of(kLines);
    for (const auto &path : {mine, theirs, floor}) store(path, text);
    Row row{id,
            {{"product",
              [mine] {
                  static bool odd = false;  // a value that the file holds is not written again
                  odd = !odd;
                  if (write_conf_value("SOUGHT_KEY", odd ? "3601" : "3602", mine.c_str()) != 0) std::abort();
              }}},
            batch,
            rounds};
    add_file_write_reference(row, theirs, text);
    row.contestants.push_back({"floor: write, fsync, rename", [floor, text] { replace(floor, text); }});
    return row;
}

}  // namespace

void add_conf_rows(std::vector<Row> &rows) {
    rows.push_back(reading_row());
    rows.push_back(writing_row("durable write, disk", disk_folder(), 1, 60));
    rows.push_back(writing_row("durable write, tmpfs", "/tmp", 20, 200));
}
