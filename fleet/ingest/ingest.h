// The way of the reports: fetched from the buffer, checked, stored, acknowledged.
#pragma once

#include "ingest/buffer.h"
#include "ingest/clickhouse.h"
#include "ingest/health.h"
#include "ingest/report/batch.h"
#include "ingest/report/device_key.h"

#include <atomic>
#include <random>
#include <vector>

namespace fleet {

class Ingester {
  public:
    // All of them must outlive it; it ends in good order once stop is true.
    Ingester(Buffer &buffer, Store &store, const DeviceKey &key, Gauges &gauges,
             const std::atomic<bool> &stop);

    // Works until it is told to stop; then nothing is in flight: what was fetched is stored and
    // acknowledged or, with the store away, given back.
    void run();

  private:
    using Clock = Batch::Clock;

    void fetch();
    void take(Message message);
    void bury(Message &message, Reason reason, std::string_view text);
    void settleBatch();
    Verdict store(Range range);
    Answer insert(Range range);
    void stored(Range range);
    void left(Range range);
    void keepAlive();
    void keepAliveNow();
    void pauseBefore(int attempt);
    void sleepFor(std::chrono::milliseconds time);
    void lookAtBacklog();

    Buffer &buffer_;
    Store &store_;
    const DeviceKey &key_;
    Gauges &gauges_;
    const std::atomic<bool> &stop_;
    Batch batch_;
    std::vector<Message> messages_; // those of the batch, in its order
    Clock::time_point aliveAt_;
    // How often the buffer is told that reports are being worked on.
    std::chrono::milliseconds aliveEvery_{kAckWait / 4};
    Clock::time_point lookedAt_;
    std::minstd_rand random_{std::random_device{}()};
};

} // namespace fleet
