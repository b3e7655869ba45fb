// One piece of a recording: what is asked of the camera, and what is left behind, to start it and to close
// it. For the thread that holds the turn; both block for the camera.
#ifndef Z55_RECORDING_PIECE_H
#define Z55_RECORDING_PIECE_H

#include <ctime>

#include "recording_job.h"

inline constexpr int kNotRecording = -1;

// Starts a piece of a job that has `length` seconds left. `cutter`: of the cutting thread; null for a start
// from outside. True when the piece runs. Else `result` is that of start_recording_video: -1 for a transport
// failure, or the camera's error code, which may be 0. A stop from outside that comes meanwhile gives -1 too:
// what the camera has begun is closed then, and the turn over.
[[nodiscard]] bool start_piece(Turn &turn, long length, const Cutter *cutter, int &result);

// Closes the piece that began at `start` (0: nobody knows, and no log line is written). `cutter`: as above.
// True when it is closed and the turn over; else `result` is that of stop_recording_video, and everything
// stays as it is. Where no session key is held, the turn is over before it waits for one, without limit, to
// name the file in the log line.
[[nodiscard]] bool close_piece(Turn &turn, time_t start, const Cutter *cutter, int &result);

#endif
