#include "silent_hosts.h"

#include <arpa/inet.h>
#include <linux/filter.h>
#include <netinet/in.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {

constexpr char kResolver[] = "/etc/resolv.conf", kSilentResolver[] = "/tmp/resolv.conf";
constexpr int kNamePort = 53;

int bound_socket(int type, const char *address, int port) {
    const int handle = socket(AF_INET, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_port = htons(static_cast<std::uint16_t>(port));
    inet_pton(AF_INET, address, &own.sin_addr);
    if (bind(handle, reinterpret_cast<const sockaddr *>(&own), sizeof own) != 0)
        throw std::runtime_error(std::string("cannot bind ") + address);
    return handle;
}

// Passes segments without data. The socket filter of TCP sees the segment from its header on; accepted
// sockets inherit it.
void lose_data(int listener) {
    sock_filter code[] = {
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, 12),        // the header's length, in its upper half
        BPF_STMT(BPF_ALU | BPF_AND | BPF_K, 0xf0),     //
        BPF_STMT(BPF_ALU | BPF_RSH | BPF_K, 2),        // in bytes
        BPF_STMT(BPF_MISC | BPF_TAX, 0),               //
        BPF_STMT(BPF_LD | BPF_W | BPF_LEN, 0),         //
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_X, 0, 0, 1),  // nothing behind it?
        BPF_STMT(BPF_RET | BPF_K, UINT32_MAX),         // pass
        BPF_STMT(BPF_RET | BPF_K, 0),                  // lose
    };
    const sock_fprog program{static_cast<unsigned short>(std::size(code)), code};
    if (setsockopt(listener, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) != 0)
        throw std::runtime_error("cannot attach a socket filter");
}

}  // namespace

DeafHost::DeafHost() : listener_(bound_socket(SOCK_STREAM, "127.0.0.1", 0)) {
    lose_data(listener_);
    if (listen(listener_, 128) != 0) throw std::runtime_error("cannot listen");
}

DeafHost::~DeafHost() {
    close(listener_);
}

std::string DeafHost::host() const {
    sockaddr_in own{};
    socklen_t size = sizeof own;
    getsockname(listener_, reinterpret_cast<sockaddr *>(&own), &size);
    return "127.0.0.1:" + std::to_string(ntohs(own.sin_port));
}

SilentNameServers::SilentNameServers()
    : servers_{bound_socket(SOCK_DGRAM, "127.0.0.1", kNamePort),
               bound_socket(SOCK_DGRAM, "127.0.0.2", kNamePort)} {
    std::ofstream(kSilentResolver)
        << "nameserver 127.0.0.1\nnameserver 127.0.0.2\noptions timeout:30 attempts:5\n";
    if (mount(kSilentResolver, kResolver, nullptr, MS_BIND, nullptr) != 0)
        throw std::runtime_error("cannot cover the resolver's configuration");
}

SilentNameServers::~SilentNameServers() {
    umount2(kResolver, MNT_DETACH);
    for (const int server : servers_) close(server);
}

int SilentNameServers::questions() {
    char question[512];
    for (const int server : servers_) {
        while (recv(server, question, sizeof question, 0) > 0) questions_++;
    }
    return questions_;
}
