// The benchmarks: tasks of the agent, done by the agent's own objects, beside references and peers that do
// the same. A row is one task. One process, one processor; only requests use a second thread, the queue's
// worker.
#ifndef BENCH_BENCH_H
#define BENCH_BENCH_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

// One way to do a row's task.
struct Contestant {
    std::string name;
    std::function<void()> run;          // the task once
    std::function<void()> before = {};  // not measured; before each batch
};

struct Row {
    std::string id;                       // as in docs/PERFORMANCE.md
    std::vector<Contestant> contestants;  // the product, the reference, then floors and peers
    int batch;                            // times that the task is done in a row in each round
    int rounds = 200;
    bool threads = false;  // part of the work is on another thread and may end after the call
};

// Each adds its rows. What they need lives as long as the process.
void add_request_rows(std::vector<Row> &rows);
void add_text_rows(std::vector<Row> &rows);
void add_conf_rows(std::vector<Row> &rows);
void add_media_rows(std::vector<Row> &rows);
void add_card_rows(std::vector<Row> &rows);
void add_start_rows(std::vector<Row> &rows);

// Peers, where their libraries are installed; each does the same as the row's reference.
void add_request_peers(Row &row, const std::string &target);
void add_text_peers(Row &row, const std::string &reply, const std::vector<const char *> &names);
void add_file_write_reference(Row &row, const std::string &path, const std::string &text);
void add_video_peers(Row &row, const std::vector<unsigned char> &frame);
void add_audio_reference(Row &row, const std::vector<unsigned char> &frame);

// What the agent does with a reply in which it looks for these values.
void read_values(const std::string &reply, const std::vector<const char *> &names);

// Hands the first frame of a clip to the agent; the clip before it is given back. Returns device_play_audio's
// result.
int play_first_frame();

// A folder with the media of so many recordings; shown on the card in the place of what was there.
std::string make_recordings(int recordings);
void show_card(const std::string &folder);

// get_camera_snapshot with the newest thumbnail.
void read_newest_thumbnail();

// What the compiler must not leave out.
inline void keep(const void *value) {
    asm volatile("" : : "r"(value) : "memory");
}

// The environment that the driver gives.
int server_port();                 // of the little camera
const std::string &disk_folder();  // on a disk, for files that are synced
const std::string &build_folder();

#endif
