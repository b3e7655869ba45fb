// The camera's CGI port: accepts connections, one thread each, and turns the network's switches. All
// functions may be called from any thread.
#pragma once

#include <string>
#include <thread>

#include "camera.h"
#include "faults.h"
#include "journal.h"
#include "link.h"

class CgiServer {
  public:
    CgiServer(Camera &cam, FaultList &faults, Journal &log) : cam_(cam), faults_(faults), log_(log) {}
    CgiServer(const CgiServer &) = delete;
    CgiServer &operator=(const CgiServer &) = delete;
    // Ends all connections and waits for their threads.
    ~CgiServer();

    // Listens on an IPv4 address and starts to serve; port 0: any. False (errno tells) when the port cannot
    // be had.
    bool start(const std::string &address, int port);
    int port() const {
        return port_;
    }

    // The network's switches; false (errno tells) when the kernel refuses, as where another program took the
    // port. Every packet to and from the host is lost, silently; then no more.
    bool vanish();
    bool appear();
    // Nobody listens on the port any more, though it stays ours; then again.
    bool refuse();
    bool accept();
    // Ends all connections, those of a vanished host on its return.
    void drop_connections();

    // "up", "vanished" or "refusing".
    const char *network_state();
    // in_progress, max_concurrent and connections.
    json counts();
    void reset_max_concurrent();

  private:
    bool open_socket();
    bool settle_port();
    void accept_loop();
    void accept_waiting();
    void join_finished();
    void serve(ConnectionLink &link);
    bool serve_request(ConnectionLink &link, const HttpRequest &request, double time_ms);

    Camera &cam_;
    FaultList &faults_;
    Journal &log_;
    std::string address_;
    int port_ = 0;
    Network net_;
    // Guarded by the network's lock:
    int listener_ = -1;
    bool listening_ = false, refusing_ = false, stopping_ = false;
    std::thread accept_thread_;
};
