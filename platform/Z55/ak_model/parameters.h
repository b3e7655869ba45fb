// The cloud's parameters as data: each name once, with where its value lives. Reader and writer act on these
// rows.
#ifndef Z55_AK_MODEL_PARAMETERS_H
#define Z55_AK_MODEL_PARAMETERS_H

#include <mutex>

// A setting group of the camera, which takes it only as a whole.
struct CameraGroup {
    const char *name;
    const char *elements[3];  // in the order of the document; unused ones null
    // Held from reading the group to having posted it, so that two changes of one group both last. It
    // serialises only the writers of this group; readers never take it.
    std::mutex writing;
};

enum class ParameterKind {
    camera_switch,         // 0 or 1, "OFF" or "ON" at the camera
    camera_half,           // a number that is halved on its way to the camera
    camera_number,         // a number
    configuration_switch,  // "0" or "1" in the configuration
    configuration_text,    // any text in the configuration
    resolution,            // the stream profile
};

struct Parameter {
    const char *name;
    ParameterKind kind;
    bool readable = true;
    // Where a camera's value lives.
    CameraGroup *group = nullptr;
    const char *element = nullptr;
    const char *complaint = nullptr;  // logged for a camera switch's value that is neither 0 nor 1
    // Where a configuration's value lives, and what is logged of its change.
    const char *key = nullptr;
    const char *off_text = nullptr, *on_text = nullptr;        // of a switch
    const char *before_text = nullptr, *after_text = nullptr;  // of a text
};

// The row of that name; null when there is none. Any thread.
const Parameter *find_parameter(const char *name);

#endif
