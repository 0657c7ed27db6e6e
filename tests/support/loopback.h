// Ports of this machine, for servers of the tests' own.
#pragma once

#include "common/file.h"

#include <cstdint>
#include <netinet/in.h>
#include <sys/socket.h>

namespace rig {

inline sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// One that nobody has just now.
inline std::uint16_t freePort() {
    const Descriptor probe(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    bind(probe.get(), reinterpret_cast<sockaddr *>(&address), size);
    getsockname(probe.get(), reinterpret_cast<sockaddr *>(&address), &size);
    return ntohs(address.sin_port);
}

} // namespace rig
