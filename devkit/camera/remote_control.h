// The actions of /CGI/RemoteControl.
#pragma once

#include <string>

#include "camera.h"
#include "xml.h"

// Carries out the action of a <RemoteControl> document (its elements). The camera's lock is held. Returns 0
// and what the reply says besides the action's name in `extra` (may stay empty), or a camera_error.
int remote_control(Camera &cam, const XmlElements &document, std::string &extra);
