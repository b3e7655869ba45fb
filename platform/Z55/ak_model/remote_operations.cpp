#include "remote_operations.h"

#include <cstdio>
#include <optional>
#include <string>

#include "../agent/utils/reply.h"
#include "../agent/utils/text.h"
#include "../exports.h"
#include "../log_sources.h"
#include "../z55cgi.h"
#include "reboot.h"
#include "reserve_file.h"
#include "resolution_change.h"

namespace {

constexpr int kNightLightFixedLength = 78;  // that its pseudo-header counts besides the setting's digits
constexpr int kFormatLength = 56;
constexpr int kSongs = 6;

// The lullaby player's fixed documents, each chosen by operation and param.
struct LullabyRow {
    int operation;
    int param;
    const char *document;
};

constexpr char kModeAll[] = "<RemoteControl><Action>LULLABY</Action><Mode>ALL</Mode></RemoteControl>";
constexpr char kModeOne[] = "<RemoteControl><Action>LULLABY</Action><Mode>ONE</Mode></RemoteControl>";

// Operations 41 and 43 both choose the mode, by different numberings.
constexpr LullabyRow kLullabyRows[] = {
    {40, 0, "<RemoteControl><Action>LULLABY</Action><Setting>OFF</Setting></RemoteControl>"},
    {40, 1, "<RemoteControl><Action>LULLABY</Action><Setting>ON</Setting></RemoteControl>"},
    {40, 2, "<RemoteControl><Action>LULLABY</Action><Setting>PAUSE</Setting></RemoteControl>"},
    {40, 3, "<RemoteControl><Action>LULLABY</Action><Setting>RESUME</Setting></RemoteControl>"},
    {41, 0, kModeAll},
    {41, 1, kModeOne},
    {43, 0, kModeOne},
    {43, 1, "<RemoteControl><Action>LULLABY</Action><Mode>RANDOM</Mode></RemoteControl>"},
    {43, 2, kModeAll},
};

// The document for an operation, empty for a param that it does not know; nothing when nothing is to be
// posted.
std::optional<std::string> lullaby_document(int operation, int param) {
    if (operation == 42) {
        if (static_cast<unsigned>(param) >= kSongs) {
            std::printf("Select Song is out of range, error");
            return std::nullopt;
        }
        return format_text(
            sizeof post_fields,
            "<RemoteControl><Action>LULLABY</Action><Mode>ONE</Mode><Song>%d</Song></RemoteControl>",
            param + 1);
    }
    if (operation == 44) {
        return format_text(sizeof post_fields,
                           "<RemoteControl><Action>LULLABY</Action><Volume>%d</Volume></RemoteControl>",
                           param);
    }
    for (const LullabyRow &row : kLullabyRows) {
        if (row.operation == operation && row.param == param) return row.document;
    }
    return std::string();
}

void control_lullaby(int operation, int param) {
    std::printf("!!!***%s %d ***!!!\n ***** sound operation*****\n", kModelSource, __LINE__);
    if (!get_status("LullabyMode")) {
        std::fprintf(stderr, "local_response is null:  (%s, %d)\n", kModelSource, __LINE__);
        return;
    }
    if (const auto document = lullaby_document(operation, param)) (void)post_remote_control(*document);
}

void set_night_light(int, int param) {
    std::printf("!!!***%s %d ***!!!\n **********\n", kModelSource, __LINE__);
    const std::string setting = std::to_string(param);
    const std::string document =
        "<RemoteControl><Action>NIGHT_LIGHT</Action><Setting>" + setting + "</Setting></RemoteControl>";
    const int length = static_cast<int>(setting.size()) + kNightLightFixedLength;
    (void)post_remote_control(document, length);
}

void change_resolution(int, int param) {
    start_resolution_change(param);
}

// What comes of it is not told to the cloud.
struct Command {
    int number;
    const char *text;  // the line that a direction command prints; it does nothing else
    void (*run)(int command, int param);
};

// There is no 3: the numbering is the cloud's.
constexpr Command kCommands[] = {
    {1, "PTZ control: UP", nullptr},    {2, "PTZ control: DOWN", nullptr}, {4, "PTZ control: LEFT", nullptr},
    {5, "PTZ control: RIGHT", nullptr}, {30, nullptr, set_night_light},    {40, nullptr, control_lullaby},
    {41, nullptr, control_lullaby},     {42, nullptr, control_lullaby},    {43, nullptr, control_lullaby},
    {44, nullptr, control_lullaby},     {45, nullptr, change_resolution},
};

}  // namespace

int ptz_direction_control(int command, int param) {
    std::printf("!!!***%s %d ***!!!\n", kModelSource, __LINE__);
    std::printf("command=%d,param=%d\n", command, param);
    for (const Command &row : kCommands) {
        if (row.number != command) continue;
        if (row.text != nullptr) {
            std::puts(row.text);
        } else {
            row.run(command, param);
        }
        return 0;
    }
    std::printf("ptz_direction_control: unknown command= %d\n", command);
    return 0;
}

int formatSD() {
    std::printf("!!!***%s %d ***!!!\n ***** formatsd operation*****\n", kModelSource, __LINE__);
    const std::string document = "<RemoteControl><Action>FORMATSD</Action></RemoteControl>";
    if (post_remote_control(document, kFormatLength) != 0) return -1;
    (void)restore_reserve();  // its log says what comes of it
    return 0;
}

int rebootOperation() {
    return reboot_device();
}
