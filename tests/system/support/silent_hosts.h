// Hosts in a test's private network that hold up whoever turns to them.
#pragma once

#include <string>

// A host on 127.0.0.1 that takes connections and from then on no byte: every data segment is lost behind the
// handshake, and nothing acknowledges it.
class DeafHost {
  public:
    DeafHost();
    ~DeafHost();
    DeafHost(const DeafHost &) = delete;
    DeafHost &operator=(const DeafHost &) = delete;
    // As "hostIP" has it.
    std::string host() const;

  private:
    int listener_;
};

// Two name servers, the only ones that the resolver knows, that never answer; it asks each of them five times
// and waits half a minute each time. Names of the test's hosts file are still found. Before the programs
// start that shall ask them.
class SilentNameServers {
  public:
    SilentNameServers();
    ~SilentNameServers();
    SilentNameServers(const SilentNameServers &) = delete;
    SilentNameServers &operator=(const SilentNameServers &) = delete;
    // How many questions have come.
    int questions();

  private:
    int servers_[2];
    int questions_ = 0;
};
