// One accepted connection and the network that all of them share: a network that can lose the host without a
// packet, and that counts the requests in progress. Each connection has one thread of its own that calls the
// functions below; the network's switches are turned by other threads under `lock`.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

constexpr std::size_t kKeptOfReply = 1024;

struct ConnectionLink {
    int fd = -1;
    std::function<void()>
        on_request_end;  // called by the connection's thread, just before the reply's last block leaves

    std::string sent;  // of the reply, header too, the first kKeptOfReply bytes

    // Guarded by the network's lock:
    bool in_progress = false;  // a request is being served
    bool dropped = false;      // nothing is sent or received any more
    bool finished = false;     // its thread is about to end
    bool reset = false;        // close with RST instead of FIN

    std::thread thread;
};

struct Network {
    std::mutex lock;  // held across nothing that blocks, but for 20 ms when a new maximum shows
    std::condition_variable changed;
    bool vanished = false;
    int max_concurrent = 0;
    std::list<std::unique_ptr<ConnectionLink>> links;
};

// Requests in progress. The lock is held.
int requests_in_progress(const Network &net);

// A request's first byte is here. Requests whose peers have gone do not count (any more).
void request_begins(Network &net, ConnectionLink &link);

// The request is served; calls on_request_end once per request. Harmless when it has ended already.
void request_ends(Network &net, ConnectionLink &link);

// Appends what arrives to `buffer`; blocks until something does. False at the end of the stream.
bool receive_some(Network &net, ConnectionLink &link, std::string &buffer);

// Sends all the bytes; blocks while the host has vanished or the peer does not read. Where they close the
// reply (`last`), the request ends before the last block leaves, so that the peer cannot ask again before it.
// False when the connection is gone.
bool send_bytes(Network &net, ConnectionLink &link, std::string_view bytes, bool last);

// Waits for `ms` milliseconds (below 0: without end) or until `enough` becomes true. False when the peer goes
// before.
bool pause_link(Network &net, ConnectionLink &link, double ms, const std::atomic<bool> &enough);

// Ends the request and closes the connection, after the host's return if it has vanished. The link is
// finished.
void close_link(Network &net, ConnectionLink &link);
