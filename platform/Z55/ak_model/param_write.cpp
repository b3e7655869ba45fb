// set_device_param: changes one named device setting for the cloud or triggers a one-shot action. Any SDK
// thread; blocks for its requests, and for another thread's change of the same setting group.
#include <cstdio>
#include <cstring>
#include <string_view>

#include "../agent/utils/conf_file.h"
#include "../agent/utils/reply_text.h"
#include "../exports.h"
#include "../sdk/usock.h"
#include "../z55cgi.h"
#include "firmware_upgrade.h"
#include "handler_value.h"
#include "parameters.h"
#include "remote_operations.h"

namespace {

constexpr size_t kCommandSize = 320;  // bytes of a setting document's buffer

// Posts a setting document; an empty one is how all unexpected values of the switches end.
int post_setting(const std::string &document) {
    const std::string body = post_body(document);
    std::printf("before POST , cmdLength =%d\ncommandInstr = %s\n", static_cast<int>(document.size()),
                document.c_str());
    return curl_POST(format_text(200, "http://%s/CGI/CameraSetup", hostIP), body) == 0 ? 0 : -1;
}

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
    const auto reply =
        curl_GET(format_text(200, "http://%s/CGI/CameraSetting?%s", hostIP, parameter.group->name));
    if (!reply) {
        log_no_reply(__LINE__);
        return -1;
    }
    const auto document = group_document(*parameter.group, parameter.element, value, *reply);
    if (!document) {
        std::fprintf(stderr, "local_response is null:  (%s, %d)\n", kModelSource, __LINE__);
        return 5;
    }
    return post_setting(*document);
}

int write_camera_switch(const Parameter &parameter, int value) {
    if (value == 0 || value == 1) return write_group(parameter, value == 1 ? "ON" : "OFF");
    if (parameter.first_text != nullptr) std::puts(parameter.first_text);
    return post_setting("");
}

int write_configuration_switch(const Parameter &parameter, int value) {
    if (value != 0 && value != 1) return post_setting("");
    write_conf_value(parameter.element, value == 1 ? "1" : "0");
    std::printf("%s, ---%s,line %d\n", value == 1 ? parameter.second_text : parameter.first_text,
                kModelSource, __LINE__);
    return 0;
}

int write_configuration_text(const Parameter &parameter, const char *text) {
    std::printf("%s%s, ---%s,line %d\n", parameter.first_text, text, kModelSource, __LINE__);
    write_conf_value(parameter.element, text);
    std::printf("%s%s, ---%s,line %d\n", parameter.second_text, text, kModelSource, __LINE__);
    return 0;
}

int write_parameter(const Parameter &parameter, const char *text, int value) {
    switch (parameter.kind) {
        case ParameterKind::camera_switch:
            return write_camera_switch(parameter, value);
        case ParameterKind::camera_half:
            return write_group(parameter, std::to_string(value / 2));
        case ParameterKind::camera_number:
            return write_group(parameter, std::to_string(value));
        case ParameterKind::configuration_switch:
            return write_configuration_switch(parameter, value);
        case ParameterKind::configuration_text:
            return write_configuration_text(parameter, text);
        case ParameterKind::resolution:
            start_resolution_change(value);
            return 0;
    }
    return -1;
}

int upgrade_firmware(int) {
    std::printf("before set OTA() , ---%s,line %d\n", kModelSource, __LINE__);
    const int result = doOTA();
    std::printf("after set OTA() , ---%s,line %d\n", kModelSource, __LINE__);
    return result == 0 ? 0 : -1;
}

int format_card(int) {
    std::printf("before set formatSD() , ---%s,line %d\n", kModelSource, __LINE__);
    formatSD();
    std::printf("after set formatSD() , ---%s,line %d\n", kModelSource, __LINE__);
    return 0;
}

int record_manually(int value) {
    if (value == 1) {
        std::printf("before set start_recording_video  , ---%s,line %d\n", kModelSource, __LINE__);
        start_recording_video(0);
        std::printf("after set start_recording_video , ---%s,line %d\n", kModelSource, __LINE__);
    } else if (value == 0) {
        std::printf("before set stop_recording_video  , ---%s,line %d\n", kModelSource, __LINE__);
        stop_recording_video();
        std::printf("after set stop_recording_video , ---%s,line %d\n", kModelSource, __LINE__);
    }
    return 0;
}

int accept(int) {
    return 0;
}

int refuse_resolution(int) {
    std::puts("Not implement yet");
    return -1;
}

int switch_cloud_storage(int value) {
    if (value == 1) {
        std::printf("get nimbo token (actual work in NimboUpLoad function) , ---%s,line %d\n", kModelSource,
                    __LINE__);
        return 0;
    }
    if (value != 0) return post_setting("");
    std::printf("Csdnimbo --%s,line %d\n", kModelSource, __LINE__);
    std::printf("before remove nimbo token  , ---%s,line %d\n", kModelSource, __LINE__);
    const int result = remove_token();
    std::printf("after remove nimbo token , ---%s,line %d\n", kModelSource, __LINE__);
    return result == 0 ? 0 : -1;
}

struct Action {
    const char *name;
    bool uses_value;
    int (*run)(int value);
};

constexpr Action kActions[] = {
    {"doOTA", false, upgrade_firmware},       {"sdformat", false, format_card},
    {"manual_record", true, record_manually}, {"reboot", false, accept},
    {"resolution", false, refuse_resolution}, {"save_param", false, accept},
    {"Csdnimbo", true, switch_cloud_storage},
};

const Action *find_action(const char *name) {
    for (const Action &action : kActions) {
        if (std::strcmp(action.name, name) == 0) return &action;
    }
    return nullptr;
}

int undefined_parameter(const char *name) {
    std::printf("!!!***%s %d ***!!! param_name=%s\n", kModelSource, __LINE__, name);
    std::puts("set_device_param This parameter undefined");
    return -1;
}

}  // namespace

int set_device_param(const char *name, const char *value, int value_length) {
    const char *text = text_or_empty(value);
    name = text_or_empty(name);
    const int number = to_int(text);
    std::printf("!!!***%s %d ***!!! param_name=%s\n", kModelSource, __LINE__, name);
    std::printf("param_name=%s param_value=%s valuelen=%d\n", name, text, value_length);
    if (const Parameter *parameter = find_parameter(name)) {
        return value != nullptr ? write_parameter(*parameter, text, number) : undefined_parameter(name);
    }
    if (const Action *action = find_action(name)) {
        return value != nullptr || !action->uses_value ? action->run(number) : undefined_parameter(name);
    }
    return undefined_parameter(name);
}
