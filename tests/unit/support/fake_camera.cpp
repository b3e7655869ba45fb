#include "fake_camera.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <map>
#include <mutex>
#include <thread>

namespace {

constexpr int kPort = 8080;

bool send_all(int socket, const std::string &bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count = send(socket, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (count <= 0) return false;
        done += static_cast<size_t>(count);
    }
    return true;
}

// Adds what comes to `bytes`; false when the peer is gone.
bool receive_more(int socket, std::string &bytes) {
    char piece[65536];
    const ssize_t count = recv(socket, piece, sizeof piece, 0);
    if (count <= 0) return false;
    bytes.append(piece, static_cast<size_t>(count));
    return true;
}

// The next request of the connection; `rest` keeps what came beyond it. False when the peer is gone.
bool receive_request(int socket, std::string &rest, CameraRequest &request) {
    size_t end = 0;
    while ((end = rest.find("\r\n\r\n")) == std::string::npos) {
        if (!receive_more(socket, rest)) return false;
    }
    request.head = rest.substr(0, end + 4);
    rest.erase(0, end + 4);
    const std::string line = request.head.substr(0, request.head.find("\r\n"));
    const size_t first = line.find(' '), last = line.rfind(' ');
    request.method = line.substr(0, first);
    request.target = line.substr(first + 1, last - first - 1);
    request.version = line.substr(last + 1);
    request.cookie = request.header("Cookie");
    if (request.header("Expect") == "100-continue") send_all(socket, "HTTP/1.1 100 Continue\r\n\r\n");
    const size_t length = std::strtoul(request.header("Content-Length").c_str(), nullptr, 10);
    while (rest.size() < length) {
        if (!receive_more(socket, rest)) return false;
    }
    request.body = rest.substr(0, length);
    rest.erase(0, length);
    return true;
}

std::string chunked(const Texts &chunks) {
    std::string text;
    for (const std::string &chunk : chunks) {
        char size[20];
        std::snprintf(size, sizeof size, "%zx\r\n", chunk.size());
        text += size + chunk + "\r\n";
    }
    return text + "0\r\n\r\n";
}

std::string bytes_of(const CameraReply &reply) {
    if (!reply.raw.empty()) return reply.raw;
    std::string text = reply.version + " " + std::to_string(reply.status) + " Any\r\n";
    for (const std::string &header : reply.headers) text += header + "\r\n";
    if (!reply.chunks.empty()) return text + "Transfer-Encoding: chunked\r\n\r\n" + chunked(reply.chunks);
    return text + "Content-Length: " + std::to_string(reply.body.size()) + "\r\n\r\n" + reply.body;
}

}  // namespace

std::string CameraRequest::header(const std::string &name) const {
    const std::string start = "\r\n" + name + ": ";
    const size_t found = head.find(start);
    if (found == std::string::npos) return {};
    const size_t value = found + start.size();
    return head.substr(value, head.find("\r\n", value) - value);
}

std::string CameraRequest::text() const {
    return method + " " + target + " " + (cookie.empty() ? "-" : cookie) + (body.empty() ? "" : "\n" + body);
}

struct FakeCamera::Server {
    struct Connection {
        int socket;
        std::thread thread = {};
        bool over = false;
    };

    mutable std::mutex lock;  // guards all below; not held while answering
    std::vector<CameraRequest> requests;
    std::map<std::string, std::vector<CameraReply>> replies;
    std::function<CameraReply(const CameraRequest &)> answer;
    std::list<Connection> connections;
    int now_answering = 0, most_at_once = 0;

    int listener = -1;
    std::thread acceptor;

    void listen_again() {
        listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const int on = 1;
        setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(kPort);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
            listen(listener, 128) != 0) {
            std::perror("fake camera: port 8080");
            std::abort();
        }
        acceptor = std::thread([this, from = listener] { accept_all(from); });
    }

    void accept_all(int from) {
        for (;;) {
            const int socket = accept4(from, nullptr, nullptr, SOCK_CLOEXEC);
            if (socket < 0) return;
            const int on = 1;
            setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            const std::lock_guard<std::mutex> guard(lock);
            connections.remove_if(end_if_over);
            Connection &connection = connections.emplace_back(Connection{.socket = socket});
            connection.thread = std::thread([this, &connection] { serve(connection); });
        }
    }

    // The stacks of thousands of threads that nobody has joined fill a 32-bit address space.
    static bool end_if_over(Connection &connection) {
        if (!connection.over) return false;
        connection.thread.join();
        close(connection.socket);
        return true;
    }

    void serve(Connection &connection) {
        const int socket = connection.socket;
        std::string rest;
        for (CameraRequest request; receive_request(socket, rest, request); request = {}) {
            const CameraReply reply = next_reply(request);
            if (reply.before) reply.before(request);
            {
                // Counted off before the answer: the next request may follow it at once.
                const std::lock_guard<std::mutex> guard(lock);
                now_answering--;
            }
            if (reply.hang_up || !send_all(socket, bytes_of(reply)) || !reply.raw.empty()) break;
        }
        shutdown(socket, SHUT_RDWR);
        const std::lock_guard<std::mutex> guard(lock);
        connection.over = true;
    }

    CameraReply next_reply(const CameraRequest &request) {
        std::function<CameraReply(const CameraRequest &)> chosen;
        {
            const std::lock_guard<std::mutex> guard(lock);
            requests.push_back(request);
            most_at_once = std::max(most_at_once, ++now_answering);
            chosen = answer;
            if (!chosen) return scripted_reply(request.target);
        }
        return chosen(request);
    }

    CameraReply scripted_reply(const std::string &target) {
        auto found = replies.find(target);
        if (found == replies.end()) found = replies.find(target.substr(0, target.find('?')));
        if (found == replies.end()) return {.body = "no such target", .status = 404};
        std::vector<CameraReply> &list = found->second;
        CameraReply reply = list.front();
        if (list.size() > 1) list.erase(list.begin());
        return reply;
    }

    void stop_listening() {
        if (listener < 0) return;
        shutdown(listener, SHUT_RDWR);
        acceptor.join();
        close(listener);
        listener = -1;
    }

    void end_connections() {
        std::list<Connection> all;
        {
            const std::lock_guard<std::mutex> guard(lock);
            all.swap(connections);
        }
        for (Connection &connection : all) {
            shutdown(connection.socket, SHUT_RDWR);
            connection.thread.join();
            close(connection.socket);
        }
    }
};

FakeCamera::FakeCamera() : server_(std::make_unique<Server>()) {
    server_->listen_again();
}

FakeCamera::~FakeCamera() {
    go_away();
}

void FakeCamera::reply(const std::string &target, std::vector<CameraReply> replies) {
    const std::lock_guard<std::mutex> guard(server_->lock);
    server_->replies[target] = std::move(replies);
}

void FakeCamera::on_request(std::function<CameraReply(const CameraRequest &)> answer) {
    const std::lock_guard<std::mutex> guard(server_->lock);
    server_->answer = std::move(answer);
}

std::vector<CameraRequest> FakeCamera::requests() const {
    const std::lock_guard<std::mutex> guard(server_->lock);
    return server_->requests;
}

Texts FakeCamera::seen() const {
    Texts texts;
    for (const CameraRequest &request : requests()) texts.push_back(request.text());
    return texts;
}

void FakeCamera::forget() {
    const std::lock_guard<std::mutex> guard(server_->lock);
    server_->requests.clear();
    server_->most_at_once = server_->now_answering;
}

int FakeCamera::most_at_once() const {
    const std::lock_guard<std::mutex> guard(server_->lock);
    return server_->most_at_once;
}

void FakeCamera::go_away() {
    server_->stop_listening();
    server_->end_connections();
}

void FakeCamera::come_back() {
    if (server_->listener < 0) server_->listen_again();
}
