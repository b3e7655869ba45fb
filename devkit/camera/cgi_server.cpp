#include "cgi_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "endpoints.h"

namespace {

constexpr int kBacklog = 128;
constexpr int kAcceptPollMs = 20;  // how soon the accept loop sees that the listener was exchanged

// The kernel drops packets with a smaller time to live than this, SYNs, data, FINs and probes alike, without
// an answer, and nobody sends with the largest. It needs no privilege, as a packet filter may.
bool drop_packets(int fd, bool drop) {
    const int least = drop ? 255 : 0;
    return setsockopt(fd, IPPROTO_IP, IP_MINTTL, &least, sizeof least) == 0;
}

}  // namespace

CgiServer::~CgiServer() {
    {
        std::lock_guard guard(net_.lock);
        stopping_ = true;
    }
    if (accept_thread_.joinable()) accept_thread_.join();
    drop_connections();
    appear();
    for (const auto &link : net_.links) link->thread.join();  // nobody else touches the list any more
    if (listener_ >= 0) close(listener_);
}

bool CgiServer::start(const std::string &address, int port) {
    address_ = address;
    port_ = port;
    if (!open_socket() || listen(listener_, kBacklog) != 0) return false;
    listening_ = true;
    sockaddr_in bound{};
    socklen_t size = sizeof bound;
    getsockname(listener_, reinterpret_cast<sockaddr *>(&bound), &size);
    port_ = ntohs(bound.sin_port);
    accept_thread_ = std::thread([this] { accept_loop(); });
    return true;
}

// Binds a socket that does not listen yet but keeps the port: whoever connects to it is refused.
bool CgiServer::open_socket() {
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const int on = 1;
    setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_port = htons(static_cast<uint16_t>(port_));
    return inet_pton(AF_INET, address_.c_str(), &own.sin_addr) == 1 &&
           bind(listener_, reinterpret_cast<const sockaddr *>(&own), sizeof own) == 0;
}

void CgiServer::accept_loop() {
    for (;;) {
        pollfd entry{-1, POLLIN, 0};
        {
            std::lock_guard guard(net_.lock);
            if (stopping_) return;
            if (listening_) entry.fd = listener_;
        }
        poll(&entry, 1, kAcceptPollMs);
        std::lock_guard guard(net_.lock);
        join_finished();
        accept_waiting();
    }
}

// The lock is held.
void CgiServer::join_finished() {
    std::erase_if(net_.links, [](const auto &link) {
        if (link->finished) link->thread.join();
        return link->finished;
    });
}

// The lock is held.
void CgiServer::accept_waiting() {
    if (!listening_) return;
    for (int fd; (fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
        const int on = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        if (net_.vanished) drop_packets(fd, true);
        auto &link = *net_.links.emplace_back(std::make_unique<ConnectionLink>());
        link.fd = fd;
        link.thread = std::thread([this, &link] { serve(link); });
    }
}

void CgiServer::serve(ConnectionLink &link) {
    std::string buffer;
    bool open = true, in_request = false, continued = false;
    double first_byte_ms = 0;
    while (open) {
        if (!buffer.empty() && !in_request) {
            in_request = true;
            continued = false;
            first_byte_ms = monotonic_ms();
            request_begins(net_, link);
        }
        HttpRequest request;
        bool wants_continue = false;
        const auto result = take_request(buffer, request, wants_continue);
        if (result == ParseResult::complete) {
            open = serve_request(link, request, first_byte_ms);
            in_request = false;
        } else if (result == ParseResult::malformed) {
            send_bytes(net_, link, reply_header({400, "", "text/plain", {}, true}, 0), true);
            open = false;
        } else {
            if (wants_continue && !continued)
                open = send_bytes(net_, link, "HTTP/1.1 100 Continue\r\n\r\n", false);
            continued = wants_continue;
            open = open && receive_some(net_, link, buffer);
        }
    }
    close_link(net_, link);
}

bool CgiServer::serve_request(ConnectionLink &link, const HttpRequest &request, double time_ms) {
    static std::atomic<bool> no_fault{false};
    const auto taken = take_fault(faults_, request);
    const auto seq = journal_add(log_, request, taken ? taken->kind->name : "", time_ms);
    Exchange x{net_, link, request, [&] { return answer_request(cam_, request); },
               taken ? taken->cleared : no_fault};
    link.sent.clear();
    link.on_request_end = [&] { journal_end(log_, seq, x.status, link.sent); };
    bool open = true;
    if (taken) open = pause_link(net_, link, taken->order["delay_ms"], taken->cleared);
    if (open) open = taken ? taken->kind->run(x, taken->parameters) : send_reply(x, x.true_reply());
    request_ends(net_, link);
    return open;
}

// Makes the port what `vanished` and `refusing_` say; the lock is held. A vanished host listens, deaf, even
// where it refused: a port without a listener would answer. False (errno tells) when the kernel refuses.
bool CgiServer::settle_port() {
    const bool listening = net_.vanished || !refusing_;
    bool settled = true;
    if (listening_ && !listening) {
        // Ends the listening at once, even while another thread polls the socket.
        shutdown(listener_, SHUT_RDWR);
        close(listener_);
        settled = open_socket();
    }
    settled = drop_packets(listener_, net_.vanished) && settled;
    if (!listening_ && listening) settled = listen(listener_, kBacklog) == 0 && settled;
    listening_ = listening;
    return settled;
}

bool CgiServer::vanish() {
    std::lock_guard guard(net_.lock);
    net_.vanished = true;
    const bool settled = settle_port();
    accept_waiting();
    for (const auto &link : net_.links) {
        if (link->fd >= 0) drop_packets(link->fd, true);
        link->in_progress = false;  // its peer may give up from now on, and nobody here would notice
    }
    return settled;
}

bool CgiServer::appear() {
    std::lock_guard guard(net_.lock);
    net_.vanished = false;
    const bool settled = settle_port();
    for (const auto &link : net_.links) {
        if (link->fd < 0) continue;
        drop_packets(link->fd, false);
        if (link->dropped) shutdown(link->fd, SHUT_RDWR);
    }
    net_.changed.notify_all();
    return settled;
}

bool CgiServer::refuse() {
    std::lock_guard guard(net_.lock);
    refusing_ = true;
    return settle_port();
}

bool CgiServer::accept() {
    std::lock_guard guard(net_.lock);
    refusing_ = false;
    return settle_port();
}

void CgiServer::drop_connections() {
    std::lock_guard guard(net_.lock);
    for (const auto &link : net_.links) {
        link->dropped = true;
        if (!net_.vanished && link->fd >= 0) shutdown(link->fd, SHUT_RDWR);
    }
    net_.changed.notify_all();
}

const char *CgiServer::network_state() {
    std::lock_guard guard(net_.lock);
    return net_.vanished ? "vanished" : refusing_ ? "refusing" : "up";
}

json CgiServer::counts() {
    std::lock_guard guard(net_.lock);
    std::size_t open = 0;
    for (const auto &link : net_.links) open += link->fd >= 0;
    return {{"in_progress", requests_in_progress(net_)},
            {"max_concurrent", net_.max_concurrent},
            {"connections", open}};
}

void CgiServer::reset_max_concurrent() {
    std::lock_guard guard(net_.lock);
    net_.max_concurrent = requests_in_progress(net_);
}
