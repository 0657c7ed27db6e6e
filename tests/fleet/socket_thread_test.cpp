#include "ingest/socket_thread.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

// libnats reads and writes a socket by these two; the server below doesn't.
namespace {

std::atomic<int> inside{0};
std::atomic<int> overlaps{0};

template <typename Call>
ssize_t alone(Call call) {
    overlaps += inside++ > 0 ? 1 : 0;
    const ssize_t result = call();
    --inside;
    return result;
}

} // namespace

extern "C" ssize_t recv(int socket, void *data, size_t size, int flags) {
    static const auto real = reinterpret_cast<decltype(&recv)>(dlsym(RTLD_NEXT, "recv"));
    return alone([&] { return real(socket, data, size, flags); });
}

extern "C" ssize_t send(int socket, const void *data, size_t size, int flags) {
    static const auto real = reinterpret_cast<decltype(&send)>(dlsym(RTLD_NEXT, "send"));
    return alone([&] { return real(socket, data, size, flags); });
}

namespace fleet {
namespace {

constexpr std::string_view kPing = "PING\r\n";

// As much of a node as a connection needs: it answers pings, and sends its own.
class Node {
  public:
    Node() : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address_;
        (void)bind(listener_, reinterpret_cast<sockaddr *>(&address_), size);
        listen(listener_, 4);
        getsockname(listener_, reinterpret_cast<sockaddr *>(&address_), &size);
        thread_ = std::thread([this] { run(); });
    }
    ~Node() {
        shutdown(listener_, SHUT_RDWR);
        drop();
        thread_.join();
        close(listener_);
    }
    Node(const Node &) = delete;
    Node &operator=(const Node &) = delete;

    [[nodiscard]] std::string url() const {
        return "nats://127.0.0.1:" + std::to_string(ntohs(address_.sin_port));
    }

    void drop() const { shutdown(peer_, SHUT_RDWR); }

    std::atomic<int> connections{0};
    std::atomic<bool> silent{false};

  private:
    void run() {
        while ((peer_ = accept(listener_, nullptr, nullptr)) >= 0) {
            ++connections;
            silent = false;
            say("INFO "
                "{\"server_id\":\"a\",\"version\":\"2.9.10\",\"proto\":1,\"max_payload\":65536}"
                "\r\n");
            char data[512];
            std::string heard; // two pings may come at once, and each is waited for
            for (ssize_t n = 0; (n = read(peer_, data, sizeof data)) > 0;) {
                heard.append(data, static_cast<std::size_t>(n));
                for (std::size_t at = 0; (at = heard.find(kPing)) != std::string::npos;) {
                    heard.erase(0, at + kPing.size());
                    if (!silent)
                        say("PONG\r\nPING\r\n");
                }
            }
            close(peer_);
        }
    }

    void say(std::string_view text) const {
        [[maybe_unused]] const ssize_t written = write(peer_, text.data(), text.size());
    }

    int listener_;
    std::atomic<int> peer_{-1};
    sockaddr_in address_{};
    std::thread thread_;
};

TEST(SocketThread, AloneReadsAndWritesAndComesBackWhenItHungUp) {
    Node node;
    SocketThread thread;
    natsOptions *options = nullptr;
    natsOptions_Create(&options);
    natsOptions_SetURL(options, node.url().c_str());
    natsOptions_SetReconnectWait(options, 1);
    natsOptions_SetReconnectJitter(options, 1, 1);
    thread.serve(options);
    natsConnection *connection = nullptr;
    ASSERT_EQ(natsConnection_Connect(&connection, options), NATS_OK);
    const auto works = [&] {
        for (int tries = 0; tries < 100; ++tries)
            if (natsConnection_FlushTimeout(connection, 1000) == NATS_OK)
                return true;
        return false;
    };
    overlaps = 0; // other tests talk too
    for (int times = 0; times < 100; ++times)
        EXPECT_TRUE(works());
    EXPECT_EQ(overlaps, 0);
    node.drop();
    EXPECT_TRUE(works());
    node.silent = true;
    int late = 0; // answers to what was asked while the connection was lost
    while (natsConnection_FlushTimeout(connection, 50) == NATS_OK && late < 10)
        ++late;
    EXPECT_LT(late, 10);
    thread.hangUp();
    EXPECT_TRUE(works());
    EXPECT_EQ(node.connections, 3);
    EXPECT_EQ(overlaps, 0);
    thread.stop();
    natsConnection_Destroy(connection);
    natsOptions_Destroy(options);
}

} // namespace
} // namespace fleet
