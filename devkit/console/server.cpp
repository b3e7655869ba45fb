#include "server.h"

#include <fstream>
#include <iterator>

#include "device.h"
#include "guard.h"
#include "muxer.h"
#include "speech.h"
#include "text64.h"

namespace {

using httplib::DataSink;
using httplib::Request;
using httplib::Response;

constexpr const char *kJsonType = "application/json";
constexpr auto kHeartbeat = std::chrono::milliseconds(5000);
constexpr int kFirstPictureLooks = 40;  // of a quarter of a second
constexpr int kFramesWithoutSound = 12;

void say(Response &response, const json &content, int status = 200) {
    response.status = status;
    response.set_content(json_text(content) + "\n", kJsonType);
}

void say_result(Response &response, const std::string &wrong) {
    wrong.empty() ? say(response, json::object()) : say(response, {{"error", wrong}}, 400);
}

json body_of(const Request &request) {
    json body = json::parse(request.body, nullptr, false);
    return body.is_object() ? body : json::object();
}

// --- What lies behind.

void pass_on(const Console &desk, Side to, const Request &request, Response &response) {
    const size_t prefix = request.target.find('/', 1);
    const Answer got = desk.behind.send(to, request.method, request.target.substr(prefix), request.body);
    response.status = got.status;
    response.set_content(got.body, got.type.empty() ? kJsonType : got.type);
}

void add_passages(httplib::Server &server, const Console &desk) {
    for (const auto &[name, side] :
         {std::pair("/camera/.*", Side::camera), std::pair("/sdk/.*", Side::sdk)}) {
        const auto pass = [desk, to = side](const Request &request, Response &response) {
            pass_on(desk, to, request, response);
        };
        server.Get(name, pass).Post(name, pass).Put(name, pass).Patch(name, pass).Delete(name, pass);
    }
}

// --- The stream of events.

void stream_events(const Console &desk, Response &response) {
    const auto open = desk.page.listen();
    response.set_header("Cache-Control", "no-store");
    response.set_chunked_content_provider("text/event-stream", [open](size_t, DataSink &sink) {
        const auto event = open->next(kHeartbeat);
        if (!event) return false;
        const std::string &text = event->empty() ? ": still here\n\n" : *event;
        return sink.write(text.data(), text.size());
    });
}

// --- The live picture.

// Somebody watches as long as this lives.
struct Watching {
    Live &source;
    std::shared_ptr<Viewer> queue;

    explicit Watching(Live &from) : source(from), queue(from.add_viewer()) {}
    ~Watching() {
        source.remove_viewer(queue);
    }
    Watching(const Watching &) = delete;
    Watching &operator=(const Watching &) = delete;
};

// One viewer's film: what waited for its muxer, then frame by frame.
struct PictureStream : Watching {
    std::unique_ptr<Muxer> film{};
    std::string codecs{}, begun{};
    using Watching::Watching;
};

// Waits for a key frame and for sound, or a while without it; false where no picture comes.
bool begin_film(PictureStream &stream) {
    std::vector<SharedFrame> first;
    SharedFrame sound;
    for (int looks = 0; looks < kFirstPictureLooks && !stream.queue->ended();) {
        const SharedFrame frame = stream.queue->next();
        if (!frame) looks++;
        if (!frame || (first.empty() && !frame->key)) continue;
        first.push_back(frame);
        if (!frame->video && !sound) sound = frame;
        if (!sound && first.size() < kFramesWithoutSound) continue;
        stream.codecs = codec_names(*first.front(), sound.get());
        stream.film = stream.codecs.empty() ? nullptr : Muxer::begin(*first.front(), sound.get());
        if (!stream.film) return false;
        for (const SharedFrame &each : first) stream.film->feed(*each);
        stream.begun = stream.film->take();
        return true;
    }
    return false;
}

// One frame; false at the stream's end. A viewer that takes nothing blocks its own thread only.
bool send_more(PictureStream &stream, DataSink &sink) {
    if (!stream.begun.empty()) {
        const std::string begun = std::exchange(stream.begun, {});
        return sink.write(begun.data(), begun.size());
    }
    const SharedFrame frame = stream.queue->next();
    if (!frame && !stream.queue->ended()) return sink.is_writable();
    if (!frame || !stream.film->feed(*frame)) {
        sink.done();
        return true;
    }
    const std::string made = stream.film->take();
    return made.empty() || sink.write(made.data(), made.size());
}

void stream_pictures(const Console &desk, Response &response) {
    const auto stream = std::make_shared<PictureStream>(desk.pictures);
    if (!begin_film(*stream)) {  // no error: the page asks again
        response.status = 204;
        return;
    }
    response.set_header("Cache-Control", "no-store");
    response.set_header("X-Codecs", stream->codecs);
    response.set_chunked_content_provider(
        "video/mp4", [stream](size_t, DataSink &sink) { return send_more(*stream, sink); });
}

// A frame as it is, for whoever decodes by himself, behind 16 bytes in little endian: its length, its kind,
// and the machine's monotonic clock in microseconds when it was handed over.
std::string with_header(const LiveFrame &frame) {
    const uint32_t words[] = {static_cast<uint32_t>(frame.data.size()), frame.key     ? 2U
                                                                        : frame.video ? 1U
                                                                                      : 0U};
    std::string made;
    made.append(reinterpret_cast<const char *>(words), sizeof words);
    made.append(reinterpret_cast<const char *>(&frame.real_us), sizeof frame.real_us);
    return made + frame.data;
}

void stream_frames(const Console &desk, Response &response) {
    const auto watching = std::make_shared<Watching>(desk.pictures);
    response.set_header("Cache-Control", "no-store");
    response.set_chunked_content_provider("application/octet-stream", [watching](size_t, DataSink &sink) {
        const SharedFrame frame = watching->queue->next();
        if (!frame && watching->queue->ended()) sink.done();
        if (!frame) return sink.is_writable();
        const std::string made = with_header(*frame);
        return sink.write(made.data(), made.size());
    });
}

// --- The device.

void send_media(const Request &request, Response &response) {
    const std::string path = media_path(request.matches[1]);
    std::ifstream file(path, std::ios::binary);
    if (path.empty() || !file) return say(response, {{"error", "there is no such file"}}, 404);
    const bool photo = path.ends_with(".JPG") || path.ends_with(".THM");
    response.set_content(std::string(std::istreambuf_iterator<char>(file), {}),
                         photo ? "image/jpeg" : "video/mp4");
}

void say_sentence(const Console &desk, const Request &request, Response &response) {
    const std::string samples = spoken(body_of(request).value("text", ""));
    if (samples.empty()) return say(response, {{"error", "espeak-ng says nothing: is it installed?"}}, 503);
    const json order{{"pcm_base64", to_base64(samples)}, {"pace", "real"}};
    const Answer got = desk.behind.send(Side::sdk, "POST", "/talk", json_text(order));
    response.status = got.status;
    response.set_content(got.body, kJsonType);
}

void add_device(httplib::Server &server, const Console &desk) {
    server.Put("/api/tools/([a-z_]+)", [](const Request &request, Response &response) {
        say_result(response, order_tool(request.matches[1], body_of(request)));
    });
    server.Put("/api/card", [](const Request &request, Response &response) {
        say_result(response, fill_card(body_of(request).value("full", false)));
    });
    server.Post("/api/clock", [](const Request &request, Response &response) {
        const json step = body_of(request).value("step", json());
        say_result(response, step.is_number() ? step_clock(step) : "step is a number of seconds");
    });
    server.Get("/api/files/([^/]+)", send_media);
    server.Post("/api/say", [desk](const Request &request, Response &response) {
        say_sentence(desk, request, response);
    });
}

void add_scripts(httplib::Server &server, const Console &desk) {
    server.Get("/api/scenarios",
               [desk](const Request &, Response &response) { say(response, desk.scripts.list()); });
    server.Post("/api/scenarios/([a-z0-9-]+)", [desk](const Request &request, Response &response) {
        say_result(response, desk.scripts.start(request.matches[1]));
    });
    server.Get("/api/scenario",
               [desk](const Request &, Response &response) { say(response, desk.page.section("scenario")); });
    server.Delete("/api/scenarios", [desk](const Request &, Response &response) {
        desk.scripts.stop();
        say(response, json::object());
    });
}

}  // namespace

void add_routes(httplib::Server &server, const Console &desk, int port) {
    guard(server, port);
    server.set_mount_point("/", desk.web);
    server.set_file_extension_and_mimetype_mapping("mjs", "text/javascript");
    server.Get("/events", [desk](const Request &, Response &response) { stream_events(desk, response); });
    server.Get("/live", [desk](const Request &, Response &response) { stream_pictures(desk, response); });
    server.Get("/live/frames",
               [desk](const Request &, Response &response) { stream_frames(desk, response); });
    server.Get("/api/state",
               [desk](const Request &, Response &response) { say(response, desk.page.state()); });
    server.Get("/api/log-reference", [desk](const Request &, Response &response) {
        response.set_content(desk.log_reference, kJsonType);
    });
    add_passages(server, desk);
    add_device(server, desk);
    add_scripts(server, desk);
}
