#include "camera_script.h"

#include <memory>

#include "agent/loginout.h"
#include "agent/session_key.h"

namespace {

std::string between(const std::string &text, const std::string &start, const std::string &end) {
    const size_t found = text.find(start);
    if (found == std::string::npos) return {};
    const size_t value = found + start.size();
    return text.substr(value, text.find(end, value) - value);
}

}  // namespace

std::string command_of(const CameraRequest &request) {
    const std::string action = between(request.body, "<Action>", "</Action>");
    if (!action.empty()) return action;
    const std::string prefix = "/CGI/";
    return request.target.rfind(prefix, 0) == 0 ? request.target.substr(prefix.size()) : request.target;
}

Texts commands(const FakeCamera &camera) {
    Texts all;
    for (const CameraRequest &request : camera.requests()) all.push_back(command_of(request));
    return all;
}

void play_script(FakeCamera &camera, CameraScript script) {
    // Requests come one at a time, so that the script needs no lock.
    const auto shared = std::make_shared<CameraScript>(std::move(script));
    camera.on_request([shared](const CameraRequest &request) -> CameraReply {
        const auto found = shared->find(command_of(request));
        if (found == shared->end()) return {.body = "no such command", .status = 404};
        std::vector<CameraReply> &list = found->second;
        CameraReply reply = list.front();
        if (list.size() > 1) list.erase(list.begin());
        return reply;
    });
}

CameraReply taken(const std::string &action) {
    return {.body = "<RemoteControl><Action>" + action + "</Action></RemoteControl>"};
}

CameraReply refused(int error_code) {
    return {.body = "<ErrorCode>" + std::to_string(error_code) + "</ErrorCode>"};
}

std::string log_of_status(const std::string &name, const std::string &key, const std::string &value) {
    const std::string trace = "!!!***platform/Z55/ak_model <N> ***!!!";
    return trace + "\n status_name=" + name + "\n , status_length =" + std::to_string(name.size()) +
           "\n[GET CameraStatus?" + key + "]\n" + trace + "\n xml_value " + value + " find\n" + trace +
           " status_name=" + name + "\n";
}

void log_in(FakeCamera &camera, const std::string &key) {
    camera.reply("/CGI/CameraLogin", {{.headers = {"Set-Cookie: Session=" + key + ";"}}});
    getSessionKey(session_key_buffer);
}
