// A tap on the frames that the SDK is handed: copies each into a ring in a file (frame_ring.h), where others
// may look on. A copy of some microseconds is all that it costs the frame's thread: nobody who reads can hold
// it up, however slow.
#pragma once

#include "contract.h"

namespace desk {

// Makes the ring in the file that DESK_SDK_TAP names, beside it and renamed; nothing without that name.
// Called once, while the library loads.
void open_tap();

// The data must be whole. Called by one thread at a time; they do nothing while no tap is open.
void tap_video(const video_record &record);
void tap_audio(const audio_record &record);

}  // namespace desk
