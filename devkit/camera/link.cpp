#include "link.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>

namespace {

constexpr std::size_t kBlockBytes = 16 * 1024;
constexpr int kFarewellMs = 20;  // how long the end of a connection may take to be seen on a busy machine
constexpr std::chrono::milliseconds kLookAgain(
    10);  // how soon a waiting connection notices that its peer has gone

bool peer_gone(int fd) {
    pollfd entry{fd, POLLRDHUP, 0};
    return poll(&entry, 1, 0) > 0 && (entry.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
}

// The lock is held.
void forget_abandoned(Network &net) {
    for (const auto &link : net.links)
        if (link->in_progress && peer_gone(link->fd)) link->in_progress = false;
}

// Sends one block without blocking, as the vanished host must not send; waits for room or for the host's
// return otherwise. The number of bytes sent, or -1.
ssize_t send_block(Network &net, ConnectionLink &link, std::string_view block) {
    {
        std::unique_lock guard(net.lock);
        net.changed.wait(guard, [&] { return !net.vanished || link.dropped; });
        if (link.dropped) return -1;
        const ssize_t sent = send(link.fd, block.data(), block.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent >= 0) return sent;
        if (errno != EAGAIN) return -1;
    }
    pollfd entry{link.fd, POLLOUT, 0};
    poll(&entry, 1, static_cast<int>(kLookAgain.count()));
    return 0;
}

}  // namespace

int requests_in_progress(const Network &net) {
    return static_cast<int>(std::count_if(net.links.begin(), net.links.end(),
                                          [](const auto &link) { return link->in_progress; }));
}

void request_begins(Network &net, ConnectionLink &link) {
    std::lock_guard guard(net.lock);
    link.in_progress = true;
    forget_abandoned(net);
    if (requests_in_progress(net) > std::max(net.max_concurrent, 1)) {
        // A peer's farewell can be overtaken by its next request. A new maximum is rare: look twice, with
        // everything held.
        poll(nullptr, 0, kFarewellMs);
        forget_abandoned(net);
    }
    net.max_concurrent = std::max(net.max_concurrent, requests_in_progress(net));
}

void request_ends(Network &net, ConnectionLink &link) {
    {
        std::lock_guard guard(net.lock);
        link.in_progress = false;
    }
    if (const auto call = std::exchange(link.on_request_end, nullptr)) call();
}

bool receive_some(Network &net, ConnectionLink &link, std::string &buffer) {
    char bytes[kBlockBytes];
    ssize_t received;
    do received = recv(link.fd, bytes, sizeof bytes, 0);
    while (received < 0 && errno == EINTR);
    std::lock_guard guard(net.lock);
    if (received <= 0 || link.dropped) return false;
    buffer.append(bytes, static_cast<std::size_t>(received));
    return true;
}

bool send_bytes(Network &net, ConnectionLink &link, std::string_view bytes, bool last) {
    link.sent += bytes.substr(0, kKeptOfReply - std::min(link.sent.size(), kKeptOfReply));
    while (!bytes.empty()) {
        const auto block = bytes.substr(0, kBlockBytes);
        if (last && block.size() == bytes.size()) request_ends(net, link);
        const ssize_t sent = send_block(net, link, block);
        if (sent < 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

bool pause_link(Network &net, ConnectionLink &link, double ms, const std::atomic<bool> &enough) {
    const auto start = std::chrono::steady_clock::now();
    const std::chrono::duration<double, std::milli> length(ms);
    std::unique_lock guard(net.lock);
    while (!enough) {
        const std::chrono::duration<double, std::milli> left =
            length - (std::chrono::steady_clock::now() - start);
        if (ms >= 0 && left.count() <= 0) return true;
        if (link.dropped || peer_gone(link.fd)) return false;
        const auto slice =
            ms < 0 ? kLookAgain : std::min<std::chrono::duration<double, std::milli>>(left, kLookAgain);
        net.changed.wait_for(guard, slice);
    }
    return true;
}

void close_link(Network &net, ConnectionLink &link) {
    request_ends(net, link);
    std::unique_lock guard(net.lock);
    net.changed.wait(guard, [&] { return !net.vanished; });
    if (link.reset) {
        const linger abort{1, 0};
        setsockopt(link.fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    }
    close(link.fd);
    link.fd = -1;
    link.finished = true;
}
