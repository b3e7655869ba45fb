#include "remote_control.h"

#include <algorithm>

#include "media.h"
#include "recording.h"
#include "upgrade.h"

namespace {

int lullaby(Camera &cam, const XmlElements &document, std::string &) {
    bool understood = false;
    for (const auto &[element, status] :
         {std::pair("Setting", "LullabyPlay"), std::pair("Mode", "LullabyMode"),
          std::pair("Song", "LullabySong"), std::pair("Volume", "LullabyVolume")}) {
        const auto value = find_element(document, element);
        if (!value) continue;
        cam.status[status] = *value == "RESUME" ? "ON" : *value;
        understood = true;
    }
    return understood ? 0 : unusable_document;
}

int night_light(Camera &cam, const XmlElements &document, std::string &) {
    const auto setting = find_element(document, "Setting");
    if (!setting) return unusable_document;
    cam.status["Nightlight"] = *setting;
    return 0;
}

int format_card(Camera &cam, const XmlElements &, std::string &) {
    if (cam.status.value("SD", "") == "0") return no_sd_card;
    if (cam.recording) return camera_busy;
    ++cam.formats;
    return empty_card(cam.card) ? 0 : write_error;
}

int change_stream(Camera &cam, const XmlElements &document, std::string &) {
    const auto name = find_element(document, "STREAM");
    const auto known = {"RTP_H264_WQVGA", "RTP_H264_WVGA", "RTP_H264_HD"};
    if (!name || std::find(known.begin(), known.end(), *name) == known.end()) return unusable_document;
    cam.stream = *name;
    return 0;
}

int upgrade_firmware(Camera &cam, const XmlElements &, std::string &) {
    return start_upgrade(cam);
}

int video_start(Camera &cam, const XmlElements &, std::string &) {
    const int refusal = cam.config["recording_refuse"];
    return refusal != 0 ? refusal : start_recording(cam);
}

int video_stop(Camera &cam, const XmlElements &, std::string &) {
    return stop_recording(cam);
}

int photo(Camera &cam, const XmlElements &, std::string &extra) {
    std::string uri;
    const int error = take_photo(cam, uri);
    extra = xml_element("URI", uri);
    return error;
}

int speaker_on(Camera &cam, const XmlElements &, std::string &) {
    cam.speaker_on = true;
    return 0;
}

constexpr struct {
    const char *name;
    int (*run)(Camera &cam, const XmlElements &document, std::string &extra);
} kActions[] = {
    {"LULLABY", lullaby},
    {"NIGHT_LIGHT", night_light},
    {"FORMATSD", format_card},
    {"STREAM_CHANGE", change_stream},
    {"UPGRADE_FW", upgrade_firmware},
    {"VIDEO_START", video_start},
    {"VIDEO_STOP", video_stop},
    {"PHOTO_TO_MOBILE", photo},
    {"AUDIO_ON", speaker_on},
};

}  // namespace

int remote_control(Camera &cam, const XmlElements &document, std::string &extra) {
    const auto name = find_element(document, "Action");
    if (!name) return unusable_document;
    for (const auto &action : kActions)
        if (*name == action.name) return action.run(cam, document, extra);
    return unknown_request;
}
