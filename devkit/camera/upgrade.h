// The camera's firmware upgrade: a walk through FwUpgradeStatus and FwDownloadProgress on the timer's thread.
#pragma once

#include "camera.h"

// Starts the walk that the configuration describes; 0, or camera_busy while one runs. The camera's lock is
// held.
int start_upgrade(Camera &cam);
