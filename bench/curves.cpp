#include "curves.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <thread>

#include "agent/utils/conf_file.h"
#include "agent/utils/reply_text.h"
#include "bench.h"
#include "exports.h"
#include "measure.h"
#include "z55cgi.h"

namespace {

struct Point {
    long x;
    Contestant task;
};

double microseconds_of(const Contestant &task, int batch) {
    if (task.before) task.before();
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < batch; i++) task.run();
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count() /
           batch;
}

// A tenth of the values is less: what the machine does besides only adds.
double undisturbed(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 10];
}

// The points by turns, so that a load of the machine bends no curve.
void measure_curve(std::FILE *report, const char *name, const std::vector<Point> &points, int rounds,
                   int batch) {
    std::vector<std::vector<double>> times(points.size());
    for (int round = 0; round < rounds; round++) {
        for (size_t i = 0; i < points.size(); i++) {
            pass_the_pacing();
            times[i].push_back(microseconds_of(points[i].task, batch));
        }
    }
    for (size_t i = 0; i < points.size(); i++) {
        std::fprintf(report, "point\t%s\t%ld\t%.3f\n", name, points[i].x, undisturbed(times[i]));
    }
    std::fflush(report);
}

// --- Configuration

std::string conf_with(int lines, int sought) {
    const std::string path = "/tmp/bench." + std::to_string(lines) + "." + std::to_string(sought);
    std::ofstream file(path);
    for (int i = 1; i <= lines; i++) {
        if (i == sought) {
            file << "SOUGHT_KEY=3600\n";
        } else {
            file << "SOME_SETTING_" << i << "=some value\n";
        }
    }
    return path;
}

Contestant read_of(const std::string &path) {
    return {"", [path] {
                const auto value = conf_value("SOUGHT_KEY", path.c_str());
                keep(&value);
            }};
}

Contestant write_of(const std::string &path) {
    return {"", [path] {
                static bool odd = false;
                odd = !odd;
                if (write_conf_value("SOUGHT_KEY", odd ? "3601" : "3602", path.c_str()) != 0) std::abort();
            }};
}

void conf_curves(std::FILE *report) {
    std::vector<Point> behind, before, written;
    for (const int lines : {25, 100, 200, 400, 800}) {
        behind.push_back({lines, read_of(conf_with(lines, 13))});
        before.push_back({lines, read_of(conf_with(lines, lines))});
        written.push_back({lines, write_of(conf_with(lines, 13))});
    }
    measure_curve(report, "configuration lines, the key in line 13", behind, 40, 50);
    measure_curve(report, "configuration lines, the key in the last", before, 40, 50);
    measure_curve(report, "configuration lines, a durable write on tmpfs", written, 30, 10);
}

// --- Frames

void frame_curve(std::FILE *report) {
    static const std::vector<uint8_t> data = [] {
        std::vector<uint8_t> bytes(400'000, 0x55);
        const uint8_t start[] = {0, 0, 0, 1, 0x67};
        std::memcpy(bytes.data(), start, sizeof start);
        return bytes;
    }();
    std::vector<Point> points;
    for (const uint32_t kilobytes : {1, 10, 40, 100, 200, 400}) {
        const auto hand_over = [kilobytes] {
            captured_frame frame{const_cast<uint8_t *>(data.data()), 0, 0, 1, 0, kilobytes * 1000};
            new_getframe_callback(&frame);
        };
        points.push_back({static_cast<long>(kilobytes), {"", hand_over}});
    }
    measure_curve(report, "frame size in KB, to the SDK", points, 60, 20);
}

// --- The card

Contestant newest_of(int recordings) {
    const std::string folder = make_recordings(recordings);
    return {"", read_newest_thumbnail, [folder] { show_card(folder); }};
}

void card_curve(std::FILE *report) {
    std::vector<Point> points;
    for (const int recordings : {10, 100, 1000, 2500, 5000})
        points.push_back({recordings, newest_of(recordings)});
    measure_curve(report, "recordings on the card, the newest thumbnail", points, 40, 2);
}

// --- Requests

std::string url_of(const std::string &target) {
    return "http://127.0.0.1:" + std::to_string(server_port()) + target;
}

void get_once() {
    if (!curl_GET(url_of("/CGI/CameraSetting?MOTION_DETECTION"))) std::abort();
}

void poll_once() {
    if (!perform_curl(url_of("/CGI/CameraStatus"), "1000001", "Notification&MotionEvent")) std::abort();
}

void get_by(int callers) {
    std::vector<std::thread> threads;
    for (int i = 0; i < callers; i++) threads.emplace_back(get_once);
    for (std::thread &thread : threads) thread.join();
}

void callers_curve(std::FILE *report) {
    std::vector<Point> points;
    for (const int callers : {1, 2, 4, 8, 16, 32, 64, 79}) {
        points.push_back({callers, {"", [callers] { get_by(callers); }}});
    }
    measure_curve(report, "callers at once, until all are served", points, 25, 1);
}

Contestant photo_of(long bytes) {
    return {"", [bytes] {
                photo_buffer photo{};
                const std::string path = "/bytes/" + std::to_string(bytes);
                if (z55_get_photo(&photo, path.c_str()) != 0 || static_cast<long>(photo.count) != bytes)
                    std::abort();
                std::free(photo.data);
            }};
}

void photo_curve(std::FILE *report) {
    std::vector<Point> points;
    for (const long kilobytes : {10, 100, 500, 1000, 2500, 5000}) {
        points.push_back({kilobytes, photo_of(kilobytes * 1000)});
    }
    measure_curve(report, "photo size in KB, the transfer", points, 15, 1);
}

// --- Uptime: what a poll costs after so many

// What the process has written; pages of files come and go with others that map them.
long written_kib() {
    std::ifstream file("/proc/self/smaps_rollup");
    long value = 0;
    for (std::string word; file >> word;) {
        if (word == "Private_Dirty:" && file >> value) break;
    }
    return value;
}

void uptime_curve(std::FILE *report) {
    constexpr long kMeasured = 200;  // the last ones before each point
    long done = 0;
    for (const long polls : {200, 2000, 5000, 10000, 20000, 40000}) {
        for (; done < polls - kMeasured; done++) poll_once();
        std::vector<double> times;
        for (; done < polls; done++) {
            if (done % 20 == 0) pass_the_pacing();
            times.push_back(microseconds_of({"", poll_once}, 1));
        }
        std::fprintf(report, "point\tuptime in polls, the next one\t%ld\t%.3f\n", polls, undisturbed(times));
        std::fprintf(report, "point\tuptime in polls, private memory in KiB\t%ld\t%ld\n", polls,
                     written_kib());
        std::fflush(report);
    }
}

// --- Replies

const char *status_name(int number) {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all;
        for (int i = 0; i < 64; i++) all.push_back("SomeStatus" + std::to_string(100 + i));
        return all;
    }();
    return names[static_cast<size_t>(number)].c_str();
}

// So many keys, evenly spread over a reply of so many elements.
Contestant keys_of(int keys, int elements) {
    std::string reply;
    std::vector<const char *> names;
    for (int i = 0; i < elements; i++) {
        reply += std::string("<") + status_name(i) + ">some value</" + status_name(i) + ">";
    }
    for (int i = 0; i < keys; i++) names.push_back(status_name(i * elements / keys));
    return {"", [reply, names] { read_values(reply, names); }};
}

void reply_curves(std::FILE *report) {
    std::vector<Point> keys, elements;
    for (const int number : {1, 2, 4, 6, 8, 12, 16}) keys.push_back({number, keys_of(number, 48)});
    for (const int number : {6, 12, 24, 48, 64}) elements.push_back({number, keys_of(6, number)});
    measure_curve(report, "keys that are read of a reply of 48", keys, 40, 100);
    measure_curve(report, "elements of a reply, six of them read", elements, 40, 100);
}

}  // namespace

void measure_curves(std::FILE *report) {
    uptime_curve(report);  // while the memory is still the agent's alone
    conf_curves(report);
    reply_curves(report);
    frame_curve(report);
    callers_curve(report);
    photo_curve(report);
    card_curve(report);
}
