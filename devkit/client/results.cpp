#include "results.h"

namespace {

struct ResultRow {
    const char *handler;  // null: any
    int result;
    const char *words;
};

// The first row that fits. Negative numbers are the agent's own or the camera's, positive ones libcurl's.
constexpr ResultRow kResults[] = {
    {nullptr, 0, "done"},
    {"start_recording_video", -10, "a recording runs already"},
    {"start_recording_video", -1, "the camera did not start it"},
    {"stop_recording_video", -1, "no recording runs, or the camera did not stop it"},
    {"set_device_param", -1,
     "it was not done: the camera did not answer or refused, or it cannot be done now"},
    {"set_device_param", 5, "the camera's setting lacks an element"},
    {"get_camera_snapshot", -99, "the picture could not be read from the card's files"},
    {"get_camera_snapshot", -1, "the camera did not answer"},
    {"get_camera_snapshot", 1, "the camera records, and takes no picture meanwhile"},
    {"rebootOperation", -1, "the reboot tool could not be started"},
    {"device_play_audio", -1, "not taken: too many clips at once"},
    {"login", -1, "the camera did not answer, or refused device, stream or password"},
    {nullptr, -1, "it failed"},
    {nullptr, -2, "the camera does not know the session"},
    {nullptr, -3, "the camera does not know the request"},
    {nullptr, -4, "the camera cannot use the document"},
    {nullptr, -5, "there is no SD card"},
    {nullptr, -6, "the camera is busy: an upgrade, or a recording"},
    {nullptr, -8, "the camera cannot write to its card"},
    {nullptr, 6, "no such host name"},
    {nullptr, 7, "the camera cannot be connected to"},
    {nullptr, 28, "the camera is too slow"},
    {nullptr, 52, "the camera closed without a word"},
    {nullptr, 56, "the connection to the camera broke"},
};

struct AlarmRow {
    int status;
    const char *words;
};

constexpr AlarmRow kAlarms[] = {
    {1, "motion"},
    {3, "sound"},
    {10, "too warm"},
    {11, "card nearly full"},
    {12, "cloud storage nearly full"},
    {13, "battery low"},
    {14, "too cold"},
    {15, "no card"},
    {17, "upgrade: download failed"},
    {18, "upgrade: starts"},
    {19, "upgrade: succeeded"},
    {20, "upgrade: failed"},
};

}  // namespace

std::string result_text(const std::string &handler, int result) {
    for (const ResultRow &row : kResults) {
        if (row.result == result && (row.handler == nullptr || handler == row.handler))
            return std::to_string(result) + ": " + row.words;
    }
    return std::to_string(result) + ": it failed";
}

std::string alarm_text(int status) {
    for (const AlarmRow &row : kAlarms) {
        if (row.status == status) return row.words;
    }
    return "alarm " + std::to_string(status);
}
