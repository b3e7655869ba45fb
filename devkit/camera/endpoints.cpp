#include "endpoints.h"

#include <algorithm>
#include <fstream>
#include <iterator>

#include "media.h"
#include "remote_control.h"
#include "xml.h"

namespace {

// What an endpoint has to say: an error, or the content of the document that bears its name.
struct Answer {
    int error = 0;
    std::string content;
    std::vector<std::string> header_lines;
};

std::vector<std::string> query_parts(const std::string &query) {
    std::vector<std::string> parts;
    for (std::size_t start = 0; start < query.size();) {
        const auto end = std::min(query.find('&', start), query.size());
        if (end > start) parts.push_back(query.substr(start, end - start));
        start = end + 1;
    }
    return parts;
}

std::string query_value(const std::string &query, const std::string &name) {
    for (const auto &part : query_parts(query))
        if (part.starts_with(name + "=")) return part.substr(name.size() + 1);
    return "";
}

// Some clients put lines that look like a header before the document; without a "<" there is none.
std::string document_in(const std::string &body) {
    const auto start = body.find('<');
    return start == body.npos ? "" : body.substr(start);
}

Answer camera_login(Camera &cam, const HttpRequest &request) {
    const bool accepted = query_value(request.query(), "Device") == cam.config["device"].get<std::string>() &&
                          query_value(request.query(), "Stream") == cam.config["stream"].get<std::string>() &&
                          request.body == "password=" + cam.config["password"].get<std::string>();
    if (!accepted) return {login_refused, "", {}};
    return {0,
            xml_element("FWVER", cam.config["fwver"].get<std::string>()),
            {"Set-Cookie: Session=" + add_session(cam) + "; path=/"}};
}

Answer camera_status(Camera &cam, const HttpRequest &request) {
    Answer said;
    for (const auto &name : query_parts(request.query()))
        if (const json value = query_status(cam, name); value.is_string())
            said.content += xml_element(name, value.get<std::string>());
    return said;
}

Answer camera_setting(Camera &cam, const HttpRequest &request) {
    Answer said;
    for (const auto &group : query_parts(request.query())) {
        const auto found = cam.settings.find(group);
        if (found == cam.settings.end()) continue;
        std::string elements;
        for (const auto &[name, value] : found->items())
            elements += xml_element(name, value.get<std::string>());
        said.content += xml_element(group, elements);
    }
    return said;
}

json as_json(const XmlElements &elements) {
    json object = json::object();
    for (const auto &[name, content] : elements) object[name] = content;
    return object;
}

// A setting group is taken as a whole only: every element that it has, and no other.
bool set_group(Camera &cam, const std::string &group, const std::string &content) {
    const auto known = cam.settings.find(group);
    if (known == cam.settings.end()) return false;
    const json given = as_json(top_elements(content));
    if (given.size() != known->size()) return false;
    for (const auto &[name, value] : known->items())
        if (!given.contains(name)) return false;
    change_settings(cam, group, given);
    return true;
}

bool set_item(Camera &cam, const std::string &content) {
    bool understood = false;
    for (const auto &[name, inner] : top_elements(content)) {
        if (name == "Time") cam.time_document = as_json(top_elements(inner));
        if (name == "FW_UPGRADE") cam.fw_upgrade = inner;
        understood = understood || name == "Time" || name == "FW_UPGRADE";
    }
    return understood;
}

Answer camera_setup(Camera &cam, const HttpRequest &request) {
    const std::string document = document_in(request.body);
    if (document.empty()) return {};
    const auto setup = find_element(top_elements(document), "CameraSetup");
    const auto parts = top_elements(setup.value_or(""));
    if (parts.empty()) return {unusable_document, "", {}};
    for (const auto &[name, content] : parts)
        if (name == "Item" ? !set_item(cam, content) : !set_group(cam, name, content))
            return {unusable_document, "", {}};
    return {};
}

Answer remote_control_action(Camera &cam, const HttpRequest &request) {
    const std::string document = document_in(request.body);
    if (document.empty()) return {};
    const auto control = find_element(top_elements(document), "RemoteControl");
    const auto elements = top_elements(control.value_or(""));
    std::string extra;
    if (const int error = remote_control(cam, elements, extra)) return {error, "", {}};
    return {0, xml_element("Action", *find_element(elements, "Action")) + extra, {}};
}

Answer camera_info(Camera &cam, const HttpRequest &) {
    return {0, xml_element("UUID", cam.config["uuid"].get<std::string>()), {}};
}

Answer video_list(Camera &cam, const HttpRequest &request) {
    const auto names = video_names(cam.card);
    const auto start = std::strtoul(query_value(request.query(), "start").c_str(), nullptr, 10);
    const auto end = std::strtoul(query_value(request.query(), "end").c_str(), nullptr, 10);
    Answer said;
    for (std::size_t i = std::max(start, 1ul); i <= std::min<std::size_t>(end, names.size()); ++i)
        said.content += xml_element("Video", xml_element("Name", names[i - 1]));
    return said;
}

Answer mobile_audio(Camera &cam, const HttpRequest &request) {
    cam.audio_clips.push_back(request.body);
    ++cam.audio_clip_count;
    if (cam.audio_clips.size() > kAudioClipsKept) cam.audio_clips.pop_front();
    return {0, xml_element("Action", "MOBILE_AUDIO"), {}};
}

constexpr struct EndpointRow {
    const char *name;
    bool needs_session;
    bool says_zero;  // may hold <ErrorCode>0</ErrorCode>
    Answer (*run)(Camera &cam, const HttpRequest &request);
} kEndpoints[] = {
    {"CameraLogin", false, true, camera_login},
    {"CameraStatus", true, true, camera_status},
    {"CameraSetting", true, true, camera_setting},
    {"CameraSetup", true, true, camera_setup},
    {"RemoteControl", true, true, remote_control_action},
    {"CameraInfo", true, true, camera_info},
    {"VideoList", true, false, video_list},
    {"MobileAudio", true, true, mobile_audio},
};

HttpReply file_reply(const Camera &cam, const std::string &path) {
    HttpReply reply;
    std::ifstream file;
    const auto full = cam.card / path.substr(std::min<std::size_t>(path.find_first_not_of('/'), path.size()));
    if (path.find("..") == path.npos && std::filesystem::is_regular_file(full))
        file.open(full, std::ios::binary);
    if (file.is_open()) {
        reply.body.assign(std::istreambuf_iterator<char>(file), {});
        reply.content_type = full.extension() == ".MP4" ? "video/mp4" : "image/jpeg";
    } else {
        reply.status = 404;
        reply.body = "not found";
        reply.content_type = "text/plain";
    }
    return reply;
}

}  // namespace

std::string error_document(const std::string &endpoint, int error) {
    return xml_element(endpoint, xml_element("ErrorCode", std::to_string(error)));
}

HttpReply answer_request(Camera &cam, const HttpRequest &request) {
    const std::string name = request.endpoint();
    if (name == "photo") return file_reply(cam, request.path());
    HttpReply reply;
    const auto row = std::find_if(std::begin(kEndpoints), std::end(kEndpoints),
                                  [&](const auto &r) { return name == r.name; });
    if (row == std::end(kEndpoints)) {
        reply.body = error_document("CGI", unknown_request);
        return reply;
    }
    std::lock_guard guard(cam.lock);
    Answer said;
    if (row->needs_session && !session_valid(cam, request.session()))
        said.error = unknown_session;
    else
        said = row->run(cam, request);
    const bool zero = row->says_zero && cam.config["error_zero"];
    if (said.error != 0)
        reply.body = error_document(name, said.error);
    else
        reply.body = xml_element(name, (zero ? xml_element("ErrorCode", "0") : "") + said.content);
    reply.header_lines = std::move(said.header_lines);
    return reply;
}
