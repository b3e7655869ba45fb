#include "recording_log.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string_view>
#include <utility>

#include "agent/exchange.h"
#include "agent/session_key.h"
#include "agent/utils/conf_file.h"
#include "agent/utils/files.h"
#include "agent/utils/reply.h"
#include "agent/utils/reply_text.h"
#include "agent/utils/text.h"
#include "device.h"
#include "exports.h"
#include "log_sources.h"
#include "z55cgi.h"

namespace {

constexpr size_t kLineSize = 64;  // of the buffer of a line without its end; with its end it is as long

constinit std::mutex cache_lock;
constinit char cached_log_path[1024] = {};  // from the configuration when first needed; a value is no longer

// What stands behind the last line end where that is a piece of a line: a line begins with a digit, and bytes
// that the disk was not given any more are zeros.
size_t torn_length(FILE *log, long size) {
    char end[kLineSize + 1];
    const size_t looked = std::min(static_cast<size_t>(size), sizeof end);
    if (std::fseek(log, -static_cast<long>(looked), SEEK_END) != 0 ||
        std::fread(end, 1, looked, log) != looked)
        return 0;
    const std::string_view text(end, looked), piece = text.substr(text.rfind('\n') + 1);
    if (piece.empty() || piece.size() > kLineSize) return 0;
    return piece[0] == '\0' || (piece[0] >= '0' && piece[0] <= '9') ? piece.size() : 0;
}

// A power cut may leave a piece of the line that was being appended: the next one would stand behind it.
void cut_torn_line(const char *path) {
    const File log = open_regular(path);
    const long size = log && std::fseek(log.get(), 0, SEEK_END) == 0 ? std::ftell(log.get()) : 0;
    const size_t torn = size > 0 ? torn_length(log.get(), size) : 0;
    File file = torn > 0 ? open_to_append(path) : nullptr;
    if (!file || ftruncate(fileno(file.get()), size - static_cast<long>(torn)) != 0) return;
    // Before the next line is written: the piece may be longer. What stays on the disk stands before that
    // line.
    [[maybe_unused]] const bool cut = close_synced(std::move(file));
}

// Before the process's first line, when nobody appends yet, the log is put in order.
std::string log_path() {
    const std::lock_guard<std::mutex> lock(cache_lock);
    if (cached_log_path[0] != '\0') return cached_log_path;
    if (!conf_value_into(cached_log_path, "RECORDING_LOG_FILE"))
        std::printf("Read conf failed: RECORDING_LOG_FILE. %s:%d\n", kRecordingSource, __LINE__);
    cut_torn_line(cached_log_path);
    return cached_log_path;
}

void set_media_folder() {
    const std::lock_guard<std::mutex> lock(cache_lock);
    if (g_dir[0] == '\0') copy_text(g_dir, kMediaFolder);
}

// One write to a file that is opened for appending: lines of several threads do not mix.
void append(const std::string &text) {
    File file = open_to_append(log_path().c_str());
    if (!file) {
        std::printf("fopen failed, %s:%s\n", kRecordingSource, std::strerror(errno));
        return;
    }
    std::fputs(text.c_str(), file.get());
    if (!close_synced(std::move(file)))
        std::printf("recording log not written, %s:%s\n", kRecordingSource, std::strerror(errno));
}

std::string before_control_character(std::string text) {
    const auto is_control = [](unsigned char character) { return character < ' ' || character == 0x7f; };
    text.erase(std::find_if(text.begin(), text.end(), is_control), text.end());
    return text;
}

}  // namespace

std::string recording_flag_path() {
    char path[40];
    conf_value_into(path, "RECORDING_FLAG_FILE");
    return path;
}

void touch_recording_flag_temp_file() {
    std::puts("touch_recording_flag_temp_file");
    const std::string path = recording_flag_path();
    const bool touched = !path.empty() && replace_file(path, "", 0666);
    std::puts(touched ? "touch succeeded" : "touch failed");
}

void remove_recording_flag_temp_file() {
    std::puts("remove_recording_flag_temp_file");
    std::puts(remove_file(recording_flag_path()) ? "remove succeeded" : "remove failed");
}

std::string recording_time_text(time_t instant) {
    tm parts{};
    localtime_r(&instant, &parts);
    char text[32];
    text[std::strftime(text, sizeof text, "%Y%m%d%H%M%S", &parts)] = '\0';
    return text;
}

void write_recording_log(time_t start, time_t end, const std::optional<std::string> &session_key) {
    const int length = static_cast<int>(end - start);
    std::printf("starttime: %ld, endtime: %ld, len: %d\n", static_cast<long>(start), static_cast<long>(end),
                length);
    set_media_folder();
    char name[28] = {};
    if (get_latest_mp4(g_dir, name, session_key) == 0) std::printf("get latest mp4 file: %s \n", name);
    const std::string line =
        format_text(kLineSize, "%s_%d_%s", recording_time_text(start).c_str(), length, name);
    std::printf("buffer:%s\n", line.c_str());
    std::printf("Recording log:%s\n", line.c_str());
    append(line + "\n");
}

void cancel_last_recording_log() {
    std::puts("*** cancel_last_recording_log ***");
    append("X");
}

int get_latest_mp4(const char *, char (&name)[28], const std::optional<std::string> &session_key) {
    char host[16];
    if (!conf_value_into(host, "hostIP")) {
        std::puts("read hostIP in login() failed.");
        return -1;
    }
    const auto reply = perform_curl(camera_url(host, "/CGI/VideoList"),
                                    session_key ? *session_key : wait_for_session_key(), "start=1&end=1");
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
    copy_text(name, before_control_character(*value));
    std::printf("(get_latest_mp4) latest mp4 is: %s\n", name);
    return 0;
}
