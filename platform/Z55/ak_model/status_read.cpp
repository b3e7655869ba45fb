#include "status_read.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string_view>
#include <utility>

#include "../agent/loginout.h"
#include "../agent/utils/files.h"
#include "../agent/utils/reply.h"
#include "../agent/utils/reply_text.h"
#include "../agent/utils/shell_file.h"
#include "../agent/utils/text.h"
#include "../exports.h"
#include "../log_sources.h"
#include "../z55cgi.h"
#include "handler_value.h"

namespace {

// A df query: its command, the file that the command fills, and the lock around both, which is held until the
// command ends (61 s at most).
struct CardQuery {
    const char *command;
    const char *file;
    std::mutex lock;
};

constinit CardQuery total_query{
    "sh -c 'df -m' | /bin/grep /tmp/fuse_d  | /usr/bin/awk '{print $2}' > /tmp/total", "/tmp/total", {}};
constinit CardQuery space_query{
    "sh -c 'df -m' | /bin/grep /tmp/fuse_d  | /usr/bin/awk '{print $4}' > /tmp/space", "/tmp/space", {}};

constexpr size_t kLongestVersionText = 16384;

enum class Source { camera, card_total, card_space, firmware, constant };

struct Status {
    const char *name;
    Source source;
    const char *key;  // the camera's status key and element, or the constant's text
};

constexpr Status kStatuses[] = {
    {"Battery", Source::camera, "Battery"},
    {"Adapt", Source::camera, "Adaptor"},
    {"firmware_newver", Source::camera, "NewFirmwareVersion"},
    {"Sdcard", Source::camera, "SD"},
    {"sdcardquota", Source::card_space, nullptr},
    {"Sdsize", Source::card_total, nullptr},
    {"Upgrade_SW_status", Source::camera, "FwUpgradeStatus"},
    {"Upgrade_SW_process", Source::camera, "FwDownloadProgress"},
    {"firmware_ver", Source::firmware, nullptr},
    {"Temp_now_status", Source::camera, "Temperature"},
    {"LullabyPlay", Source::camera, "LullabyPlay"},
    {"LullabySong", Source::camera, "LullabySong"},
    {"LullabyTime", Source::camera, "LullabyTime"},
    {"LullabyPlayingTime", Source::camera, "LullabyPlayingTime"},
    {"LullabyMode", Source::camera, "LullabyMode"},
    {"LullabyVolume", Source::camera, "LullabyVolume"},
    {"Nightlight", Source::camera, "Nightlight"},
    {"Recording", Source::camera, "Recording"},
    {"resolution_capability", Source::constant, "788480"},
};

const Status *find_status(const char *name) {
    for (const Status &status : kStatuses) {
        if (std::strcmp(status.name, name) == 0) return &status;
    }
    return nullptr;
}

std::optional<std::string> camera_value(const char *key) {
    const auto reply = get_status(key);
    if (!reply) {
        log_no_reply(__LINE__);
        return std::nullopt;
    }
    auto value = find_xml_value(*reply, key);
    std::printf("!!!***%s %d ***!!!\n xml_value %s find\n", kModelSource, __LINE__,
                value ? value->c_str() : "(null)");
    if (!value) std::fprintf(stderr, "local_response is null: (%s, %d)\n", kModelSource, __LINE__);
    return value;
}

// The first line of df's answer, read one character short of the file's end: that drops a single line's line
// end. "" when df said nothing or failed; nothing without an output file.
std::optional<std::string> card_number(CardQuery &query) {
    const std::lock_guard<std::mutex> lock(query.lock);
    const auto text = shell_file_text(query.command, query.file);
    if (!text) return std::nullopt;
    if (text->empty()) return "";
    std::string_view rest(text->data(), std::min(text->size(), kValueSize) - 1);
    return std::string(next_line(rest));
}

std::optional<std::string> firmware_value() {
    auto version = read_firmware_version();
    if (version) std::printf("FirmwareVer *get_result = %s\n", version->c_str());
    return version;
}

// The status's value; "" where df said nothing; nothing where it could not be had.
std::optional<std::string> read_value(const Status &status) {
    switch (status.source) {
        case Source::camera:
            return camera_value(status.key);
        case Source::card_total:
            return card_number(total_query);
        case Source::card_space:
            return card_number(space_query);
        case Source::firmware:
            return firmware_value();
        case Source::constant:
            return status.key;
    }
    return std::nullopt;
}

bool is_card_number(const Status &status) {
    return status.source == Source::card_total || status.source == Source::card_space;
}

}  // namespace

std::optional<std::string> read_firmware_version() {
    const File file = open_regular(kFirmwareVersionFile);
    const auto text =
        file ? read_stream(file.get(), kFirmwareVersionFile, kLongestVersionText) : std::nullopt;
    if (!text) return std::nullopt;
    std::string line;
    for (std::string_view rest = *text; !rest.empty();) {
        line = next_line(rest);
        std::printf("Retrieved line of length %zu :\n", line.size());
        std::printf("%s", line.c_str());
    }
    return line;
}

std::optional<std::string> read_device_status(const char *name) {
    std::printf("!!!***%s %d ***!!!\n status_name=%s\n , status_length =%d\n", kModelSource, __LINE__, name,
                static_cast<int>(std::strlen(name)));
    const Status *status = find_status(name);
    if (status == nullptr) {
        std::puts("get_device_param This parameter undefined");
        return std::nullopt;
    }
    auto text = read_value(*status);
    if (!text) return std::nullopt;
    // An empty df answer (no card) leaves the name: the cloud knows it as such.
    if (text->empty() && is_card_number(*status)) text = name;
    std::printf("!!!***%s %d ***!!! status_name=%s\n", kModelSource, __LINE__, name);
    return cut_to_buffer(*std::move(text), kValueSize);
}

std::string device_status(const char *name) {
    return read_device_status(name).value_or("ERROR");
}

int get_device_status(const char *name, char **value) {
    char *buffer = new_handler_value(value);
    const auto text = read_device_status(text_or_empty(name));
    return text ? set_handler_value(buffer, *text) : set_handler_error(buffer);
}
