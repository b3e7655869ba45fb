// get_camera_snapshot: a still picture for the cloud, taken by the camera now or read from its newest
// thumbnail. Any SDK thread; blocks for a session key, the requests and the camera's writing of the photo.
#include <dirent.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "../agent/session_key.h"
#include "../agent/utils/files.h"
#include "../agent/utils/os.h"
#include "../agent/utils/reply_text.h"
#include "../agent/utils/text.h"
#include "../device.h"
#include "../exports.h"
#include "../log_sources.h"
#include "../shared.h"
#include "../z55cgi.h"

namespace {

constexpr char kThumbnail[] = ".THM";
constexpr int kPictureKind = 11;
constexpr int kLocalFailure = -99;
constexpr long kPhotoDelayMilliseconds = 3000;
// In bytes; what is larger is no thumbnail and not worth the memory.
constexpr off_t kLargestThumbnail = 32 * 1024 * 1024;

// A picture in one malloc block.
struct Picture {
    std::unique_ptr<uint8_t, decltype(&std::free)> data{nullptr, std::free};
    uint32_t length = 0;
};

// The SDK may look at the picture it has until the new one is whole, so that goes only now.
void hand_over(Picture picture, snapshot_record &record) {
    std::free(record.data);
    record.data = picture.data.release();
    record.length = picture.length;
}

int fetch_photo(snapshot_record &record, const char *path) {
    photo_buffer photo{};
    const int result = z55_get_photo(&photo, path);
    Picture picture;
    picture.data.reset(reinterpret_cast<uint8_t *>(photo.data));
    picture.length = photo.count;
    if (result == 0) hand_over(std::move(picture), record);
    return result;
}

// Whether the camera is idle; else `result` is what the cloud gets.
bool is_idle(const std::string &key, int &result) {
    std::string reply;
    result = getSingleCameraStatus(key, "Recording", reply);
    if (result != 0) {
        std::printf("curl_res = %d != 0 \n --%s,line %d--\n", result, kModelSource, __LINE__);
        return false;
    }
    const auto recording = find_xml_value(reply, "Recording");
    if (!recording) {
        result = error_code_number(reply);
        store_shared(res, result);
        std::printf("VIDEO_START ErrorCode: %d\n", result);
        return false;
    }
    result = to_int(recording->c_str());
    return result == 0;
}

int take_photo(snapshot_record &record, const std::string &key) {
    int result = 0;
    if (!is_idle(key, result)) return result;
    std::string reply;
    const int sent = easyRemoteControl(key, "PHOTO_TO_MOBILE", reply);
    store_shared(res, sent);
    const int code = error_code_number(reply);
    if (reply.find("PHOTO_TO_MOBILE") == std::string::npos) {
        std::printf("PHOTO_TO_MOBILE  ErrorCode: %d\n", code);
        return code != 0 ? code : sent;
    }
    const auto uri = find_xml_value(reply, "URI");
    // Anything but a path could turn what stands before it into a login and name another host.
    if (!uri || !uri->starts_with('/')) return code != 0 ? code : -1;
    const std::string path = cut_to_buffer(*uri, 32);
    sleep_milliseconds(kPhotoDelayMilliseconds);
    return fetch_photo(record, path.c_str());
}

bool is_thumbnail(const char *name) {
    const char *extension = std::strchr(name, '.');
    return extension != nullptr && std::strncmp(extension, kThumbnail, std::strlen(kThumbnail)) == 0;
}

// The thumbnail that comes last by name; "" when there is none.
std::string newest_thumbnail() {
    std::string newest;
    DIR *folder = opendir(kMediaFolder);
    if (folder == nullptr) {
        if (errno != ENOENT) std::printf("folder not read, %s:%s\n", kMediaFolder, std::strerror(errno));
        return newest;
    }
    while (const dirent *entry = readdir(folder)) {
        if (is_thumbnail(entry->d_name) && newest < entry->d_name) newest = entry->d_name;
    }
    closedir(folder);
    return newest;
}

// The size of an open thumbnail in bytes; nothing when it is larger than any.
std::optional<uint32_t> thumbnail_size(FILE *file) {
    struct stat now {};
    if (fstat(fileno(file), &now) != 0 || now.st_size > kLargestThumbnail) return std::nullopt;
    return static_cast<uint32_t>(now.st_size);
}

int read_file(snapshot_record &record, const std::string &path) {
    const File file = open_regular(path.c_str());
    const auto size = file ? thumbnail_size(file.get()) : std::nullopt;
    if (!size) {
        std::puts("open file failed");
        return kLocalFailure;
    }
    Picture picture;
    picture.length = *size;
    picture.data.reset(static_cast<uint8_t *>(std::malloc(*size > 0 ? *size : 1)));
    if (!picture.data) {
        std::puts("realloc memory failed");
        return kLocalFailure;
    }
    if (std::fread(picture.data.get(), 1, *size, file.get()) != *size) {
        std::puts("fread file failed");
        return kLocalFailure;
    }
    hand_over(std::move(picture), record);
    return 0;
}

int read_newest_thumbnail(snapshot_record &record) {
    const std::string name = newest_thumbnail();
    if (name.empty()) return kLocalFailure;
    std::printf("JPG_File_is:%s\n", name.c_str());
    return read_file(record, kMediaFolder + name);
}

}  // namespace

int get_camera_snapshot(snapshot_record *record, int mode) {
    if (record == nullptr) return -1;
    record->word0 = 0;
    record->kind = kPictureKind;
    record->byte8 = 0;
    record->word3 = 1;
    record->word4 = 0;
    record->word5 = 0;
    record->capture_time = static_cast<int32_t>(wall_seconds());
    const std::string key = wait_for_session_key();
    return mode == 0 ? take_photo(*record, key) : read_newest_thumbnail(*record);
}
