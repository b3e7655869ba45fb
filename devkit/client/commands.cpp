#include "commands.h"

#include "actions.h"
#include "show.h"

namespace {

constexpr Side kCamera = Side::camera, kSdk = Side::sdk;

constexpr Command kCommands[] = {
    // The camera and its surroundings.
    {"camera state", "[MEMBER...]", 0, kAny, "everything the camera knows, or one member (recording active)",
     kCamera, "GET", "/state", "", show_member},
    {"camera set", "KEY VALUE", 2, 2, "sets a status (MotionEvent 1)", kCamera, "PATCH", "/status",
     R"({"$1":"$2"})"},
    {"camera remove", "KEY", 1, 1, "takes a status out of the replies", kCamera, "PATCH", "/status",
     R"({"$1":null})"},
    {"camera event", "NAME [POLLS] [VALUE]", 1, 3, "sets an event for one or so many polls", kCamera, "POST",
     "/event", R"({"name":"$1","polls":"#2","value":"$3"})"},
    {"camera setting", "GROUP ELEMENT VALUE", 3, 3, "sets a setting (MOTION_DETECTION ENABLE ON)", kCamera,
     "PATCH", "/settings/$1", R"({"$2":"$3"})"},
    {"camera config", "KEY VALUE", 2, 2, "sets a property of the simulation (photo_bytes 5000000)", kCamera,
     "PATCH", "/config", R"({"$1":"#2"})"},
    {"camera requests", "[N]", 0, 1, "the requests it got, or the last N", kCamera, "GET",
     "/requests?limit=$1", "", show_requests},
    {"camera forget", "", 0, 0, "forgets the requests", kCamera, "DELETE", "/requests"},
    {"camera fault", "ENDPOINT KIND [VALUE] [COUNT] [NAME=VALUE...]", 2, kAny,
     "orders a misbehaviour (CameraStatus http_status 500 3)", kCamera, nullptr, "", "", nullptr,
     order_fault},
    {"camera faults", "", 0, 0, "the misbehaviours in force", kCamera, "GET", "/faults"},
    {"camera heal", "", 0, 0, "ends all misbehaviour", kCamera, "DELETE", "/faults"},
    {"camera expire", "", 0, 0, "ends all sessions", kCamera, "POST", "/session/expire"},
    {"camera restart", "", 0, 0, "restarts it, with other session keys", kCamera, "POST", "/restart"},
    {"camera vanish", "", 0, 0, "takes it off the network, silently", kCamera, "POST", "/vanish"},
    {"camera appear", "", 0, 0, "brings it back", kCamera, "POST", "/appear"},
    {"camera refuse", "", 0, 0, "closes its port", kCamera, "POST", "/refuse"},
    {"camera accept", "", 0, 0, "opens it again", kCamera, "POST", "/accept"},
    {"camera audio", "N FILE", 2, 2, "saves the Nth clip that it got to play", kCamera, nullptr, "", "",
     nullptr, save_audio},
    {"camera photo", "FILE", 1, 1, "saves the last photo that it took", kCamera, nullptr, "", "", nullptr,
     save_photo},

    // The cloud.
    {"state", "[MEMBER...]", 0, kAny, "everything the SDK knows, or one member", kSdk, "GET", "/state", "",
     show_member},
    {"alarms", "[SINCE]", 0, 1, "the alarm records, or those after a sequence number", kSdk, "GET",
     "/alarms?since=$1", "", show_alarms},
    {"read", "NAME", 1, 1, "reads a parameter (md_armed)", kSdk, "POST", "/call",
     R"({"name":"get_device_param","args":["$1"]})", show_result},
    {"write", "NAME VALUE", 2, 2, "writes a parameter (md_armed 1)", kSdk, "POST", "/call",
     R"({"name":"set_device_param","args":["$1","$2"]})", show_result},
    {"status", "NAME", 1, 1, "reads a status (Battery)", kSdk, "POST", "/call",
     R"({"name":"get_device_status","args":["$1"]})", show_result},
    {"ptz", "COMMAND PARAM", 2, 2, "a remote operation (30 1: night light on)", kSdk, "POST", "/call",
     R"({"name":"ptz_direction_control","args":["#1","#2"]})", show_result},
    {"record start", "SECONDS", 1, 1, "starts a recording, cut when that long", kSdk, "POST", "/call",
     R"({"name":"start_recording_video","args":["#1"]})", show_result},
    {"record stop", "", 0, 0, "stops it", kSdk, "POST", "/call",
     R"({"name":"stop_recording_video","args":[]})", show_result},
    {"record log", "", 0, 0, "the recording log", kSdk, nullptr, "", "", nullptr, recording_log},
    {"upgrade", "", 0, 0, "starts a firmware upgrade", kSdk, "POST", "/call",
     R"({"name":"set_device_param","args":["doOTA","1"]})", show_result},
    {"snapshot", "FILE [MODE]", 1, 2, "takes a picture", kSdk, nullptr, "", "", nullptr, take_snapshot},
    {"talk", "FILE [real|fast]", 1, 2, "plays 12 kHz mono 16-bit samples or WAV at the camera", kSdk, nullptr,
     "", "", nullptr, talk},
    {"watch on", "", 0, 0, "a viewer comes", kSdk, "PUT", "/watch", R"({"on":true})", show_calls},
    {"watch off", "", 0, 0, "the viewer leaves", kSdk, "PUT", "/watch", R"({"on":false})", show_calls},
    {"frames", "", 0, 0, "counts of the frames that arrived", kSdk, "GET", "/frames", "", show_frames},
    {"save", "H264 AAC [SECONDS]", 2, 3, "saves ten or so many seconds of frames", kSdk, nullptr, "", "",
     nullptr, save_frames},
    {"connection", "0|1", 1, 1, "the cloud connection is there (0) or lost (1)", kSdk, "POST", "/call",
     R"({"name":"notify_Z55_connection_status","args":["#1"]})", show_result},
    {"cloud-status", "", 0, 0, "the cloud-status codes sent so far", kSdk, "GET", "/cloud_status"},
    {"token", "TOKEN|none", 1, 1, "what the token library gives out", kSdk, nullptr, "", "", nullptr,
     set_token},
    {"capture", "KEY VALUE", 2, 2, "sets a property of the capture library (stalled true)", kSdk, "PUT",
     "/capture", R"({"$1":"#2"})"},
    {"reboot", "", 0, 0, "reboots the device", kSdk, nullptr, "", "", nullptr, reboot_device},
    {"call", "NAME [ARGUMENT...]", 1, kAny, "calls any exported handler", kSdk, nullptr, "", "", nullptr,
     call_handler},
    {"variable", "NAME", 1, 1, "reads an exported variable", kSdk, "GET", "/variable?name=$1"},
    {"variable-set", "NAME NUMBER", 2, 2, "sets an exported number", kSdk, "PUT", "/variable",
     R"({"name":"$1","value":"#2"})"},

    // The device.
    {"cat", "PATH", 1, 1, "prints a file of the device", kSdk, nullptr, "", "", nullptr, print_file},
    {"ls", "PATH", 1, 1, "lists a folder of the device", kSdk, nullptr, "", "", nullptr, list_folder},

    {"send", "camera|sdk METHOD PATH [JSON]", 3, 4, "any other request of the two interfaces", kSdk, nullptr,
     "", "", nullptr, send_plain},
};

}  // namespace

std::span<const Command> all_commands() {
    return kCommands;
}
