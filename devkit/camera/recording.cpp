#include "recording.h"

#include "jpeg.h"
#include "media.h"

namespace {

constexpr double kGrowthMs = 500;
constexpr std::size_t kGrowthBytes = 32 * 1024;
constexpr std::size_t kLargestVideo = 4 * 1024 * 1024;  // a long recording must not fill a small card

std::filesystem::path media_file(const Camera &cam, const std::string &name, const char *extension) {
    return media_folder(cam.card) / (name + extension);
}

void grow_recording(Camera &cam, unsigned count, std::size_t bytes) {
    std::lock_guard guard(cam.lock);
    if (!cam.recording || cam.recording_count != count) return;
    const std::size_t grown = bytes + kGrowthBytes;
    if (grown > kLargestVideo) return;
    append_video_piece(media_file(cam, cam.recording_name, ".MP4"), kGrowthBytes);
    cam.timer.after_ms(kGrowthMs, [&cam, count, grown] { grow_recording(cam, count, grown); });
}

// The lock is held.
void finish_photo(Camera &cam, const std::string &name) {
    const auto seed = static_cast<unsigned>(++cam.photos);
    cam.last_photo = make_jpeg(640, 480, seed, cam.config["photo_bytes"]);
    write_media_file(media_file(cam, name, ".JPG"), cam.last_photo);
}

}  // namespace

int start_recording(Camera &cam) {
    if (cam.status.value("SD", "") == "0") return no_sd_card;
    if (cam.config["recording_ignore"] > 0) {
        cam.config["recording_ignore"] = cam.config["recording_ignore"].get<int>() - 1;
        return 0;
    }
    cam.status["Recording"] = "1";
    if (cam.recording) return 0;
    const std::string name = next_media_name(cam.card);
    const unsigned count = ++cam.recording_count;
    if (!write_media_file(media_file(cam, name, ".MP4"), video_header()) ||
        !write_media_file(media_file(cam, name, ".THM"), make_jpeg(160, 120, count, 0)) ||
        !write_media_file(media_file(cam, name, ".JPG"), make_jpeg(640, 480, count, 0))) {
        cam.status["Recording"] = "0";
        return write_error;
    }
    cam.recording = true;
    cam.recording_name = name;
    cam.timer.after_ms(kGrowthMs, [&cam, count] { grow_recording(cam, count, 0); });
    return 0;
}

int stop_recording(Camera &cam) {
    cam.recording = false;
    cam.status["Recording"] = "0";
    return 0;
}

int take_photo(Camera &cam, std::string &uri) {
    if (cam.status.value("SD", "") == "0") return no_sd_card;
    if (cam.recording) return camera_busy;
    const std::string name = next_media_name(cam.card);
    // The thumbnail is there at once and takes the name: a second photo must get another.
    const auto seed = static_cast<unsigned>(cam.photos + 1);
    if (!write_media_file(media_file(cam, name, ".THM"), make_jpeg(160, 120, seed, 0))) return write_error;
    uri = "/" + media_file(cam, name, ".JPG").lexically_relative(cam.card).generic_string();
    const int delay = cam.config["photo_delay_ms"];
    if (delay > 0) {
        cam.timer.after_ms(delay, [&cam, name] {
            std::lock_guard guard(cam.lock);
            finish_photo(cam, name);
        });
    } else {
        finish_photo(cam, name);  // there before the reply, however busy the machine is
    }
    return 0;
}
