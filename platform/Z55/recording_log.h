// What recordings leave on the SD card and in files: the flag file of a running one, the log of finished
// ones, the name of the newest video.
#ifndef Z55_RECORDING_LOG_H
#define Z55_RECORDING_LOG_H

#include <ctime>
#include <optional>
#include <string>

// The flag file's path from the configuration; "" when it is not set.
std::string recording_flag_path();

// Create and delete the flag file, which exists while a recording is believed to run; a power cut changes
// nothing any more when they return.
void touch_recording_flag_temp_file();
void remove_recording_flag_temp_file();

// Appends the line of a recording that ran from `start` to `end` (seconds, as the camera's clock has them).
// Blocks for the request of the newest video's name, and without limit for a session key where none is given.
void write_recording_log(time_t start, time_t end, const std::optional<std::string> &session_key);

// Appends an X to the log: marks its last line as void.
void cancel_last_recording_log();

// Asks the camera for its newest video and copies its name, cut to fit and before any control character, into
// `name`. Returns 0, or -1 with `name` as it was. `directory` is not used. Blocks for one request, and
// without limit for a session key where none is given.
[[nodiscard]] int get_latest_mp4(const char *directory, char (&name)[28],
                                 const std::optional<std::string> &session_key = std::nullopt);

// "%Y%m%d%H%M%S" of `instant` in local time.
std::string recording_time_text(time_t instant);

#endif
