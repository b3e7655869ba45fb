#include "state_view.h"

namespace {

json camera_json(const Camera &cam) {
    std::lock_guard guard(cam.lock);
    json shown;
    shown["status"] = cam.status;
    shown["settings"] = cam.settings;
    shown["config"] = cam.config;
    shown["time"] = cam.time_document;
    shown["fw_upgrade"] = cam.fw_upgrade;
    shown["stream"] = cam.stream;
    const std::string &name = cam.recording_name;
    shown["recording"] = {{"active", cam.recording}, {"name", name.empty() ? json() : json(name + ".MP4")}};
    shown["lullaby"] = {{"play", cam.status.value("LullabyPlay", "")},
                        {"mode", cam.status.value("LullabyMode", "")},
                        {"song", cam.status.value("LullabySong", "")},
                        {"volume", cam.status.value("LullabyVolume", "")}};
    shown["night_light"] = cam.status.value("Nightlight", "");
    shown["speaker"] = cam.speaker_on;
    shown["audio_clips"] = cam.audio_clip_count;
    shown["last_audio_bytes"] = cam.audio_clips.empty() ? 0 : cam.audio_clips.back().size();
    shown["photos"] = cam.photos;
    shown["formats"] = cam.formats;
    shown["restarts"] = cam.restarts;
    shown["logins"] = cam.logins;
    shown["sessions"] = cam.sessions;
    shown["events"] = cam.events;
    return shown;
}

}  // namespace

json state_json(const Camera &cam, Journal &log, CgiServer &cgi) {
    json shown = camera_json(cam);
    shown["network"] = cgi.network_state();
    shown.update(cgi.counts());
    std::lock_guard guard(log.lock);
    shown["requests_total"] = log.last_seq;
    shown["counters"] = log.counters;
    return shown;
}
