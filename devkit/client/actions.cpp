#include "actions.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <sstream>

#include "base64.h"
#include "files.h"
#include "names.h"
#include "output.h"
#include "results.h"
#include "show.h"

using nlohmann::json;
namespace fs = std::filesystem;

namespace {

constexpr unsigned kClipSeconds = 10;

json number_or_text(const std::string &text) {
    json value = json::parse(text, nullptr, false);
    return value.is_discarded() ? json(text) : value;
}

// The parameter that says most about a misbehaviour; "" for none.
std::string main_parameter(const std::string &kind) {
    for (const Name &name : misbehaviours()) {
        if (kind == name.text) return name.values;
    }
    return "";
}

json call(const char *handler, const json &arguments) {
    return request_json(Side::sdk, "POST", "/call", {{"name", handler}, {"args", arguments}});
}

// The lines of a text, each an object of its own with --json.
void put_lines(const std::string &text) {
    if (!json_chosen()) {
        std::cout << text;
        return;
    }
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) put("", {{"line", line}});
}

}  // namespace

int order_fault(const Given &given) {
    const Texts &arguments = given.arguments;
    json fault = {{"endpoint", arguments[0]}, {"kind", arguments[1]}};
    Texts plain;
    for (size_t i = 2; i < arguments.size(); ++i) {
        const size_t equals = arguments[i].find('=');
        if (equals == std::string::npos || arguments[i].starts_with('<')) {
            plain.push_back(arguments[i]);
        } else {
            fault[arguments[i].substr(0, equals)] = number_or_text(arguments[i].substr(equals + 1));
        }
    }
    const std::string parameter = main_parameter(arguments[1]);
    if (!parameter.empty() && !plain.empty()) {
        fault[parameter] = parameter == "text" ? json(plain[0]) : number_or_text(plain[0]);
        plain.erase(plain.begin());
    }
    if (plain.size() > 1)
        throw DeskError("what is " + plain[1] + "? There is a value and how often; all else is NAME=VALUE");
    if (!plain.empty()) fault["count"] = number_or_text(plain[0]);
    return show_all(request_json(Side::camera, "POST", "/faults", fault), given);
}

int save_audio(const Given &given) {
    save_file(given.arguments[1], request(Side::camera, "GET", "/audio/" + given.arguments[0], ""));
    return 0;
}

int save_photo(const Given &given) {
    save_file(given.arguments[0], request(Side::camera, "GET", "/photo-last", ""));
    return 0;
}

int take_snapshot(const Given &given) {
    const json mode = given.arguments.size() > 1 ? number_or_text(given.arguments[1]) : json(0);
    const json result = only_result(
        request_json(Side::sdk, "POST", "/call",
                     {{"name", "get_camera_snapshot"}, {"args", json::array({mode})}, {"buffer", 1}}));
    if (const int number = result.value("result", -1); number != 0)
        return tell_result("get_camera_snapshot", {{"result", number}});
    save_file(given.arguments[0], from_base64(result.value("data_base64", std::string())));
    return 0;
}

int talk(const Given &given) {
    const std::string samples = read_samples(given.arguments[0]);
    const std::string pace = given.arguments.size() > 1 ? given.arguments[1] : "real";
    return show_all(
        request_json(Side::sdk, "POST", "/talk", {{"pcm_base64", to_base64(samples)}, {"pace", pace}}),
        given);
}

int save_frames(const Given &given) {
    // The agent's process writes them: in a folder that it sees under the same name, unlike this one's /tmp.
    const fs::path folder = fs::absolute(run_folder());
    const std::string beside = "/.saving-" + std::to_string(getpid());
    const std::string video = folder.string() + beside + ".h264", audio = folder.string() + beside + ".aac";
    const auto seconds =
        given.arguments.size() > 2 ? static_cast<unsigned>(std::stoul(given.arguments[2])) : kClipSeconds;
    request_json(Side::sdk, "POST", "/frames/save", {{"h264", video}, {"aac", audio}});
    sleep(seconds);
    show_all(request_json(Side::sdk, "POST", "/frames/stop"), given);
    save_file(given.arguments[0], read_file(video));
    save_file(given.arguments[1], read_file(audio));
    fs::remove(video);
    fs::remove(audio);
    return 0;
}

int reboot_device(const Given &) {
    request(Side::sdk, "GET", "/calls", "");  // nobody there: say so
    json reply;
    try {
        reply = call("rebootOperation", json::array());
    } catch (const DeskError &) {
        put("the agent is gone; see how it comes back", {{"gone", true}});  // the call does not return
        return 0;
    }
    return tell_result("rebootOperation", only_result(reply));
}

int call_handler(const Given &given) {
    json handler_arguments = json::array();
    for (size_t i = 1; i < given.arguments.size(); ++i)
        handler_arguments.push_back(number_or_text(given.arguments[i]));
    return show_calls(call(given.arguments[0].c_str(), handler_arguments), given);
}

int set_token(const Given &given) {
    const json token = given.arguments[0] == "none" ? json(nullptr) : json(given.arguments[0]);
    return show_all(request_json(Side::sdk, "PUT", "/token", {{"token", token}}), given);
}

int recording_log(const Given &) {
    const json reply =
        call("read_conf_value", json::array({"RECORDING_LOG_FILE", "/tmp/working/VeloAgent.conf"}));
    const json path = only_result(reply).value("value", json());
    if (!path.is_string())
        throw DeskError("RECORDING_LOG_FILE does not stand in the device's VeloAgent.conf");
    const std::string file = device_path(path);
    if (fs::exists(file)) {
        put_lines(read_file(file, path));
    } else if (!json_chosen()) {
        put("no recording has been finished yet", {});
    }
    return 0;
}

int print_file(const Given &given) {
    put_lines(read_file(device_path(given.arguments[0]), given.arguments[0]));
    return 0;
}

int list_folder(const Given &given) {
    std::error_code error;
    for (const fs::directory_entry &entry : fs::directory_iterator(device_path(given.arguments[0]), error)) {
        const std::string name = entry.path().filename().string();
        json object = {{"name", name}, {"bytes", nullptr}};
        std::error_code gone;
        if (entry.is_regular_file(gone)) object["bytes"] = entry.file_size(gone);
        put(object["bytes"].is_null() ? name : name + "  " + object["bytes"].dump(), object);
    }
    if (error) throw DeskError("cannot list " + given.arguments[0] + ": " + error.message());
    return 0;
}

int send_plain(const Given &given) {
    const Texts &arguments = given.arguments;
    const Side to = arguments[0] == "camera" ? Side::camera : Side::sdk;
    if (arguments.size() > 3 && json::parse(arguments[3], nullptr, false).is_discarded())
        throw DeskError("this is no JSON: " + arguments[3]);
    const std::string reply =
        request(to, arguments[1], arguments[2], arguments.size() > 3 ? arguments[3] : "");
    const json parsed = json::parse(reply, nullptr, false);
    if (!parsed.is_discarded()) return show_all(parsed, given);
    put(reply, {{"text", reply}});
    return 0;
}
