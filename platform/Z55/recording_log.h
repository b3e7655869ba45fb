// What recordings leave on the SD card and in files: the flag file of a running one, the log of finished
// ones, the name of the newest video.
#ifndef Z55_RECORDING_LOG_H
#define Z55_RECORDING_LOG_H

#include <ctime>
#include <string>

// The flag file's path from the configuration; "" when it is not set.
std::string recording_flag_path();

// Create and delete the flag file, which exists while a recording is believed to run.
void touch_recording_flag_temp_file();
void remove_recording_flag_temp_file();

// Appends the line of a recording that ran from `start` to `end` (seconds, as the camera's clock has them).
// Blocks for the request of the newest video's name. The caller serialises.
void write_recording_log(time_t start, time_t end);

// Appends an X to the log: marks its last line as void.
void cancel_last_recording_log();

// Asks the camera for its newest video and copies its name, cut to fit, into `name`. Returns 0, or -1 with
// `name` as it was. `directory` is not used. Blocks for a session key and one request.
int get_latest_mp4(const char *directory, char (&name)[28]);

// "%Y%m%d%H%M%S" of `instant` in local time.
std::string recording_time_text(time_t instant);

#endif
