// What the cloud asks of the agent.
#include "actions.h"
#include "commands.h"
#include "show.h"

namespace {

constexpr Side kSdk = Side::sdk;

constexpr Command kCloudCommands[] = {
    {"read", "PARAMETER", "", "reads a parameter", "read md_armed", kSdk, "POST", "/call",
     R"({"name":"get_device_param","args":["$1"]})", show_value},
    {"write", "PARAMETER|ACTION VALUE", "", "writes a parameter or triggers an action", "write md_armed 1",
     kSdk, "POST", "/call", R"({"name":"set_device_param","args":["$1","$2"]})", show_result},
    {"status", "STATUS", "", "reads a status", "status Battery", kSdk, "POST", "/call",
     R"({"name":"get_device_status","args":["$1"]})", show_value},
    {"ptz", "OPERATION PARAM", "", "a remote operation", "ptz 30 1", kSdk, "POST", "/call",
     R"({"name":"ptz_direction_control","args":["#1","#2"]})", show_result},
    {"upgrade", "", "", "starts a firmware upgrade", "upgrade", kSdk, "POST", "/call",
     R"({"name":"set_device_param","args":["doOTA","1"]})", show_result},
    {"connection", "0|1", "", "the cloud connection is there (0) or lost (1)", "connection 1", kSdk, "POST",
     "/call", R"({"name":"notify_Z55_connection_status","args":["#1"]})", show_result},
    {"cloud-status", "", "", "the cloud-status codes sent so far", "cloud-status", kSdk, "GET",
     "/cloud_status"},
    {"token", "TOKEN|none", "", "what the token library gives out", "token none", kSdk, nullptr, "", "",
     nullptr, set_token},
};

constexpr Command kMediaCommands[] = {
    {"watch on", "", "", "a viewer comes", "watch on", kSdk, "PUT", "/watch", R"({"on":true})", show_viewer},
    {"watch off", "", "", "the viewer leaves", "watch off", kSdk, "PUT", "/watch", R"({"on":false})",
     show_viewer},
    {"frames", "", "", "counts of the frames that arrived", "frames", kSdk, "GET", "/frames", "",
     show_frames},
    {"save", "H264 AAC [LENGTH]", "", "saves ten or so many seconds of frames into two files",
     "save clip.h264 clip.aac 10", kSdk, nullptr, "", "", nullptr, save_frames},
    {"snapshot", "FILE [MODE]", "", "takes a picture", "snapshot photo.jpg 0", kSdk, nullptr, "", "", nullptr,
     take_snapshot},
    {"talk", "SOUND [real|fast|bent]", "", "plays a WAV file, or raw samples, at the camera",
     "talk hello.wav", kSdk, nullptr, "", "", nullptr, talk},
    {"record start", "SECONDS", "", "starts a recording of so many seconds; 0: until it is stopped",
     "record start 25", kSdk, "POST", "/call", R"({"name":"start_recording_video","args":["#1"]})",
     show_result},
    {"record stop", "", "", "stops it", "record stop", kSdk, "POST", "/call",
     R"({"name":"stop_recording_video","args":[]})", show_result},
    {"record log", "", "", "the recording log", "record log", kSdk, nullptr, "", "", nullptr, recording_log},
};

}  // namespace

std::span<const Command> cloud_commands() {
    return kCloudCommands;
}

std::span<const Command> media_commands() {
    return kMediaCommands;
}
