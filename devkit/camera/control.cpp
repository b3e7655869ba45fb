#include "control.h"

#include <httplib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "checked_merge.h"
#include "state_view.h"

struct ControlServer::Parts {
    Camera &cam;
    FaultList &faults;
    Journal &log;
    CgiServer &cgi;
    httplib::Server server{};
    std::thread thread{};
    int port = 0;
};

namespace {

using Request = httplib::Request;
using Response = httplib::Response;

// Enough threads that idle keep-alive connections do not make others wait.
constexpr std::size_t kControlThreads = 32;

void say(Response &answer, const json &content) {
    answer.set_content(content.dump(-1, ' ', false, json::error_handler_t::replace) + "\n",
                       "application/json");
}

void say_bytes(Response &answer, const std::string &bytes, const char *type) {
    answer.set_content(bytes, type);
}

std::size_t number_parameter(const Request &asked, const char *name, std::size_t otherwise) {
    if (!asked.has_param(name)) return otherwise;
    return std::stoull(asked.get_param_value(name));
}

// Statuses and setting elements are texts; numbers are taken as such, null passes.
json as_texts(const json &object) {
    if (!object.is_object()) throw std::invalid_argument("an object is expected");
    json texts = json::object();
    for (const auto &[name, value] : object.items()) {
        if (!value.is_string() && !value.is_number() && !value.is_null())
            throw std::invalid_argument("not a text: " + name);
        texts[name] = value.is_number() ? json(value.dump()) : value;
    }
    return texts;
}

void change_status(Camera &cam, const json &changes) {
    const json texts = as_texts(changes);
    std::lock_guard guard(cam.lock);
    for (const auto &[name, value] : texts.items()) cam.events.erase(name);
    cam.status.merge_patch(texts);
}

void change_config(Camera &cam, const json &changes) {
    std::lock_guard guard(cam.lock);
    json merged = cam.config;
    checked_merge(merged, changes);
    const std::string outcome = merged["upgrade"]["outcome"];
    if (outcome != "success" && outcome != "fail_download" && outcome != "fail_upgrade" && outcome != "stuck")
        throw std::invalid_argument("no such outcome of an upgrade: " + outcome);
    if (merged["upgrade"]["steps"] < 1) throw std::invalid_argument("an upgrade has at least one step");
    cam.config = std::move(merged);
}

void order_event(Camera &cam, const json &order) {
    json event = {{"name", ""}, {"polls", 1}, {"value", "1"}};
    checked_merge(event, order);
    if (event["name"] == "" || event["polls"] < 1)
        throw std::invalid_argument("an event needs a name and 1 or more polls");
    std::lock_guard guard(cam.lock);
    raise_event(cam, event["name"], event["value"], event["polls"]);
}

void say_missing(Response &answer, const std::string &what) {
    say(answer, {{"error", what}});
    answer.status = 404;
}

void send_audio(Camera &cam, std::size_t number, Response &answer) {
    std::lock_guard guard(cam.lock);
    const std::size_t forgotten = cam.audio_clip_count - cam.audio_clips.size();
    if (number <= forgotten || number > cam.audio_clip_count)
        say_missing(answer, cam.audio_clip_count == 0
                                ? "no clip has come yet"
                                : "there is no clip " + std::to_string(number) + "; the newest is " +
                                      std::to_string(cam.audio_clip_count));
    else
        say_bytes(answer, cam.audio_clips[number - forgotten - 1], "audio/wav");
}

void send_photo(Camera &cam, Response &answer) {
    std::lock_guard guard(cam.lock);
    if (cam.last_photo.empty())
        say_missing(answer, "no photo was taken yet");
    else
        say_bytes(answer, cam.last_photo, "image/jpeg");
}

void expect_switched(bool switched) {
    if (!switched)
        throw std::runtime_error(std::string("the network cannot be switched: ") + std::strerror(errno));
}

void add_state_routes(httplib::Server &server, Camera &cam, Journal &log, CgiServer &cgi) {
    server.Get("/health", [&](const Request &, Response &answer) {
        say(answer, {{"ok", true}, {"pid", getpid()}, {"cgi", cgi.port()}});
    });
    server.Get("/state", [&](const Request &, Response &answer) { say(answer, state_json(cam, log, cgi)); });
    server.Patch("/status", [&](const Request &asked, Response &answer) {
        change_status(cam, json::parse(asked.body));
        say(answer, json::object());
    });
    server.Patch(R"(/settings/(\w+))", [&](const Request &asked, Response &answer) {
        const json elements = json::parse(asked.body);
        const json texts = elements.is_null() ? elements : as_texts(elements);
        std::lock_guard guard(cam.lock);
        change_settings(cam, asked.matches[1], texts);
        say(answer, json::object());
    });
    server.Patch("/config", [&](const Request &asked, Response &answer) {
        change_config(cam, json::parse(asked.body));
        say(answer, json::object());
    });
    server.Post("/event", [&](const Request &asked, Response &answer) {
        order_event(cam, json::parse(asked.body));
        say(answer, json::object());
    });
    server.Get(R"(/audio/(\d{1,9}))", [&](const Request &asked, Response &answer) {
        send_audio(cam, std::stoul(asked.matches[1]), answer);
    });
    server.Get("/photo-last", [&](const Request &, Response &answer) { send_photo(cam, answer); });
}

void add_fault_routes(httplib::Server &server, FaultList &faults) {
    server.Post("/faults", [&](const Request &asked, Response &answer) {
        say(answer, {{"id", add_fault(faults, json::parse(asked.body))}});
    });
    server.Get("/faults", [&](const Request &, Response &answer) { say(answer, faults_json(faults)); });
    server.Delete("/faults", [&](const Request &, Response &answer) {
        clear_faults(faults, 0);
        say(answer, json::object());
    });
    server.Delete(R"(/faults/([1-9]\d{0,8}))", [&](const Request &asked, Response &answer) {
        if (!clear_faults(faults, std::stoi(asked.matches[1]))) throw std::invalid_argument("no such fault");
        say(answer, json::object());
    });
}

void add_request_routes(httplib::Server &server, Journal &log, CgiServer &cgi) {
    server.Get("/requests", [&](const Request &asked, Response &answer) {
        const std::string endpoint = asked.has_param("endpoint") ? asked.get_param_value("endpoint") : "";
        say(answer, journal_list(log, number_parameter(asked, "since", 0), endpoint,
                                 number_parameter(asked, "limit", static_cast<std::size_t>(-1))));
    });
    server.Delete("/requests", [&](const Request &, Response &answer) {
        journal_clear(log);
        cgi.reset_max_concurrent();
        say(answer, json::object());
    });
}

void add_switches(httplib::Server &server, Camera &cam, CgiServer &cgi) {
    const auto add = [&](const char *path, const std::function<void()> &turn) {
        server.Post(path, [turn](const Request &, Response &answer) {
            turn();
            say(answer, json::object());
        });
    };
    add("/session/expire", [&] {
        std::lock_guard guard(cam.lock);
        cam.sessions.clear();
    });
    add("/restart", [&] { restart_camera(cam); });
    add("/vanish", [&] { expect_switched(cgi.vanish()); });
    add("/appear", [&] { expect_switched(cgi.appear()); });
    add("/refuse", [&] { expect_switched(cgi.refuse()); });
    add("/accept", [&] { expect_switched(cgi.accept()); });
}

void report_exception(const Request &, Response &answer, const std::exception_ptr &thrown) {
    answer.status = 400;
    try {
        std::rethrow_exception(thrown);
    } catch (const std::exception &error) {
        say(answer, {{"error", error.what()}});
    }
}

}  // namespace

ControlServer::ControlServer(Camera &cam, FaultList &faults, Journal &log, CgiServer &cgi)
    : parts_(new Parts{cam, faults, log, cgi}) {
    httplib::Server &server = parts_->server;
    server.new_task_queue = [] { return new httplib::ThreadPool(kControlThreads); };
    server.set_tcp_nodelay(true);
    server.set_payload_max_length(64 * 1024 * 1024);
    server.set_socket_options([](socket_t fd) {
        const int on = 1;  // not SO_REUSEPORT, with which a busy port would seem free
        setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    });
    server.set_exception_handler(report_exception);
    add_state_routes(server, cam, log, cgi);
    add_fault_routes(server, faults);
    add_request_routes(server, log, cgi);
    add_switches(server, cam, cgi);
}

ControlServer::~ControlServer() {
    parts_->server.stop();
    if (parts_->thread.joinable()) parts_->thread.join();
}

bool ControlServer::start(const std::string &address, int port) {
    parts_->port = port;
    if (port == 0) parts_->port = parts_->server.bind_to_any_port(address);
    if (parts_->port <= 0 || (port != 0 && !parts_->server.bind_to_port(address, port))) return false;
    parts_->thread = std::thread([this] { parts_->server.listen_after_bind(); });
    while (!parts_->server.is_running()) std::this_thread::yield();  // stop() has no effect before
    return true;
}

int ControlServer::port() const {
    return parts_->port;
}
