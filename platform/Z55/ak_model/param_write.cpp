// set_device_param: changes one named device setting for the cloud or triggers a one-shot action. Any SDK
// thread; blocks for its requests, and for another thread's change of the same setting group.
#include <cstdio>
#include <cstring>

#include "../agent/utils/text.h"
#include "../exports.h"
#include "../log_sources.h"
#include "../sdk/usock.h"
#include "firmware_upgrade.h"
#include "parameter_store.h"
#include "parameters.h"
#include "remote_operations.h"
#include "resolution_change.h"

namespace {

int upgrade_firmware(int) {
    std::printf("before set OTA() , ---%s,line %d\n", kModelSource, __LINE__);
    const int result = doOTA();
    std::printf("after set OTA() , ---%s,line %d\n", kModelSource, __LINE__);
    return result == 0 ? 0 : -1;
}

int format_card(int) {
    std::printf("before set formatSD() , ---%s,line %d\n", kModelSource, __LINE__);
    (void)formatSD();  // the cloud is told that it was asked for, whatever comes of it
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
    log_parameter_write(name, text, value_length);
    if (const Parameter *parameter = find_parameter(name)) {
        if (value == nullptr) return undefined_parameter(name);
        if (parameter->kind != ParameterKind::resolution) return write_parameter(*parameter, text);
        start_resolution_change(number);
        return 0;
    }
    if (const Action *action = find_action(name)) {
        return value != nullptr || !action->uses_value ? action->run(number) : undefined_parameter(name);
    }
    return undefined_parameter(name);
}
