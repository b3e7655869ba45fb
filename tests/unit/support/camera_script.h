// A camera's answers by command: a remote control's action ("VIDEO_START"), or what follows "/CGI/"
// ("CameraStatus?Recording").
#ifndef UNIT_SUPPORT_CAMERA_SCRIPT_H
#define UNIT_SUPPORT_CAMERA_SCRIPT_H

#include <map>
#include <string>
#include <vector>

#include "fake_camera.h"

// The replies to each command, in order; the last one stays. Other commands get a 404.
using CameraScript = std::map<std::string, std::vector<CameraReply>>;
void play_script(FakeCamera &camera, CameraScript script);

std::string command_of(const CameraRequest &request);

// The commands that the camera has seen so far.
Texts commands(const FakeCamera &camera);

// What the camera says to a remote control that it takes, and to one that it refuses.
CameraReply taken(const std::string &action);
CameraReply refused(int error_code);

// What the status reader prints (as marked_log leaves it) for a status that the camera knows as `key`.
std::string log_of_status(const std::string &name, const std::string &key, const std::string &value);

// Logs in with `key` as the main thread does: threads that wait for a key go on.
void log_in(FakeCamera &camera, const std::string &key);

#endif
