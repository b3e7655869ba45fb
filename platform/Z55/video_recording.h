// Recordings on the camera: start, stop, automatic cutting. The handlers are in exports.h:
// start_recording_video, stop_recording_video, autocut_recording, get_record_start_time. Several threads; see
// the lock in video_recording.cpp.
#ifndef Z55_VIDEO_RECORDING_H
#define Z55_VIDEO_RECORDING_H

// At start-up: stops a recording that the flag file tells of. Blocks for the stop.
void checkVideoRecording();

// Sleeps `seconds`, then stops the running recording.
void delayed_video_stop(long seconds);

#endif
