// The listening sockets of the HTTP server.
#pragma once

#include <string>

namespace usage {

struct TcpAddress {
    std::string host; // without brackets
    std::string port;
};

// Splits ADDRESS:PORT, an IPv6 address in brackets. Throws std::runtime_error when it isn't that.
TcpAddress parseListen(const std::string &listen);

// True when only programs of this machine can reach the address.
bool isLoopback(const TcpAddress &address);

// Both give a listening, non-blocking descriptor that the caller closes, or throw
// std::runtime_error with the reason.
//
// The file of the Unix socket gets mode 0660; one that nobody listens at any more is replaced.
int listenOnSocket(const std::string &path);
int listenOnTcp(const TcpAddress &address);

} // namespace usage
