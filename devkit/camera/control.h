// The control interface: JSON over HTTP on a port of its own, served by threads of its own. README describes
// it.
#pragma once

#include <memory>
#include <string>

#include "camera.h"
#include "cgi_server.h"
#include "faults.h"
#include "journal.h"

class ControlServer {
  public:
    ControlServer(Camera &cam, FaultList &faults, Journal &log, CgiServer &cgi);
    // Stops serving and waits for its threads.
    ~ControlServer();

    // Listens and starts to serve; port 0: any. False when the port cannot be had.
    bool start(const std::string &address, int port);
    int port() const;

  private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};
