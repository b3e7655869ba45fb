#include "conf_text.h"

#include <fstream>
#include <sstream>

namespace {

void add_sample(ConfValues &values) {
    std::ifstream sample(DESK_CONF_SAMPLE);
    for (std::string line; std::getline(sample, line);) {
        const size_t equals = line.find('=');
        if (line.starts_with("#") || equals == std::string::npos) continue;
        values[line.substr(0, equals)] = line.substr(equals + 1);
    }
}

}  // namespace

ConfValues default_conf(const std::string &host) {
    ConfValues values;
    add_sample(values);
    const ConfValues own = {
        {"hostIP", host},
        {"ITEM_DEVICE", "Camera"},
        {"ITEM_STREAM", "Stream1"},
        {"PASSWORD", "secret"},
        {"SESSION_KEY", ""},
        {"COOKIE", "/tmp/working/cookie"},
        {"POLL_STATUS_PERIOD_SEC", "5"},
        {"POOL_NTP_PERIOD_SEC", "3600"},
        {"BATTERY_PERIOD", "5"},
        {"SDCARD_PERIOD", "5"},
        {"NIMB_PERIOD", "5"},
        {"BATTERY_ARMED", "1"},
        {"SDCARD_ARMED", "1"},
        {"NIMB_ARMED", "0"},
        {"BATTERY_LOW", "10"},
        {"SDCARD_LOW", "5"},
        {"NIMB_LOW", "5"},
        {"OTA_POLLING_PERIOD", "5"},
        {"OTA_TMP_FILE", "/tmp/working/ota.marker"},
        {"RECORDING_FLAG_FILE", "/tmp/working/recording"},
        {"RECORDING_LOG_FILE", "/tmp/fuse_d/recording.log"},
        {"RECORDING_PERIOD", "10"},
        {"TIMEZONE", "UTC+8"},
        {"NIMB_HOST", "127.0.0.1:1"},  // nobody listens there
    };
    for (const auto &[key, value] : own) values[key] = value;
    return values;
}

std::string conf_text(const ConfValues &values) {
    std::string text;
    for (const auto &[key, value] : values)
        if (value) text += key + "=" + *value + "\n";
    return text;
}

std::string conf_text_value(const std::string &text, const std::string &key) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with(key + "=")) return line.substr(key.size() + 1);
    return "";
}
