// Requests to the camera, each on a connection of its own as the agent makes them.
#include <arpa/inet.h>
#include <curl/curl.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "agent/curlmgr.h"
#include "agent/session_key.h"
#include "agent/utils/conf_file.h"
#include "agent/utils/transfer.h"
#include "bench.h"
#include "exports.h"
#include "z55cgi.h"

namespace {

constexpr char kKey[] = "1000001";
constexpr char kSetting[] = "/CGI/CameraSetting?MOTION_DETECTION";
constexpr char kPollQuery[] = "Notification&MotionEvent&AudioEvent&TemperatureEvent&Battery&Space&SDStatus";
constexpr int kBatch = 4;

std::string peer_address() {
    return "127.0.0.1:" + std::to_string(server_port());
}

size_t collect(char *piece, size_t size, size_t nmemb, void *body) {
    static_cast<std::string *>(body)->append(piece, size * nmemb);
    return size * nmemb;
}

void perform_by(CURL *handle, const std::string &url) {
    std::string body;
    curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle, CURLOPT_COOKIE, "Session=1000001");
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, collect);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &body);
    if (curl_easy_perform(handle) != CURLE_OK || body.empty()) std::abort();
}

// What libcurl's own examples do.
void by_libcurl(const std::string &url) {
    CURL *handle = curl_easy_init();
    perform_by(handle, url);
    curl_easy_cleanup(handle);
}

// The least that a request by libcurl costs which has a connection of its own.
void by_kept_handle(const std::string &url) {
    static CURL *handle = curl_easy_init();
    curl_easy_reset(handle);
    curl_easy_setopt(handle, CURLOPT_FORBID_REUSE, 1L);
    perform_by(handle, url);
}

// What no client can do without: a connection, one write, the reads.
void by_sockets(const std::string &target) {
    const std::string request = "GET " + target + " HTTP/1.1\r\nHost: " + peer_address() +
                                "\r\nAccept: */*\r\nCookie: Session=1000001\r\n\r\n";
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(server_port()));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int peer = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(peer, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) std::abort();
    [[maybe_unused]] const ssize_t sent = write(peer, request.data(), request.size());
    char reply[4096];
    std::string all;
    for (ssize_t count; (count = read(peer, reply, sizeof reply)) > 0;)
        all.append(reply, static_cast<size_t>(count));
    close(peer);
    keep(all.data());
}

Row request_row(const char *id, const std::string &target, std::function<void()> product) {
    const std::string url = "http://" + peer_address() + target;
    Row row{id,
            {{"product", std::move(product)},
             {"libcurl", [url] { by_libcurl(url); }},
             {"floor: sockets", [target] { by_sockets(target); }},
             {"libcurl, one handle", [url] { by_kept_handle(url); }}},
            kBatch,
            400,
            true};
    add_request_peers(row, target);
    return row;
}

void get_setting_once() {
    if (!curl_GET("http://" + peer_address() + kSetting)) std::abort();
}

void poll_once() {
    if (!perform_curl("http://" + peer_address() + "/CGI/CameraStatus", kKey, kPollQuery)) std::abort();
}

void get_recording_once() {
    std::string reply;
    if (getSingleCameraStatus(kKey, "Recording", reply) != 0) std::abort();
}

// The agent's part of a start that requests need.
void start_agent() {
    FILE *conf = std::fopen(kConfPath, "we");
    if (conf == nullptr) std::abort();
    std::fprintf(conf, "hostIP=%s\n", peer_address().c_str());
    for (int i = 2; i <= 25; i++) std::fprintf(conf, "SOME_SETTING_%02d=some value\n", i);
    std::fclose(conf);
    std::snprintf(hostIP, sizeof hostIP, "%s", peer_address().c_str());
    store_session_key(session_key_buffer, kKey);
    prepare_transfers();
    start_curl_thread(nullptr);
}

}  // namespace

void add_request_rows(std::vector<Row> &rows) {
    start_agent();
    rows.push_back(request_row("request of 300 B", kSetting, get_setting_once));
    rows.push_back(request_row("poll request", std::string("/CGI/CameraStatus?") + kPollQuery, poll_once));
    rows.push_back(request_row("getSingleCameraStatus", "/CGI/CameraStatus?Recording", get_recording_once));
}
