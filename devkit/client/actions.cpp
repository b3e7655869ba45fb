#include "actions.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

#include "base64.h"
#include "show.h"

using nlohmann::json;
namespace fs = std::filesystem;

namespace {

constexpr unsigned kClipSeconds = 10;

// The one parameter that says most about a misbehaviour.
struct FaultKind {
    const char *kind, *parameter;
};

constexpr FaultKind kFaultKinds[] = {
    {"error_code", "value"}, {"http_status", "status"}, {"redirect", "location"}, {"delay", "ms"},
    {"truncate", "bytes"},   {"drip", "bytes"},         {"pieces", "pieces"},     {"oversize", "bytes"},
    {"garbage", "bytes"},    {"body", "text"},
};

json number_or_text(const std::string &text) {
    json value = json::parse(text, nullptr, false);
    return value.is_discarded() ? json(text) : value;
}

std::string read_file(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw DeskError("cannot read " + path + ": " + std::strerror(errno));
    return {std::istreambuf_iterator<char>(file), {}};
}

void write_file(const std::string &path, const std::string &data) {
    std::ofstream file(path, std::ios::binary);
    if (!file.write(data.data(), static_cast<std::streamsize>(data.size())).flush()) {
        throw DeskError("cannot write " + path + ": " + std::strerror(errno));
    }
    std::cout << path << ": " << data.size() << " bytes\n";
}

// The samples of a WAV file: what follows the header of its "data" chunk. Anything else is taken for samples
// as it is.
std::string samples_of(const std::string &file) {
    if (file.rfind("RIFF", 0) != 0) return file;
    const size_t chunk = file.find("data", 12);
    return chunk == std::string::npos ? file : file.substr(std::min(chunk + 8, file.size()));
}

}  // namespace

int order_fault(const Texts &arguments) {
    json fault = {{"endpoint", arguments[0]}, {"kind", arguments[1]}};
    Texts plain;
    for (size_t i = 2; i < arguments.size(); ++i) {
        const size_t equals = arguments[i].find('=');
        if (equals == std::string::npos) {
            plain.push_back(arguments[i]);
        } else {
            fault[arguments[i].substr(0, equals)] = number_or_text(arguments[i].substr(equals + 1));
        }
    }
    for (const FaultKind &row : kFaultKinds) {
        if (arguments[1] != row.kind || plain.empty()) continue;
        fault[row.parameter] =
            row.parameter == std::string("text") ? json(plain[0]) : number_or_text(plain[0]);
        plain.erase(plain.begin());
    }
    if (!plain.empty()) fault["count"] = number_or_text(plain[0]);
    return show_json(request_json(Side::camera, "POST", "/faults", fault), {});
}

int save_audio(const Texts &arguments) {
    write_file(arguments[1], request(Side::camera, "GET", "/audio/" + arguments[0], ""));
    return 0;
}

int save_photo(const Texts &arguments) {
    write_file(arguments[0], request(Side::camera, "GET", "/photo-last", ""));
    return 0;
}

int take_snapshot(const Texts &arguments) {
    const json mode = arguments.size() > 1 ? number_or_text(arguments[1]) : json(0);
    json reply =
        request_json(Side::sdk, "POST", "/call",
                     {{"name", "get_camera_snapshot"}, {"args", json::array({mode})}, {"buffer", 1}});
    json result = reply.at("results").at(0);
    const auto data = result.value("data_base64", std::string());
    result.erase("data_base64");
    std::cout << result.dump() << '\n';
    if (result.value("result", -1) != 0) return 1;
    write_file(arguments[0], from_base64(data));
    return 0;
}

int talk(const Texts &arguments) {
    const std::string samples = samples_of(read_file(arguments[0]));
    const std::string pace = arguments.size() > 1 ? arguments[1] : "real";
    return show_json(
        request_json(Side::sdk, "POST", "/talk", {{"pcm_base64", to_base64(samples)}, {"pace", pace}}), {});
}

int save_frames(const Texts &arguments) {
    // The agent's process writes them: in a folder that it sees under the same name, unlike this one's /tmp.
    const fs::path folder = fs::absolute(run_folder());
    const std::string video = folder / "clip.h264", audio = folder / "clip.aac";
    request_json(Side::sdk, "POST", "/frames/save", {{"h264", video}, {"aac", audio}});
    sleep(arguments.size() > 2 ? static_cast<unsigned>(std::stoul(arguments[2])) : kClipSeconds);
    show_json(request_json(Side::sdk, "POST", "/frames/stop"), {});
    write_file(arguments[0], read_file(video));
    write_file(arguments[1], read_file(audio));
    fs::remove(video);
    fs::remove(audio);
    return 0;
}

int reboot_device(const Texts &) {
    try {
        const json reply =
            request_json(Side::sdk, "POST", "/call", {{"name", "rebootOperation"}, {"args", json::array()}});
        return show_result(reply, {});
    } catch (const DeskError &) {
        std::cout << "the agent is gone; see how it comes back\n";  // the call does not return
        return 0;
    }
}

int call_handler(const Texts &arguments) {
    json handler_arguments = json::array();
    for (size_t i = 1; i < arguments.size(); ++i) handler_arguments.push_back(number_or_text(arguments[i]));
    return show_calls(
        request_json(Side::sdk, "POST", "/call", {{"name", arguments[0]}, {"args", handler_arguments}}), {});
}

int set_token(const Texts &arguments) {
    const json token = arguments[0] == "none" ? json(nullptr) : json(arguments[0]);
    return show_json(request_json(Side::sdk, "PUT", "/token", {{"token", token}}), {});
}

int recording_log(const Texts &) {
    const json reply = request_json(
        Side::sdk, "POST", "/call",
        {{"name", "read_conf_value"}, {"args", {"RECORDING_LOG_FILE", "/tmp/working/VeloAgent.conf"}}});
    return print_file({reply.at("results").at(0).at("value").get<std::string>()});
}

int print_file(const Texts &arguments) {
    std::cout << read_file(device_path(arguments[0]));
    return 0;
}

int list_folder(const Texts &arguments) {
    std::error_code error;
    for (const fs::directory_entry &entry : fs::directory_iterator(device_path(arguments[0]), error)) {
        std::cout << entry.path().filename().string();
        if (entry.is_regular_file()) std::cout << "  " << entry.file_size();
        std::cout << '\n';
    }
    if (error) throw DeskError("cannot list " + arguments[0] + ": " + error.message());
    return 0;
}

int send_plain(const Texts &arguments) {
    if (arguments[0] != "camera" && arguments[0] != "sdk") throw DeskError("send to camera or sdk?");
    const Side to = arguments[0] == "camera" ? Side::camera : Side::sdk;
    std::cout << request(to, arguments[1], arguments[2], arguments.size() > 3 ? arguments[3] : "") << '\n';
    return 0;
}
