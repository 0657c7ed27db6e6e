// What an ingester says about itself: counters for a monitoring system, and whether all is well.
#pragma once

#include "ingest/report/envelope.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace fleet {

// Counters and gauges, written by the ingester's loop and read by the HTTP server's thread.
struct Gauges {
    std::atomic<std::uint64_t> reports{0};      // stored
    std::atomic<std::uint64_t> rows{0};         // of these
    std::atomic<std::uint64_t> batches{0};      // inserts that the store took
    std::atomic<std::uint64_t> refusals{0};     // inserts that it refused
    std::atomic<std::uint64_t> storeErrors{0};  // tries that found it away
    std::atomic<std::uint64_t> bufferErrors{0}; // fetches that failed
    std::atomic<std::uint64_t> givenBack{0};    // reports left to another ingester
    std::atomic<std::uint64_t> inFlight{0};     // reports fetched and not settled
    std::atomic<std::uint64_t> waiting{0};      // the buffer's backlog
    std::atomic<std::uint64_t> pending{0};      // fetched by any ingester, not acknowledged
    std::atomic<std::uint64_t> storeMicroseconds{0};
    std::atomic<bool> consumer{false}; // it exists, and the buffer answered lately
    std::atomic<bool> store{true};     // the last insert was answered
    std::array<std::atomic<std::uint64_t>, kReasons> dead{};
};

// The metrics, in the text format of Prometheus.
[[nodiscard]] std::string metricsText(const Gauges &gauges);

struct Health {
    bool good;
    std::string text; // a line for people
};

// Red when the consumer is missing, when more than so many reports wait, or when the store is away.
[[nodiscard]] Health health(const Gauges &gauges, std::uint64_t mostWaiting);

// Serves /metrics and /healthz (200 or 503) as long as it lives.
class HealthServer {
  public:
    // At "127.0.0.1:9464". Throws std::runtime_error when it can't listen there.
    HealthServer(const std::string &address, const Gauges &gauges, std::uint64_t mostWaiting);
    ~HealthServer();
    HealthServer(const HealthServer &) = delete;
    HealthServer &operator=(const HealthServer &) = delete;

  private:
    struct Server;
    std::unique_ptr<Server> server_;
};

} // namespace fleet
