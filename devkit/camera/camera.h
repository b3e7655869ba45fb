// The camera's state and what changes it as a whole: sessions, events, restart. One lock guards it all; every
// function below expects it held unless it says otherwise, none blocks for longer than a small file takes.
#pragma once

#include <cstddef>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "json.h"
#include "task_timer.h"

// The numbers that the camera puts into <ErrorCode>.
enum CameraError {
    login_refused = -1,
    unknown_session = -2,
    unknown_request = -3,
    unusable_document = -4,
    no_sd_card = -5,
    camera_busy = -6,
    write_error = -8,
};

struct Camera {
    // Fixed after the start.
    std::filesystem::path card;              // the SD card's folder
    std::function<void()> drop_connections;  // ends all CGI connections; takes no camera lock
    std::function<void()> run_reboot_tool;   // starts the tool if one is set and returns at once

    mutable std::mutex lock;  // guards everything down to the timer

    json status;    // {"Battery":"90"}: texts
    json settings;  // {"MOTION_DETECTION":{"ENABLE":"OFF"}}: texts
    json config;
    std::map<std::string, int> events;  // status names with the queries that are still to see them
    json time_document;                 // elements of the time that was set last, or null
    json fw_upgrade;                    // what FW_UPGRADE was set to since the start, or null
    std::string stream = "RTP_H264_WQVGA";

    std::deque<std::string> sessions;  // valid keys, newest last
    unsigned next_session = 1;
    int logins = 0, restarts = 0, formats = 0, photos = 0;

    bool recording = false;
    std::string recording_name;    // of the last video, without extension; empty before the first
    unsigned recording_count = 0;  // tells the growth of one recording from that of the next
    unsigned upgrade_count = 0;    // likewise for upgrades

    bool speaker_on = false;
    std::deque<std::string> audio_clips;  // the newest, see audio_clips_kept
    std::size_t audio_clip_count = 0;
    std::string last_photo;

    TaskTimer timer;  // its tasks take the lock themselves

    explicit Camera(double speed);
};

constexpr std::size_t kAudioClipsKept = 128;

// A new valid key (digits); older ones end where the configuration says so or there are too many.
std::string add_session(Camera &cam);

bool session_valid(const Camera &cam, const std::string &key);

// The value of a status for one query of it (counts down an event), or null when there is no such status.
json query_status(Camera &cam, const std::string &name);

// The status is `value` for the next `polls` (1 and more) queries that ask for it, "0" after that.
void raise_event(Camera &cam, const std::string &name, const std::string &value, int polls);

// Sets elements of a setting group; the temperature limits show in the status too.
void change_settings(Camera &cam, const std::string &group, const json &elements);

// The camera restarts: see README. Call WITHOUT the lock; takes it.
void restart_camera(Camera &cam);
