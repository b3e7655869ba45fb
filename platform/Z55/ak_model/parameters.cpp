#include "parameters.h"

#include <cstring>

namespace {

using enum ParameterKind;

constinit CameraGroup motion{"MOTION_DETECTION", {"ENABLE", "SENSITIVITY", nullptr}, {}};
constinit CameraGroup sound{"AUDIO_DETECTION", {"ENABLE", "SENSITIVITY", nullptr}, {}};
constinit CameraGroup temperature{"TEMPERATURE_ALERT", {"ENABLE", "MAX", "MIN"}, {}};

constexpr Parameter kParameters[] = {
    {.name = "md_armed",
     .kind = camera_switch,
     .group = &motion,
     .element = "ENABLE",
     .complaint = "param error"},
    {.name = "md_sensitivity", .kind = camera_half, .group = &motion, .element = "SENSITIVITY"},
    {.name = "sd_armed", .kind = camera_switch, .group = &sound, .element = "ENABLE"},
    {.name = "sd_sensitivity", .kind = camera_half, .group = &sound, .element = "SENSITIVITY"},
    {.name = "td_armed", .kind = camera_switch, .group = &temperature, .element = "ENABLE"},
    {.name = "td_up", .kind = camera_number, .group = &temperature, .element = "MAX"},
    {.name = "td_down", .kind = camera_number, .group = &temperature, .element = "MIN"},
    {.name = "pd_armed",
     .kind = configuration_switch,
     .key = "BATTERY_ARMED",
     .off_text = "setting battery_armed off",
     .on_text = "setting battery_armed on"},
    {.name = "csd_armed",
     .kind = configuration_switch,
     .readable = false,
     .key = "NIMB_ARMED",
     .off_text = "setting nimb_armed off",
     .on_text = "setting nimb_armed on"},
    {.name = "sdcard_armed",
     .kind = configuration_switch,
     .key = "SDCARD_ARMED",
     .off_text = "setting sdcard_armed off",
     .on_text = "setting sdcard_armed on"},
    {.name = "pd_setting",
     .kind = configuration_text,
     .key = "BATTERY_LOW",
     .before_text = "before setting battery , param_value = ",
     .after_text = "After setting battery , param_value = "},
    {.name = "csd_setting",
     .kind = configuration_text,
     .readable = false,
     .key = "NIMB_LOW",
     .before_text = "before setting nimb , param_value = ",
     .after_text = "After setting nimb , param_value = "},
    {.name = "sdcard_setting",
     .kind = configuration_text,
     .key = "SDCARD_LOW",
     .before_text = "before setting sdcard , param_value = ",
     .after_text = "After setting sdcard , param_value = "},
    {.name = "high_definition", .kind = resolution},
};

}  // namespace

const Parameter *find_parameter(const char *name) {
    for (const Parameter &parameter : kParameters) {
        if (std::strcmp(parameter.name, name) == 0) return &parameter;
    }
    return nullptr;
}
