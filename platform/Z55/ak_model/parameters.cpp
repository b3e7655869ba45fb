#include "parameters.h"

#include <cstring>

namespace {

using enum ParameterKind;

constinit CameraGroup motion{"MOTION_DETECTION", {"ENABLE", "SENSITIVITY", nullptr}, {}};
constinit CameraGroup sound{"AUDIO_DETECTION", {"ENABLE", "SENSITIVITY", nullptr}, {}};
constinit CameraGroup temperature{"TEMPERATURE_ALERT", {"ENABLE", "MAX", "MIN"}, {}};

constexpr Parameter kParameters[] = {
    {"md_armed", camera_switch, &motion, "ENABLE", true, "param error", nullptr},
    {"md_sensitivity", camera_half, &motion, "SENSITIVITY", true, nullptr, nullptr},
    {"sd_armed", camera_switch, &sound, "ENABLE", true, nullptr, nullptr},
    {"sd_sensitivity", camera_half, &sound, "SENSITIVITY", true, nullptr, nullptr},
    {"td_armed", camera_switch, &temperature, "ENABLE", true, nullptr, nullptr},
    {"td_up", camera_number, &temperature, "MAX", true, nullptr, nullptr},
    {"td_down", camera_number, &temperature, "MIN", true, nullptr, nullptr},
    {"pd_armed", configuration_switch, nullptr, "BATTERY_ARMED", true,  //
     "setting battery_armed off", "setting battery_armed on"},
    {"csd_armed", configuration_switch, nullptr, "NIMB_ARMED", false,  //
     "setting nimb_armed off", "setting nimb_armed on"},
    {"sdcard_armed", configuration_switch, nullptr, "SDCARD_ARMED", true,  //
     "setting sdcard_armed off", "setting sdcard_armed on"},
    {"pd_setting", configuration_text, nullptr, "BATTERY_LOW", true,  //
     "before setting battery , param_value = ", "After setting battery , param_value = "},
    {"csd_setting", configuration_text, nullptr, "NIMB_LOW", false,  //
     "before setting nimb , param_value = ", "After setting nimb , param_value = "},
    {"sdcard_setting", configuration_text, nullptr, "SDCARD_LOW", true,  //
     "before setting sdcard , param_value = ", "After setting sdcard , param_value = "},
    {"high_definition", resolution, nullptr, nullptr, true, nullptr, nullptr},
};

}  // namespace

const Parameter *find_parameter(const char *name) {
    for (const Parameter &parameter : kParameters) {
        if (std::strcmp(parameter.name, name) == 0) return &parameter;
    }
    return nullptr;
}
