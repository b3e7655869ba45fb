// What the cloud asks for: steps of a handler with a name, a value and numbers, and the camera's answers to
// each.
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "agent/utils/conf_file.h"
#include "agent/utils/reply_text.h"
#include "ak_model/status_read.h"
#include "exports.h"
#include "fake_os.h"
#include "fake_vendor.h"
#include "support/threads.h"
#include "support/wire.h"

namespace {

constexpr int kMostAnswers = 5;  // an upgrade would take six
constexpr size_t kLongestValue = 129;
constexpr char kReserveFile[] = "/tmp/fuse_d/.ota.tmp";  // makes room for an upgrade

const char *const kNames[] = {"Battery",      "Adapt",           "firmware_newver", "Sdcard",
                              "firmware_ver", "LullabyMode",     "Nightlight",      "Recording",
                              "md_armed",     "sd_armed",        "md_sensitivity",  "sd_sensitivity",
                              "td_armed",     "td_up",           "td_down",         "pd_armed",
                              "csd_armed",    "sdcard_armed",    "pd_setting",      "sdcard_setting",
                              "csd_setting",  "Csdnimbo",        "reboot",          "save_param",
                              "resolution",   "high_definition", "sdformat",        "resolution_capability",
                              "sdcardquota",  "Sdsize",          "doOTA",           "manual_record"};

std::string take_name(Input &input) {
    const size_t choice = input.byte();
    return choice < std::size(kNames) ? kNames[choice] : until_nul(input.text());
}

// A camera that begins to record would do so into the next input. No other answer names this.
bool would_record(const std::vector<wire::Answer> &answers) {
    for (const wire::Answer &answer : answers) {
        for (const std::string &piece : answer.pieces) {
            if (piece.find("VIDEO_START") != std::string::npos) return true;
        }
    }
    return false;
}

using Reader = int (*)(const char *name, char **value);

void check_reader(Reader reader, const std::string &name) {
    char *value = nullptr;
    const int length = reader(name.c_str(), &value);
    check(value != nullptr && std::memchr(value, '\0', kLongestValue + 1) != nullptr,
          "a text of at most 129 characters");
    check(length == static_cast<int>(std::strlen(value)) || (length == 5 && std::strcmp(value, "ERROR") == 0),
          "a reader returns its text's length");
    std::free(value);
    wire::script({});
    check(reader(name.c_str(), nullptr) >= 0, "nowhere to put it is no harm");
}

// What the camera says of one status reaches the cloud as it is, cut to the buffer.
void check_camera_status(const wire::Answer &answer) {
    wire::script({answer});
    char *value = nullptr;
    get_device_status("Battery", &value);
    const auto piece = wire::reference_succeeds(answer) ? wire::reference_last_piece(answer) : std::nullopt;
    const auto text = piece ? find_xml_value(*piece, "Battery") : std::nullopt;
    check(value == text.value_or("ERROR").substr(0, kLongestValue), "a status is the element's text");
    wire::script({answer});
    check(device_status("Battery") == value, "the agent's own reader gives the same");
    std::free(value);
}

// Whatever is written, the configuration keeps its lines.
void check_writer(const std::string &name, const std::string &value, bool null) {
    const auto before = read_conf_pairs(kConfPath);
    const int result =
        set_device_param(name.c_str(), null ? nullptr : value.c_str(), static_cast<int>(value.size()));
    check(result == 0 || result == -1 || result == 5 || result > 0, "a writer's results");
    const auto after = read_conf_pairs(kConfPath);
    check(after && after->size() == before->size(), "no line of the configuration comes or goes");
    int changed = 0;
    for (size_t i = 0; i < after->size(); i++) {
        check((*after)[i].key == (*before)[i].key, "no key changes");
        if ((*after)[i].value != (*before)[i].value) changed++;
    }
    check(changed <= 1, "one value changes at most");
    if (name == "doOTA") check(result == 0 || result == -1, "an upgrade's results");
    check(access(kReserveFile, F_OK) == 0, "no upgrade begins without six answers");
}

void check_snapshot(bool thumbnail) {
    snapshot_record record{};
    const int result = get_camera_snapshot(&record, thumbnail ? 1 : 0);
    check(result == 0 || record.data == nullptr, "a picture comes with success alone");
    check(result != 0 || (record.kind == 11 && record.word3 == 1), "fixed words");
    std::free(record.data);
}

void step(Input &input) {
    const int kind = input.byte() % 8;
    const std::string name = take_name(input), value = until_nul(input.text());
    const int number = static_cast<int>(input.number()), param = static_cast<int>(input.number());
    std::vector<wire::Answer> answers(input.byte() % (kMostAnswers + 1));
    for (wire::Answer &answer : answers) answer = wire::take_answer(input);
    if (would_record(answers)) return;
    fake_os::on_shell([value](const std::string &command) {  // df, as far as it is asked
        const size_t arrow = command.find(" > ");
        if (arrow != std::string::npos) write_file(command.c_str() + arrow + 3, value);
        return fake_os::ShellResult{};
    });
    wire::script(answers);
    if (kind == 0) check_reader(get_device_status, name);
    if (kind == 1) check_reader(get_device_param, name);
    if (kind == 2 || kind == 3) check_writer(name, value, kind == 3 && param == 1);
    if (kind == 4) check(ptz_direction_control(number % 64, param) == 0, "a numbered command gives 0");
    if (kind == 5 || kind == 6) check_snapshot(kind == 6);
    if (kind == 7 && !answers.empty()) check_camera_status(answers[0]);
    while (threads::run_next()) {
    }
}

}  // namespace

void prepare() {
    wire::start_queue();
    threads::hold();
    mkdir("/tmp/fuse_d/DCIM", 0755);
    mkdir("/tmp/fuse_d/DCIM/100MEDIA", 0755);
    write_file("/tmp/fuse_d/DCIM/100MEDIA/A.THM", "thumbnail");
    write_file(kReserveFile, "reserve");
}

void try_input(Input input) {
    fake_vendor::reset();
    wire::configure();
    write_file(kConfPath, read_file(kConfPath) +
                              "BATTERY_ARMED=0\nNIMB_ARMED=1\nSDCARD_ARMED=0\nBATTERY_LOW=10\n"
                              "NIMB_LOW=10\nSDCARD_LOW=10\n");
    write_file("/tmp/FWVER.txt", "1.2.3\n");
    for (int steps = 0; !input.empty() && steps < 20; steps++) step(input);
}
