#include "usage/http/http.h"

#include "common/file.h"
#include "usage/http/http_channel.h"
#include "usage/http/http_listener.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <sys/epoll.h>

namespace usage {
namespace {

// At once; further ones wait in the listening queue until one of them is done.
constexpr unsigned kSocketConnections = 32;
constexpr unsigned kTcpConnections = 96;

// The shorter of two waits, of which -1 is endless.
int shorter(int a, int b) {
    if (a < 0 || b < 0)
        return std::max(a, b);
    return std::min(a, b);
}

} // namespace

struct HttpServer::Inside {
    Inside(HttpOptions given, HttpHandler handler)
        : options(std::move(given)),
          epoll(epoll_create1(EPOLL_CLOEXEC)), answers{std::move(handler),
                                                       PasswordGate(options.passwordHash)} {}

    void add(Listener listener, int listening, unsigned connections) {
        channels.push_back(
            std::make_unique<HttpChannel>(answers, listener, listening, connections));
        epoll_event event{.events = EPOLLIN, .data = {}};
        if (epoll_ctl(epoll.get(), EPOLL_CTL_ADD, channels.back()->descriptor(), &event) != 0)
            throw std::runtime_error(std::string("cannot watch the HTTP server: ") +
                                     strerror(errno));
    }

    HttpOptions options;
    Descriptor epoll;
    HttpAnswers answers;
    std::vector<std::unique_ptr<HttpChannel>> channels;
};

HttpServer::HttpServer(HttpOptions options, HttpHandler handler)
    : inside_(std::make_unique<Inside>(std::move(options), std::move(handler))) {
    const std::string &listen = inside_->options.listen;
    if (listen != "none") {
        const TcpAddress address = parseListen(listen);
        if (inside_->options.passwordHash.empty() && !isLoopback(address))
            throw std::runtime_error("beyond this machine (" + listen +
                                     ") a password is needed: run traffic-usage setup");
        inside_->add(Listener::kTcp, listenOnTcp(address), kTcpConnections);
    }
    inside_->add(Listener::kSocket, listenOnSocket(inside_->options.socketPath),
                 kSocketConnections);
}

HttpServer::~HttpServer() {
    std::error_code ignored;
    if (inside_)
        std::filesystem::remove(inside_->options.socketPath, ignored);
}

int HttpServer::descriptor() const {
    return inside_->epoll.get();
}

int HttpServer::timeout() const {
    int wait = -1;
    for (const auto &channel : inside_->channels)
        wait = shorter(wait, channel->timeout());
    return wait;
}

void HttpServer::work() {
    for (const auto &channel : inside_->channels)
        channel->work();
}

} // namespace usage
