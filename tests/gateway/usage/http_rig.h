// A server under test and its clients, in one thread: waiting for a reply lets the server work.
#pragma once

#include "gateway/engine/scratch.h"
#include "support/loopback.h"
#include "usage/http/http.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <crypt.h>
#include <memory>
#include <poll.h>
#include <string>
#include <sys/un.h>
#include <unistd.h>

namespace usage {

// Moves the clock that everything of this executable reads.
void passTime(std::chrono::seconds span);

// 2b$04 is crypt's cheapest.
inline std::string hashOf(const char *password) {
    crypt_data scratch{};
    return crypt_r(password, "$2b$04$abcdefghijklmnopqrstuu", &scratch);
}

class HttpTest : public testing::Test {
  protected:
    ~HttpTest() override {
        server_.reset();
        EXPECT_THAT(folder_.names(), testing::IsEmpty());
    }

    [[nodiscard]] std::string socketPath() const { return folder_ / "api.sock"; }
    [[nodiscard]] std::string listen() const { return "127.0.0.1:" + std::to_string(port_); }

    void start(HttpHandler handler, const std::string &passwordHash = "") {
        server_ = std::make_unique<HttpServer>(HttpOptions{socketPath(), listen(), passwordHash},
                                               std::move(handler));
    }

    // A client of TCP, which has sent this.
    [[nodiscard]] int client(const std::string &bytes) const {
        return connected(rig::loopback(port_), bytes);
    }

    [[nodiscard]] int socketClient(const std::string &bytes) const {
        sockaddr_un address{.sun_family = AF_UNIX, .sun_path = ""};
        socketPath().copy(address.sun_path, sizeof address.sun_path - 1);
        return connected(address, bytes);
    }

    template <typename Address>
    static int connected(const Address &address, const std::string &bytes) {
        const auto *to = reinterpret_cast<const sockaddr *>(&address);
        const int descriptor = socket(to->sa_family, SOCK_STREAM, 0);
        EXPECT_EQ(connect(descriptor, to, sizeof address), 0);
        put(descriptor, bytes);
        return descriptor;
    }

    static void put(int descriptor, const std::string &bytes) {
        EXPECT_EQ(::send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT),
                  static_cast<ssize_t>(bytes.size()));
    }

    // One turn of a loop as the service has it; how long it would have waited at most.
    void turn(int longest = 20) {
        pollfd watched{.fd = server_->descriptor(), .events = POLLIN, .revents = 0};
        const int own = server_->timeout();
        poll(&watched, 1, own < 0 ? longest : std::min(own, longest));
        server_->work();
    }

    // All that comes until the server hangs up, or is still for a while; closes the client.
    std::string drain(int descriptor) {
        std::string received;
        for (int still = 0; still < 25;) {
            char piece[65536];
            const ssize_t got = recv(descriptor, piece, sizeof piece, MSG_DONTWAIT);
            if (got == 0 || (got < 0 && errno != EAGAIN))
                break;
            received.append(piece, got > 0 ? static_cast<std::size_t>(got) : 0);
            still = got > 0 ? 0 : still + 1;
            if (got < 0)
                turn();
        }
        close(descriptor);
        return received;
    }

    static std::string get(const std::string &target, const std::string &headers = "",
                           const std::string &host = "localhost") {
        return "GET " + target + " HTTP/1.1\r\nHost: " + host + "\r\n" + headers +
               "Connection: close\r\n\r\n";
    }

    static std::string post(const std::string &body) {
        return "POST /api/v1/commit HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n"
               "Content-Length: " +
               std::to_string(body.size()) + "\r\n\r\n" + body;
    }

    static int status(const std::string &reply) {
        return reply.size() < 12 ? 0 : std::atoi(reply.c_str() + 9);
    }

    Scratch folder_;
    std::uint16_t port_ = rig::freePort();
    std::unique_ptr<HttpServer> server_;
};

} // namespace usage
