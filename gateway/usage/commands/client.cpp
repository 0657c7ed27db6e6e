#include "usage/commands/client.h"

#include "common/file.h"
#include "usage/answers/api.h"
#include "usage/text.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <sys/un.h>

namespace usage {
namespace {

constexpr time_t kPatienceSeconds = 30;

std::string written(const HttpRequest &request) {
    std::string line = request.method + " " + request.path;
    char separator = '?';
    for (const auto &[name, value] : request.parameters) {
        line += separator + percentEncoded(name) + "=" + percentEncoded(value);
        separator = '&';
    }
    return line + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\nContent-Length: " +
           std::to_string(request.body.size()) + "\r\n\r\n" + request.body;
}

// The reply in the bytes of a connection that has ended.
HttpReply parseReply(const std::string &bytes) {
    const std::size_t headEnd = bytes.find("\r\n\r\n");
    const auto status = bytes.starts_with("HTTP/1.") && bytes.size() > 12
                            ? parseNumber(std::string_view(bytes).substr(9, 3))
                            : std::nullopt;
    if (headEnd == std::string::npos || !status)
        throw std::runtime_error("the service's answer makes no sense");
    HttpReply reply;
    reply.status = static_cast<int>(*status);
    reply.body = bytes.substr(headEnd + 4);
    std::size_t at = bytes.find("\r\n");
    while (at < headEnd) {
        const std::size_t begin = at + 2;
        at = bytes.find("\r\n", begin);
        const std::string_view line = std::string_view(bytes).substr(begin, at - begin);
        const std::size_t colon = line.find(": ");
        if (colon != std::string_view::npos)
            reply.headers.emplace_back(line.substr(0, colon), line.substr(colon + 2));
    }
    for (const auto &[name, value] : reply.headers) {
        if (sameText(name, "Content-Length") && value != std::to_string(reply.body.size()))
            throw std::runtime_error("the service's answer was cut");
    }
    return reply;
}

class RunningService final : public Service {
  public:
    explicit RunningService(std::string socket) : path_(std::move(socket)) {}

    // False when nobody listens there.
    bool answers() {
        const Descriptor link(open());
        return static_cast<bool>(link);
    }

    HttpReply ask(const HttpRequest &request) override {
        const Descriptor link(open());
        if (!link)
            throw std::runtime_error("the service has stopped");
        const std::string bytes = written(request);
        for (std::size_t sent = 0; sent < bytes.size();) {
            const ssize_t more =
                send(link.get(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (more < 0)
                fail("does not take the request");
            sent += static_cast<std::size_t>(more);
        }
        return parseReply(receive(link.get()));
    }

  private:
    [[noreturn]] void fail(const char *what) const {
        throw std::runtime_error("the service at " + path_ + " " + what + ": " + strerror(errno));
    }

    [[nodiscard]] int open() const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (path_.size() >= sizeof address.sun_path)
            throw std::runtime_error("the path of the socket is too long: " + path_);
        memcpy(address.sun_path, path_.c_str(), path_.size());
        const int link = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const timeval patience{.tv_sec = kPatienceSeconds, .tv_usec = 0};
        setsockopt(link, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        setsockopt(link, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
        if (connect(link, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0)
            return link;
        const int reason = errno;
        close(link);
        errno = reason;
        if (reason != ENOENT && reason != ECONNREFUSED)
            fail("cannot be reached");
        return -1;
    }

    [[nodiscard]] std::string receive(int link) const {
        std::string bytes;
        char piece[16384];
        for (;;) {
            const ssize_t more = recv(link, piece, sizeof piece, 0);
            if (more < 0)
                fail("does not answer");
            if (more == 0)
                return bytes;
            bytes.append(piece, static_cast<std::size_t>(more));
        }
    }

    std::string path_;
};

// What is committed, while no service runs.
class StoredService final : public Service {
  public:
    explicit StoredService(const Place &place)
        : instance_(place.instance), store_(Store::openToRead(place.state, present_)),
          api_([this] { return view(); }, nullptr, place.state) {}

    HttpReply ask(const HttpRequest &request) override { return api_.handle(request); }

  private:
    View view() {
        return {present_, *store_, status_, rates_, instance_, static_cast<Seconds>(time(nullptr))};
    }

    std::string instance_;
    Present present_;
    Status status_;
    Rates rates_;
    std::unique_ptr<Store> store_;
    Api api_;
};

HttpReply checked(HttpReply reply) {
    if (reply.status == 200)
        return reply;
    const auto json = nlohmann::json::parse(reply.body, nullptr, false);
    std::string message = "the service refuses, with status " + std::to_string(reply.status);
    if (json.is_object() && json.contains("error"))
        message = json["error"].value("message", message);
    if (reply.status == 400)
        throw UsageError(message);
    throw std::runtime_error(message);
}

} // namespace

HttpReply Service::get(const std::string &path, const Parameters &parameters) {
    return checked(ask({Listener::kSocket, "GET", path, parameters, {}}));
}

HttpReply Service::post(const std::string &path, const std::string &body) {
    return checked(ask({Listener::kSocket, "POST", path, {}, body}));
}

std::unique_ptr<Service> connectTo(const Place &place) {
    auto running = std::make_unique<RunningService>(place.socket());
    if (running->answers())
        return running;
    auto stored = std::make_unique<StoredService>(place);
    std::cerr << "traffic-usage: no service runs for " << place.instance
              << ": what it had not committed yet is missing\n";
    return stored;
}

} // namespace usage
