// get_device_param: reads one named device setting for the cloud, from the camera, the configuration or the
// agent's own stream profile. Any SDK thread; blocks for one queued request at most.
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>

#include "../agent/utils/conf_file.h"
#include "../agent/utils/reply.h"
#include "../agent/utils/reply_text.h"
#include "../agent/utils/text.h"
#include "../exports.h"
#include "../log_sources.h"
#include "../shared.h"
#include "../z55cgi.h"
#include "handler_value.h"
#include "parameters.h"

namespace {

// The setting's value in the camera's own words; nothing when there is no reply or no such element.
std::optional<std::string> camera_value(const Parameter &parameter) {
    const auto reply = get_setting(parameter.group->name);
    if (!reply) {
        log_no_reply(__LINE__);
        return std::nullopt;
    }
    auto value = find_xml_value(*reply, parameter.element);
    if (!value) std::fprintf(stderr, "xml_value is null:  (%s, %d)\n", kModelSource, __LINE__);
    return value;
}

const char *cloud_boolean(const std::string &value) {
    if (value == "ON") return "1";
    if (value == "OFF") return "0";
    return value.c_str();
}

const char *resolution_text() {
    const int type = load_shared(gResolutionType);
    std::printf("get resolution type = %d\n---%s,line %d\n", type, kModelSource, __LINE__);
    constexpr const char *kTexts[] = {"1", "2", "3"};
    return type >= 1 && type <= 3 ? kTexts[type - 1] : "";
}

// The value as the cloud has it; nothing when it could not be had.
std::optional<std::string> read_value(const Parameter &parameter) {
    switch (parameter.kind) {
        case ParameterKind::configuration_switch:
        case ParameterKind::configuration_text:
            return conf_value(parameter.key).value_or("");
        case ParameterKind::resolution:
            return resolution_text();
        case ParameterKind::camera_switch:
        case ParameterKind::camera_half:
        case ParameterKind::camera_number:
            break;
    }
    const auto value = camera_value(parameter);
    if (!value) return std::nullopt;
    return cloud_boolean(*value);
}

}  // namespace

int get_device_param(const char *name, char **value) {
    name = text_or_empty(name);
    std::printf("!!!***%s %d ***!!!\n param_name=%s\n , param_length =%d\n", kModelSource, __LINE__, name,
                static_cast<int>(std::strlen(name)));
    char *buffer = new_handler_value(value);
    const Parameter *parameter = find_parameter(name);
    if (parameter == nullptr || !parameter->readable) {
        std::puts("get_device_param This parameter undefined");
        return set_handler_error(buffer);
    }
    const auto text = read_value(*parameter);
    if (!text) return set_handler_error(buffer);
    const int length = set_handler_value(buffer, *text);
    std::printf("!!!***%s %d ***!!! param_name=%s,param_value=%s\n", kModelSource, __LINE__, name,
                text_or_empty(buffer));
    return length;
}
