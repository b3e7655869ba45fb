// Recordings on the camera: start, stop, automatic cutting. The handlers are in exports.h:
// start_recording_video, stop_recording_video, autocut_recording, get_record_start_time.
//
// A start from outside (on one of the SDK's threads) that the camera takes makes a job: as many seconds as it
// asked for, or until somebody stops it. The cutting thread closes its pieces and starts the next ones. One
// thread at a time has the turn to start or stop; the states between are those of the turn's holder.
//
//          start              taken                 deadline of a piece
//   IDLE ---------> STARTING ---------> RECORDING ------------------------> CLOSING (cutting thread)
//    ^               |    ^              |     ^                             |  |  |
//    |   not taken   |    |         stop |     |          not taken          |  |  |
//    +---------------+    |              v     +-----------------------------+  |  |
//    |                    |           CLOSING (outside); not taken: RECORDING   |  |
//    |                    |              |                                      |  |
//    +--------------------|--------------+                                      |  |
//    |                    | next piece                                          |  |
//    |                    +----------------------- BETWEEN PIECES <-------------+  |
//    |                                 stop         |                              |
//    +----------------------------------------------+                              |
//    |                                                       last piece            |
//    +-----------------------------------------------------------------------------+
//
//   What comes from outside means, by the value of video_recording (V):
//
//   state               V   a stop                                     a start
//   IDLE                0   -1                                         makes a job
//   STARTING            0   -1, but ends the job: nothing more is      waits, then -10; makes a job where
//                           sent than the VIDEO_STOP for a             that start came to nothing
//                           VIDEO_START that has gone
//   RECORDING           1   closes the piece and ends the job: 0       -10
//   CLOSING, outside    1   waits, then -1                             -10
//   CLOSING, cutting    1   waits, then 0; ends the job                -10
//   BETWEEN PIECES      0   -1, but ends the job                       makes a job in place of the old one
//
// A CLOSING that the camera does not take changes nothing: a stop that has waited for it closes the piece
// itself, and a start that was stopped stands. A next piece that it does not take is asked for again at the
// next deadline where the job has a length, and ends it otherwise.
//
// Nobody waits for the cutting thread: a stop lets it sleep on, and it leaves when it wakes; a new job wakes
// it and is its own at once. Between two pieces, where it may wait for a session key to write the log line, a
// new job gets a thread of its own. The other waits are for the turn: a start takes up to three requests and
// 2 s, a stop two and 5 s, a start that is stopped both.
#ifndef Z55_VIDEO_RECORDING_H
#define Z55_VIDEO_RECORDING_H

// What is refused because a recording runs.
inline constexpr int kAlreadyRecording = -10;

// At start-up: stops a recording that the flag file tells of. Blocks for the stop.
void checkVideoRecording();

// Sleeps `seconds`, then stops the running recording.
void delayed_video_stop(long seconds);

#endif
