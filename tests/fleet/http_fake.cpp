#include "fleet/http_fake.h"

#include <algorithm>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace fleet {
namespace {

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    return address;
}

// Head and body of one request.
std::string readRequest(int connection) {
    std::string text;
    std::size_t wanted = std::string::npos;
    char part[4096];
    while (text.size() < wanted) {
        const ssize_t got = recv(connection, part, sizeof part, 0);
        if (got <= 0)
            break;
        text.append(part, static_cast<std::size_t>(got));
        const std::size_t head = text.find("\r\n\r\n");
        const std::size_t length = text.find("Content-Length: ");
        if (head != std::string::npos)
            wanted =
                head + 4 + (length < head ? std::stoul(text.substr(length + 16)) : std::size_t{0});
    }
    return text;
}

} // namespace

HttpFake::HttpFake(std::vector<Reply> replies)
    : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), replies_(std::move(replies)) {
    sockaddr_in place = loopback(0);
    socklen_t size = sizeof place;
    bind(listener_, reinterpret_cast<sockaddr *>(&place), size);
    listen(listener_, 4);
    getsockname(listener_, reinterpret_cast<sockaddr *>(&place), &size);
    port_ = ntohs(place.sin_port);
    thread_ = std::thread([this] { serve(); });
}

HttpFake::~HttpFake() {
    shutdown(listener_, SHUT_RDWR);
    thread_.join();
    close(listener_);
}

std::string HttpFake::address() const {
    return "http://127.0.0.1:" + std::to_string(port_);
}

void HttpFake::serve() {
    for (;;) {
        const int connection = accept(listener_, nullptr, nullptr);
        if (connection < 0)
            return;
        answer(connection);
        close(connection);
    }
}

void HttpFake::answer(int connection) {
    requests_.push_back(readRequest(connection));
    const Reply &reply = replies_[std::min(requests_.size(), replies_.size()) - 1];
    const std::string text =
        "HTTP/1.1 " + std::to_string(reply.status) +
        " x\r\nConnection: close\r\nContent-Length: " + std::to_string(reply.text.size()) +
        "\r\n\r\n" + reply.text;
    send(connection, text.data(), text.size(), MSG_NOSIGNAL);
}

std::string httpGet(int port, const std::string &path) {
    const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in place = loopback(port);
    std::string answer;
    if (connect(connection, reinterpret_cast<const sockaddr *>(&place), sizeof place) == 0) {
        const std::string request = "GET " + path + " HTTP/1.0\r\n\r\n";
        send(connection, request.data(), request.size(), MSG_NOSIGNAL);
        char part[4096];
        for (ssize_t got = 0; (got = recv(connection, part, sizeof part, 0)) > 0;)
            answer.append(part, static_cast<std::size_t>(got));
    }
    close(connection);
    return answer;
}

} // namespace fleet
