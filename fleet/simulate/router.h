// One simulated router: an outbox, and an MQTT client that empties it by the rules of the real one.
#pragma once

#include "simulate/ledger.h"

#include <chrono>
#include <deque>
#include <mosquitto.h>
#include <openssl/ssl.h>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace fleet {

struct Node {
    std::string host;
    int port = 0;
};

// What all routers of a run share.
struct Simulation {
    std::uint64_t seed = 1;
    std::vector<Node> nodes;
    SSL_CTX *context = nullptr; // trusts the run's authority
    bool held = true;           // connections are kept; else each lasts until the outbox is empty
    std::size_t outboxReports = 10'000;
    std::minstd_rand random;
    std::vector<Entry> ledger;
    std::uint64_t acknowledged = 0;
    std::uint64_t failures = 0;   // connections that were refused or lost
    std::uint32_t connecting = 0; // connections that are not there yet
    int watch = -1;               // the epoll descriptor
};

class Router {
  public:
    using Clock = std::chrono::steady_clock;

    // The simulation must outlive the router.
    Router(Simulation &simulation, std::uint32_t number);
    ~Router();
    Router(const Router &) = delete;
    Router &operator=(const Router &) = delete;

    // A report comes into being, goes into the outbox and is sent if there is a connection. Where
    // the outbox is full its oldest report is given up.
    void report(std::int64_t taken, std::uint32_t records, Fault fault, Clock::time_point now);

    // Publishes a report in the name of another router; nobody must ever see it.
    void impersonate(std::uint32_t victim);

    // The socket is ready.
    void onReady(std::uint32_t events, Clock::time_point now);

    // What time brings: connecting, keep-alive, giving up on an acknowledgement.
    void onTick(Clock::time_point now);

    [[nodiscard]] bool isOnline() const { return online_; }
    [[nodiscard]] std::size_t waiting() const { return outbox_.size(); }
    [[nodiscard]] std::uint64_t dropped() const { return dropped_; }

  private:
    struct Waiting {
        std::size_t entry;       // of the ledger
        std::optional<int> sent; // its number on this connection
        Clock::time_point sentAt;
    };

    void connect(Clock::time_point now);
    void onConnected(int status);
    void onAcknowledged(int number);
    void sendOpen();
    void check(int status, Clock::time_point now);
    void watchSocket();
    void close(bool failed, Clock::time_point now);

    Simulation &simulation_;
    std::uint32_t number_;
    std::uint64_t sequence_ = 0;
    std::uint64_t dropped_ = 0;
    std::deque<Waiting> outbox_;
    mosquitto *client_ = nullptr;
    int socket_ = -1;
    std::uint32_t watched_ = 0;
    bool online_ = false;
    bool broken_ = false; // to be closed as soon as the library has returned
    std::size_t node_ = 0;
    int attempts_ = 0;
    Clock::time_point nextTry_;
    Clock::time_point connectedAt_;
};

} // namespace fleet
