// The control interface: JSON over HTTP on a port of its own, served by threads of its own. README describes
// it.
#pragma once

#include <memory>
#include <string>

#include "camera.h"
#include "cgi_server.h"
#include "faults.h"
#include "journal.h"

class control_server {
  public:
    control_server(camera &cam, fault_list &faults, journal &log, cgi_server &cgi);
    // Stops serving and waits for its threads.
    ~control_server();

    // Listens and starts to serve; port 0: any. False when the port cannot be had.
    bool start(const std::string &address, int port);
    int port() const;

  private:
    struct parts;
    std::unique_ptr<parts> parts_;
};
