// Recordings and photos of the camera. All functions expect the camera's lock held; 0 or a camera_error.
#pragma once

#include "camera.h"

// Starts a recording: a video that grows until it is stopped, with its thumbnail and picture. Done already:
// 0.
int start_recording(Camera &cam);

// Ends the recording; 0 too when none runs.
int stop_recording(Camera &cam);

// Takes a photo; its file is on the card after the configured delay. `uri` gets the path on the card, from
// its root.
int take_photo(Camera &cam, std::string &uri);
