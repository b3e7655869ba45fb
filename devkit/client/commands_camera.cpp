// The camera and its surroundings.
#include "actions.h"
#include "commands.h"
#include "scenario.h"
#include "show.h"

namespace {

constexpr Side kCamera = Side::camera;

constexpr Command kCameraCommands[] = {
    {"camera state", "[MEMBER...]", "", "everything the camera knows, or one member",
     "camera state recording active", kCamera, "GET", "/state", "", show_member},
    {"camera set", "KEY VALUE", "", "sets a status", "camera set MotionEvent 1", kCamera, "PATCH", "/status",
     R"({"$1":"$2"})"},
    {"camera remove", "KEY", "", "takes a status out of the replies", "camera remove Battery", kCamera,
     "PATCH", "/status", R"({"$1":null})"},
    {"camera event", "KEY [POLLS] [VALUE]", "", "sets an event for one or so many polls",
     "camera event MotionEvent 3", kCamera, "POST", "/event", R"({"name":"$1","polls":"#2","value":"$3"})"},
    {"camera setting", "GROUP ELEMENT VALUE", "", "sets a setting",
     "camera setting MOTION_DETECTION ENABLE ON", kCamera, "PATCH", "/settings/$1", R"({"$2":"$3"})"},
    {"camera config", "PROPERTY VALUE", "", "sets a property of the simulation",
     "camera config photo_bytes 5000000", kCamera, "PATCH", "/config", R"({"$1":"#2"})"},
    {"camera requests", "[N]", "", "the requests it got, or the last N", "camera requests 5", kCamera, "GET",
     "/requests?limit=$1", "", show_requests},
    {"camera forget", "", "", "forgets the requests", "camera forget", kCamera, "DELETE", "/requests"},
    {"camera audio", "CLIP FILE", "", "saves a clip that it got to play, counted from 1",
     "camera audio 1 heard.wav", kCamera, nullptr, "", "", nullptr, save_audio},
    {"camera photo", "FILE", "", "saves the last photo that it took", "camera photo last.jpg", kCamera,
     nullptr, "", "", nullptr, save_photo},
};

constexpr Command kFaultCommands[] = {
    {"camera fault", "ENDPOINT MISBEHAVIOUR [DETAIL...]", "",
     "orders a misbehaviour; DETAIL: its main value, how often, NAME=VALUE",
     "camera fault CameraStatus http_status 500 3", kCamera, nullptr, "", "", nullptr, order_fault},
    {"camera faults", "", "", "the misbehaviours in force", "camera faults", kCamera, "GET", "/faults"},
    {"camera heal", "", "", "ends all misbehaviour", "camera heal", kCamera, "DELETE", "/faults"},
    {"camera expire", "", "", "ends all sessions", "camera expire", kCamera, "POST", "/session/expire"},
    {"camera restart", "", "", "restarts it, with other session keys", "camera restart", kCamera, "POST",
     "/restart"},
    {"camera vanish", "", "", "takes it off the network, silently", "camera vanish", kCamera, "POST",
     "/vanish"},
    {"camera appear", "", "", "brings it back", "camera appear", kCamera, "POST", "/appear"},
    {"camera refuse", "", "", "closes its port", "camera refuse", kCamera, "POST", "/refuse"},
    {"camera accept", "", "", "opens it again", "camera accept", kCamera, "POST", "/accept"},
    {"run", "SCENARIO", "", "runs a script of troubles; ends with questions and their answers",
     "run router-restart", Side::console, nullptr, "", "", nullptr, run_scenario},
};

}  // namespace

std::span<const Command> camera_commands() {
    return kCameraCommands;
}

std::span<const Command> fault_commands() {
    return kFaultCommands;
}
