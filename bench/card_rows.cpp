// The card: its newest thumbnail.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "bench.h"
#include "exports.h"

namespace {

constexpr char kMedia[] = "/tmp/fuse_d/DCIM/100MEDIA";
constexpr int kRecordings = 5000;

// All names, none looked at.
void list_folder() {
    DIR *folder = opendir(kMedia);
    while (const dirent *entry = readdir(folder)) keep(entry);
    closedir(folder);
}

}  // namespace

std::string make_recordings(int recordings) {
    const std::string folder = "/tmp/fuse_d/card" + std::to_string(recordings);
    mkdir(folder.c_str(), 0755);
    for (int i = 1; i <= recordings; i++) {
        char name[32];
        std::snprintf(name, sizeof name, "/AAAA%04d", i % 10000);
        std::ofstream(folder + name + ".MP4") << "x";
        std::ofstream(folder + name + ".THM") << "thumbnail";
    }
    return folder;
}

void show_card(const std::string &folder) {
    if (unlink(kMedia) != 0) rmdir(kMedia);
    if (symlink(folder.c_str(), kMedia) != 0) std::abort();
}

void read_newest_thumbnail() {
    snapshot_record record{};
    if (get_camera_snapshot(&record, 1) != 0) std::abort();
    std::free(record.data);
}

void add_card_rows(std::vector<Row> &rows) {
    static const std::string folder = make_recordings(kRecordings);
    const auto insert = [] { show_card(folder); };
    rows.push_back({"newest of 5,000 thumbnails",
                    {{"product", read_newest_thumbnail, insert}, {"readdir of all", list_folder}},
                    1,
                    60});
}
