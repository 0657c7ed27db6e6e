#include "usage/http/http_listener.h"

#include "common/file.h"

#include <arpa/inet.h>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace usage {
namespace {

constexpr mode_t kSocketMode = 0660;

using Addresses = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

[[noreturn]] void refuse(const std::string &where, const std::string &why) {
    throw std::runtime_error("cannot listen on " + where + ": " + why);
}

Addresses resolve(const TcpAddress &address) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE | AI_NUMERICHOST | AI_NUMERICSERV;
    addrinfo *found = nullptr;
    const int error = getaddrinfo(address.host.c_str(), address.port.c_str(), &hints, &found);
    if (error != 0)
        refuse(address.host + ":" + address.port, gai_strerror(error));
    return {found, freeaddrinfo};
}

// Takes the descriptor out of its guard.
int bindAndListen(int descriptor, const sockaddr *address, socklen_t length,
                  const std::string &where) {
    if (bind(descriptor, address, length) == 0 && listen(descriptor, SOMAXCONN) == 0)
        return descriptor;
    const int error = errno;
    close(descriptor);
    refuse(where, strerror(error));
}

bool somebodyListens(const sockaddr_un &address) {
    const Descriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    return connect(probe.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) ==
               0 ||
           errno == EAGAIN;
}

} // namespace

TcpAddress parseListen(const std::string &listen) {
    const std::size_t colon = listen.rfind(':');
    std::uint16_t port = 0;
    const char *end = listen.data() + listen.size();
    if (colon == std::string::npos || colon == 0 ||
        std::from_chars(listen.data() + colon + 1, end, port) != std::from_chars_result{end, {}})
        refuse("'" + listen + "'", "it isn't ADDRESS:PORT");
    TcpAddress address{listen.substr(0, colon), listen.substr(colon + 1)};
    if (address.host.front() == '[' && address.host.back() == ']')
        address.host = address.host.substr(1, address.host.size() - 2);
    else if (address.host.find(':') != std::string::npos)
        refuse("'" + listen + "'", "an IPv6 address goes in brackets");
    return address;
}

bool isLoopback(const TcpAddress &address) {
    const Addresses found = resolve(address);
    if (found->ai_family == AF_INET6)
        return IN6_IS_ADDR_LOOPBACK(
            &reinterpret_cast<const sockaddr_in6 *>(found->ai_addr)->sin6_addr);
    const auto *four = reinterpret_cast<const sockaddr_in *>(found->ai_addr);
    return (ntohl(four->sin_addr.s_addr) >> 24U) == 127;
}

int listenOnSocket(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path)
        refuse("'" + path + "'", strerror(ENAMETOOLONG));
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (somebodyListens(address))
        refuse(path, "another service answers there");
    struct stat there {};
    if (lstat(path.c_str(), &there) == 0 && !S_ISSOCK(there.st_mode))
        refuse(path, "a file that is no socket lies there");
    unlink(path.c_str());
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    // Never open to all, not even between bind and chmod.
    const mode_t mask = umask(0777 & ~kSocketMode);
    struct MaskGuard {
        mode_t mask;
        ~MaskGuard() { umask(mask); }
    } const guard{mask};
    return bindAndListen(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address,
                         path);
}

int listenOnTcp(const TcpAddress &address) {
    const Addresses found = resolve(address);
    const int descriptor =
        socket(found->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP);
    const int on = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    return bindAndListen(descriptor, found->ai_addr, found->ai_addrlen,
                         address.host + ":" + address.port);
}

} // namespace usage
