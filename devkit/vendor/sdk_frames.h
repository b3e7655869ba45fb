// The frames that the SDK was handed: counts, the newest records word by word, and recordings to files.
// Called from any thread.
#pragma once

#include "contract.h"
#include "json_http.h"

namespace desk {

// Slots 7 and 0: keep what the record says and take its data over (freed here or, while a recording is on, by
// its writer).
void keep_video(const video_record &record);
void keep_audio(const audio_record &record);

json frame_counts();
json frame_records();
void forget_frames();

// Starts writing to the files (an empty path: that kind is left out); throws bad_request when one cannot be
// opened or a recording is on already.
void start_saving(const std::string &h264_path, const std::string &aac_path);
// Ends the recording once all is written, and tells what the files hold; throws bad_request when none is on.
json stop_saving();

}  // namespace desk
