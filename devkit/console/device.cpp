#include "device.h"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;

namespace {

constexpr const char *kToolsFolder = "/tmp/.device/", *kCard = "/tmp/fuse_d",
                     *kMedia = "/tmp/fuse_d/DCIM/100MEDIA/", *kFiller = "/tmp/fuse_d/.desk_filler",
                     *kConfiguration = "/tmp/working/VeloAgent.conf",
                     *kTools[] = {"ifconfig", "netstat", "ntpdate", "ping", "qmx_reboot"},
                     *kOrders[] = {"exit", "delay", "stdout"};
constexpr const char *kShownKeys[] = {
    "BATTERY_LOW", "BATTERY_ARMED",    "SDCARD_LOW",   "SDCARD_ARMED",       "NIMB_LOW",
    "NIMB_ARMED",  "RECORDING_PERIOD", "OTA_TMP_FILE", "RECORDING_LOG_FILE", "POLL_STATUS_PERIOD_SEC"};
constexpr size_t kLogShown = 8000;  // bytes of the recording log

std::string read_file(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

json read_conf() {
    std::ifstream file(kConfiguration);
    json conf = json::object();
    for (std::string line; std::getline(file, line);) {
        const size_t equals = line.find('=');
        if (equals == std::string::npos) continue;
        const std::string key = line.substr(0, equals);
        if (std::find(std::begin(kShownKeys), std::end(kShownKeys), key) != std::end(kShownKeys))
            conf[key] = line.substr(equals + 1);
    }
    return conf;
}

json read_orders() {
    json all = json::object();
    for (const char *tool : kTools) {
        for (const char *order : kOrders) {
            const std::string path = std::string(kToolsFolder) + tool + "." + order;
            std::error_code ignored;
            if (fs::exists(path, ignored)) all[tool][order] = read_file(path);
        }
    }
    return all;
}

json card_state() {
    struct statvfs status {};
    std::error_code ignored;
    if (statvfs(kCard, &status) != 0) return nullptr;
    const double unit = static_cast<double>(status.f_frsize) / 1e6;
    return {{"total_mb", std::round(static_cast<double>(status.f_blocks) * unit)},
            {"free_mb", std::round(static_cast<double>(status.f_bavail) * unit)},
            {"filled", fs::exists(kFiller, ignored)}};
}

json media_files() {
    json files = json::array();
    std::error_code error;
    for (const auto &entry : fs::directory_iterator(kMedia, error)) {
        const std::string name = entry.path().filename();
        if (name.front() != '.') files.push_back({{"name", name}, {"bytes", entry.file_size(error)}});
    }
    std::sort(files.begin(), files.end(), [](const json &a, const json &b) { return a["name"] < b["name"]; });
    return files;
}

// The offset of the agent's wall clock: the first 8 bytes of the preload's file, microseconds.
int bend_descriptor() {
    const char *path = getenv("BEND_FILE");
    return path == nullptr ? -1 : open(path, O_RDWR | O_CLOEXEC);
}

json clock_offset() {
    const int fd = bend_descriptor();
    int64_t offset = 0;
    const bool there = fd >= 0 && pread(fd, &offset, sizeof offset, 0) == sizeof offset;
    if (fd >= 0) close(fd);
    return there ? json(static_cast<double>(offset) / 1e6) : json();
}

}  // namespace

json device_state() {
    const json conf = read_conf();
    std::error_code ignored;
    const std::string records = read_file(conf.value("RECORDING_LOG_FILE", ""));
    return {{"reboots", std::atoi(read_file("/tmp/.device/reboots").c_str())},
            {"marker", fs::exists(conf.value("OTA_TMP_FILE", "/nowhere"), ignored)},
            {"tools", read_orders()},
            {"card", card_state()},
            {"clock_offset", clock_offset()},
            {"files", media_files()},
            {"recording_log", records.substr(records.size() > kLogShown ? records.size() - kLogShown : 0)},
            {"conf", conf}};
}

json process_state(int pid) {
    const std::string folder = "/proc/" + std::to_string(pid);
    std::ifstream status(folder + "/status");
    json state{{"pid", pid}, {"rss_kb", 0}, {"threads", 0}};
    if (pid == 0 || !status) return nullptr;
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) state["rss_kb"] = std::atoi(line.c_str() + 6);
        if (line.starts_with("RssShmem:")) state["shared_kb"] = std::atoi(line.c_str() + 9);
        if (line.starts_with("Threads:")) state["threads"] = std::atoi(line.c_str() + 8);
    }
    std::error_code error;
    const fs::directory_iterator descriptors(folder + "/fd", error);
    state["descriptors"] = error ? 0 : std::distance(begin(descriptors), end(descriptors));
    return state;
}

std::string order_tool(const std::string &tool, const json &order) {
    if (std::find(std::begin(kTools), std::end(kTools), tool) == std::end(kTools))
        return "there is no tool " + tool;
    for (const char *name : kOrders) {
        if (!order.contains(name)) continue;
        const std::string path = std::string(kToolsFolder) + tool + "." + name;
        const json &value = order[name];
        if (value.is_null()) {
            std::remove(path.c_str());
        } else if (!(std::ofstream(path) << (value.is_string() ? value.get<std::string>() : value.dump()))) {
            return "cannot write " + path;
        }
    }
    return "";
}

std::string fill_card(bool full) {
    if (!full) return std::remove(kFiller) == 0 || errno == ENOENT ? "" : "cannot remove the filler";
    struct statvfs status {};
    if (statvfs(kCard, &status) != 0) return "there is no card";
    const int fd = open(kFiller, O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) return "cannot write to the card";
    const off_t room = static_cast<off_t>(status.f_bavail * status.f_frsize);
    const int error = posix_fallocate(fd, 0, std::max<off_t>(room - 65536, 1));
    close(fd);
    return error == 0 ? "" : "the card takes no filler";
}

std::string step_clock(double seconds) {
    if (!(std::fabs(seconds) <= 1e9)) return "a step is 1e9 seconds at most";
    const int fd = bend_descriptor();
    if (fd < 0) return "the agent's clock is not bent here";
    int64_t offset = 0;
    bool done = pread(fd, &offset, sizeof offset, 0) == sizeof offset;
    offset += std::llround(seconds * 1e6);
    done = done && pwrite(fd, &offset, sizeof offset, 0) == sizeof offset;
    close(fd);
    return done ? "" : "cannot step the clock";
}

std::string order_device(const std::string &path, const json &order) {
    const std::string tool = "/api/tools/";
    if (path.starts_with(tool)) return order_tool(path.substr(tool.size()), order);
    if (path == "/api/card") return fill_card(order.value("full", false));
    if (path == "/api/clock") return step_clock(order.value("step", 0.0));
    return "there is no " + path;
}

std::string media_path(const std::string &name) {
    std::error_code error;
    if (name.empty() || name.front() == '.' || name.find('/') != std::string::npos) return "";
    const std::string path = kMedia + name;
    return fs::is_regular_file(fs::symlink_status(path, error)) ? path : "";
}
