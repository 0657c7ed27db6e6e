// The buffer: the servers' stream of what routers published, read through one durable consumer that
// all ingesters share, and the stream of dead letters.
#pragma once

#include "ingest/socket_thread.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <nats/nats.h>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace fleet {

inline constexpr const char *kStream = "$MQTT_msgs"; // the server's own
inline constexpr const char *kConsumer = "ingest";
inline constexpr const char *kFilter = "$MQTT.msgs.usage.>";
inline constexpr const char *kDeadStream = "USAGE_DEAD";
inline constexpr const char *kDeadSubjects = "usage_dead.>";
// A report that was fetched and not acknowledged for this long is given to another ingester, unless
// setup was told otherwise.
inline constexpr std::chrono::seconds kAckWait{120};

// What the buffer says in place of doing what it was asked.
struct BufferError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct BufferAddress {
    std::string servers; // "tls://10.20.0.11:4222,tls://10.20.0.12:4222"
    std::string user;
    std::string password;
    std::string authority; // file with the certificates to trust; empty for the system's
};

// A message that was fetched. It stays with this ingester until it is acknowledged or given back.
class Message {
  public:
    Message(natsMsg *message, std::shared_ptr<natsSubscription> subscription)
        : subscription_(std::move(subscription)), message_(message) {}

    [[nodiscard]] std::string_view subject() const;
    [[nodiscard]] std::string_view body() const;
    // When the buffer took it, in seconds since 1970.
    [[nodiscard]] std::int64_t received() const;

    // None of them waits for an answer: one that is lost leads to a redelivery.
    void acknowledge();
    void inProgress();
    void giveBack();

  private:
    struct Destroy {
        void operator()(natsMsg *message) const { natsMsg_Destroy(message); }
    };
    // A message is acknowledged by way of the subscription that it came on, which must still be
    // there.
    std::shared_ptr<natsSubscription> subscription_;
    std::unique_ptr<natsMsg, Destroy> message_;
};

struct Backlog {
    std::uint64_t waiting = 0; // reports in the buffer that no ingester has fetched
    std::uint64_t pending = 0; // fetched, not yet acknowledged
    std::chrono::milliseconds ackWait{kAckWait};
};

// The limits of the two streams, in bytes, how many copies they have, and the consumer's patience.
struct BufferLimits {
    std::int64_t reports = 0;
    std::int64_t dead = 0;
    int copies = 3;
    std::int64_t ackWait = kAckWait.count(); // seconds
};

class Buffer {
  public:
    // Connects, and from then on comes back by itself whenever the connection is lost. Throws
    // BufferError when there is no server now.
    explicit Buffer(const BufferAddress &address);
    ~Buffer();
    Buffer(const Buffer &) = delete;
    Buffer &operator=(const Buffer &) = delete;

    // Makes or changes the consumer, the limits and the stream of dead letters. Throws BufferError.
    void setUp(const BufferLimits &limits);

    // At most so many messages; fewer, or none, when no more come for so long. Binds to the
    // consumer first when that is not done yet. Throws BufferError when there is none or no server
    // answers, and std::runtime_error when none ever will: the library doesn't come back to servers
    // that refused it twice.
    std::vector<Message> fetch(int most, std::chrono::milliseconds patience);

    // Nothing when the consumer does not exist. Throws BufferError when nobody can tell.
    std::optional<Backlog> backlog();

    // Publishes a dead letter and waits until a majority of the nodes has it. Letters of the same
    // topic and body within an hour are one. Throws BufferError.
    void bury(std::string_view reason, std::string_view text, const Message &message);

    // All dead letters there are, by reason. Throws BufferError.
    [[nodiscard]] std::multimap<std::string, std::string> letters() const;

    // Waits until everything that was sent has left.
    void flush();

  private:
    void setUpReports(const BufferLimits &limits);
    void setUpConsumer(const BufferLimits &limits);
    void setUpDead(const BufferLimits &limits);
    void bind();
    void answered(bool answered);

    template <auto release>
    struct Release {
        template <typename T>
        void operator()(T *object) const {
            release(object);
        }
    };
    SocketThread socket_;
    struct Disconnect {
        SocketThread *socket;
        void operator()(natsConnection *connection) const {
            socket->stop();
            natsConnection_Destroy(connection);
        }
    };
    std::unique_ptr<natsConnection, Disconnect> connection_{nullptr, Disconnect{&socket_}};
    std::unique_ptr<jsCtx, Release<jsCtx_Destroy>> stream_;
    std::shared_ptr<natsSubscription> subscription_;
    int unanswered_ = 0;
};

} // namespace fleet
