#include "recording_log.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "agent/loginout.h"
#include "agent/utils/conf_file.h"
#include "agent/utils/reply_text.h"
#include "agent/utils/text.h"
#include "exports.h"
#include "z55cgi.h"

// Written by the first recording's end, under the recording lock.
constinit char g_dir[64] = {};

namespace {

constexpr char kSource[] = "platform/Z55/video_recording";
constexpr char kMediaFolder[] = "/tmp/fuse_d/DCIM/100MEDIA/";
constexpr size_t kLineSize = 64;

// Read from the configuration when first needed.
constinit std::mutex cache_lock;
std::string cached_log_path;

std::string log_path() {
    const std::lock_guard<std::mutex> lock(cache_lock);
    if (cached_log_path.empty()) {
        const auto path = conf_value("RECORDING_LOG_FILE");
        if (!path) std::printf("Read conf failed: RECORDING_LOG_FILE. %s:%d\n", kSource, __LINE__);
        cached_log_path = path.value_or("");
    }
    return cached_log_path;
}

FILE *open_log() {
    FILE *file = std::fopen(log_path().c_str(), "a+e");
    if (file == nullptr) std::printf("fopen failed, %s:%s\n", kSource, std::strerror(errno));
    return file;
}

void append_line(const std::string &line) {
    FILE *file = open_log();
    if (file == nullptr) return;
    std::fprintf(file, "%s\n", line.c_str());
    std::fclose(file);
}

}  // namespace

std::string recording_flag_path() {
    char path[40];
    conf_value_into(path, "RECORDING_FLAG_FILE");
    return path;
}

void touch_recording_flag_temp_file() {
    std::puts("touch_recording_flag_temp_file");
    FILE *file = std::fopen(recording_flag_path().c_str(), "we");
    if (file != nullptr) std::fclose(file);
    std::puts(file != nullptr ? "touch succeeded" : "touch failed");
}

void remove_recording_flag_temp_file() {
    std::puts("remove_recording_flag_temp_file");
    std::puts(std::remove(recording_flag_path().c_str()) == 0 ? "remove succeeded" : "remove failed");
}

std::string recording_time_text(time_t instant) {
    tm parts{};
    localtime_r(&instant, &parts);
    char text[32];
    text[std::strftime(text, sizeof text, "%Y%m%d%H%M%S", &parts)] = '\0';
    return text;
}

void write_recording_log(time_t start, time_t end) {
    const int length = static_cast<int>(end - start);
    std::printf("starttime: %ld, endtime: %ld, len: %d\n", static_cast<long>(start), static_cast<long>(end),
                length);
    if (g_dir[0] == '\0') copy_text(g_dir, kMediaFolder);
    char name[28] = {};
    if (get_latest_mp4(g_dir, name) == 0) std::printf("get latest mp4 file: %s \n", name);
    const std::string line =
        format_text(kLineSize, "%s_%d_%s", recording_time_text(start).c_str(), length, name);
    std::printf("buffer:%s\n", line.c_str());
    std::printf("Recording log:%s\n", line.c_str());
    append_line(line);
}

void cancel_last_recording_log() {
    std::puts("*** cancel_last_recording_log ***");
    FILE *file = open_log();
    if (file == nullptr) return;
    std::fputc('X', file);
    std::fclose(file);
}

int get_latest_mp4(const char *, char (&name)[28]) {
    char host[16];
    if (!conf_value_into(host, "hostIP")) {
        std::puts("read hostIP in login() failed.");
        return -1;
    }
    const auto reply = perform_curl(format_text(200, "http://%s/CGI/VideoList", host), wait_for_session_key(),
                                    "start=1&end=1");
    if (!reply) {
        std::puts("getvideolist failed. response of perform_curl() is null.");
        return -1;
    }
    if (const auto code = read_error_code(*reply)) {
        std::printf("getvideolist failed due to polling failing.Errorcode: %s \n", code->c_str());
        return -1;
    }
    const auto value = find_xml_value(*reply, "Name");
    if (!value) {
        std::puts("value = NULL");
        return -1;
    }
    copy_text(name, *value);
    std::printf("(get_latest_mp4) latest mp4 is: %s\n", name);
    return 0;
}
