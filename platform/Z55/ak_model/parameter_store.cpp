#include "parameter_store.h"

#include <cstdio>
#include <cstring>
#include <mutex>
#include <optional>
#include <string_view>

#include "../agent/utils/conf_file.h"
#include "../agent/utils/reply.h"
#include "../agent/utils/reply_text.h"
#include "../agent/utils/text.h"
#include "../log_sources.h"
#include "../z55cgi.h"
#include "handler_value.h"

namespace {

constexpr size_t kCommandSize = 320;  // bytes of a setting document's buffer
constexpr int kElementMissing = 5;

// The group's document with `element` set to `value` and the others as `reply` has them; nothing when one is
// missing.
std::optional<std::string> group_document(const CameraGroup &group, const char *element,
                                          const std::string &value, std::string_view reply) {
    std::string document = std::string("<CameraSetup><") + group.name + ">";
    for (const char *name : group.elements) {
        if (name == nullptr) break;
        const auto text = std::strcmp(name, element) == 0 ? value : find_xml_value(reply, name);
        if (!text) return std::nullopt;
        document.append("<").append(name).append(">").append(*text).append("</").append(name).append(">");
    }
    return cut_to_buffer(document + "</" + group.name + "></CameraSetup>", kCommandSize);
}

int write_group(const Parameter &parameter, const std::string &value) {
    const std::lock_guard<std::mutex> lock(parameter.group->writing);
    const auto reply = get_setting(parameter.group->name);
    if (!reply) {
        log_no_reply(__LINE__);
        return -1;
    }
    const auto document = group_document(*parameter.group, parameter.element, value, *reply);
    if (!document) {
        std::fprintf(stderr, "local_response is null:  (%s, %d)\n", kModelSource, __LINE__);
        return kElementMissing;
    }
    return post_setting(*document);
}

int write_camera_switch(const Parameter &parameter, int value) {
    if (value == 0 || value == 1) return write_group(parameter, value == 1 ? "ON" : "OFF");
    if (parameter.complaint != nullptr) std::puts(parameter.complaint);
    return post_setting("");
}

int write_configuration_switch(const Parameter &parameter, int value) {
    if (value != 0 && value != 1) return post_setting("");
    (void)write_conf_value(parameter.key, value == 1 ? "1" : "0");
    std::printf("%s, ---%s,line %d\n", value == 1 ? parameter.on_text : parameter.off_text, kModelSource,
                __LINE__);
    return 0;
}

int write_configuration_text(const Parameter &parameter, const char *text) {
    std::printf("%s%s, ---%s,line %d\n", parameter.before_text, text, kModelSource, __LINE__);
    (void)write_conf_value(parameter.key, text);
    std::printf("%s%s, ---%s,line %d\n", parameter.after_text, text, kModelSource, __LINE__);
    return 0;
}

}  // namespace

void log_parameter_write(const char *name, const char *value, int value_length) {
    std::printf("!!!***%s %d ***!!! param_name=%s\n", kModelSource, __LINE__, name);
    std::printf("param_name=%s param_value=%s valuelen=%d\n", name, value, value_length);
}

int write_parameter(const Parameter &parameter, const char *value) {
    const int number = to_int(value);
    switch (parameter.kind) {
        case ParameterKind::camera_switch:
            return write_camera_switch(parameter, number);
        case ParameterKind::camera_half:
            return write_group(parameter, std::to_string(number / 2));
        case ParameterKind::camera_number:
            return write_group(parameter, std::to_string(number));
        case ParameterKind::configuration_switch:
            return write_configuration_switch(parameter, number);
        case ParameterKind::configuration_text:
            return write_configuration_text(parameter, value);
        case ParameterKind::resolution:
            break;
    }
    return -1;
}

int post_setting(const std::string &document) {
    std::printf("before POST , cmdLength =%d\ncommandInstr = %s\n", static_cast<int>(document.size()),
                document.c_str());
    return post_setup(document) == 0 ? 0 : -1;
}
