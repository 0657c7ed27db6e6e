#include "simulate/router.h"

#include <algorithm>
#include <sys/epoll.h>

namespace fleet {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int kKeepAlive = 60;
// An acknowledgement, or the answer to a connection, that takes longer is not coming.
constexpr seconds kPatience{20};
constexpr int kLongestPause = 16; // seconds between tries

// Reports on their way at once, as in the real uplink.
constexpr std::size_t kWindow = 16;

// Handshakes at once, of all routers: those of thousands would each take longer than a node waits.
constexpr std::uint32_t kMostConnecting = 100;

} // namespace

Router::Router(Simulation &simulation, std::uint32_t number)
    : simulation_(simulation), number_(number), node_(number % simulation.nodes.size()) {}

Router::~Router() {
    mosquitto_destroy(client_);
}

void Router::report(std::int64_t taken, std::uint32_t records, Fault fault, Clock::time_point now) {
    if (outbox_.size() >= simulation_.outboxReports) {
        outbox_.pop_front();
        ++dropped_;
    }
    simulation_.ledger.push_back({.key = {.seed = simulation_.seed,
                                          .router = number_,
                                          .sequence = ++sequence_,
                                          .taken = taken,
                                          .dropped = dropped_,
                                          .records = records,
                                          .fault = fault},
                                  .fate = Fate::kOpen});
    outbox_.push_back({simulation_.ledger.size() - 1, std::nullopt, {}});
    if (online_) {
        sendOpen();
        watchSocket();
    } else {
        onTick(now);
    }
}

void Router::impersonate(std::uint32_t victim) {
    const ReportKey forged{.seed = simulation_.seed,
                           .router = victim,
                           .sequence = std::uint64_t{1} << 40U,
                           .taken = 0,
                           .records = 1};
    const std::string body = bodyOf(forged);
    if (online_)
        mosquitto_publish(client_, nullptr, topicOf(victim).c_str(), static_cast<int>(body.size()),
                          body.data(), 1, false);
}

void Router::connect(Clock::time_point now) {
    client_ = mosquitto_new(routerName(number_).c_str(), true, this);
    mosquitto_username_pw_set(client_, routerName(number_).c_str(),
                              passwordOf(simulation_.seed, number_).c_str());
    mosquitto_void_option(client_, MOSQ_OPT_SSL_CTX, simulation_.context);
    mosquitto_int_option(client_, MOSQ_OPT_SSL_CTX_WITH_DEFAULTS, 0);
    mosquitto_connect_callback_set(client_, [](mosquitto *, void *self, int status) {
        static_cast<Router *>(self)->onConnected(status);
    });
    mosquitto_publish_callback_set(client_, [](mosquitto *, void *self, int number) {
        static_cast<Router *>(self)->onAcknowledged(number);
    });
    mosquitto_disconnect_callback_set(
        client_, [](mosquitto *, void *self, int) { static_cast<Router *>(self)->broken_ = true; });
    broken_ = false;
    ++simulation_.connecting;
    connectedAt_ = now;
    const Node &node = simulation_.nodes[node_];
    check(mosquitto_connect_async(client_, node.host.c_str(), node.port, kKeepAlive), now);
}

void Router::onConnected(int status) {
    if (status != 0) {
        broken_ = true;
        return;
    }
    online_ = true;
    --simulation_.connecting;
    attempts_ = 0;
    sendOpen();
}

void Router::sendOpen() {
    std::size_t window = kWindow;
    for (Waiting &waiting : outbox_) {
        if (window-- == 0)
            break;
        if (waiting.sent)
            continue;
        const std::string body = bodyOf(simulation_.ledger[waiting.entry].key);
        int number = 0;
        if (mosquitto_publish(client_, &number, topicOf(number_).c_str(),
                              static_cast<int>(body.size()), body.data(), 1,
                              false) != MOSQ_ERR_SUCCESS) {
            broken_ = true;
            return;
        }
        waiting.sent = number;
        waiting.sentAt = Clock::now();
    }
}

// Only now the report leaves the outbox.
void Router::onAcknowledged(int number) {
    const auto found = std::find_if(outbox_.begin(), outbox_.end(),
                                    [&](const Waiting &waiting) { return waiting.sent == number; });
    if (found == outbox_.end())
        return;
    simulation_.ledger[found->entry].fate = Fate::kAcknowledged;
    ++simulation_.acknowledged;
    outbox_.erase(found);
    sendOpen();
}

void Router::onReady(std::uint32_t events, Clock::time_point now) {
    if (client_ == nullptr)
        return;
    int status = MOSQ_ERR_SUCCESS;
    if ((events & (EPOLLIN | EPOLLERR | EPOLLHUP)) != 0)
        status = mosquitto_loop_read(client_, 1);
    if (status == MOSQ_ERR_SUCCESS && (events & EPOLLOUT) != 0)
        status = mosquitto_loop_write(client_, 1);
    check(status, now);
}

void Router::onTick(Clock::time_point now) {
    if (client_ == nullptr) {
        if (now >= nextTry_ && (simulation_.held || !outbox_.empty()) &&
            simulation_.connecting < kMostConnecting)
            connect(now);
        return;
    }
    const auto since =
        online_ ? (outbox_.empty() || !outbox_.front().sent ? now : outbox_.front().sentAt)
                : connectedAt_;
    if (now - since > kPatience) {
        close(true, now);
        return;
    }
    check(mosquitto_loop_misc(client_), now);
}

// After every call of the library: is there still a connection, and is it still wanted.
void Router::check(int status, Clock::time_point now) {
    if (status != MOSQ_ERR_SUCCESS || broken_)
        close(true, now);
    else if (online_ && !simulation_.held && outbox_.empty())
        close(false, now);
    else
        watchSocket();
}

void Router::watchSocket() {
    const int socket = mosquitto_socket(client_);
    if (socket < 0)
        return;
    const std::uint32_t wanted =
        EPOLLIN | (mosquitto_want_write(client_) ? static_cast<std::uint32_t>(EPOLLOUT) : 0U);
    if (socket == socket_ && wanted == watched_)
        return;
    epoll_event event{};
    event.events = wanted;
    event.data.u32 = number_;
    epoll_ctl(simulation_.watch, socket == socket_ ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, socket, &event);
    socket_ = socket;
    watched_ = wanted;
}

// Every report that was not acknowledged will be sent again on another connection. A new client
// each time: the library would send its own memory of them.
void Router::close(bool failed, Clock::time_point now) {
    if (!failed)
        mosquitto_disconnect(client_); // closing the socket takes it out of epoll as well
    mosquitto_destroy(client_);
    simulation_.connecting -= online_ ? 0 : 1;
    client_ = nullptr;
    socket_ = -1;
    watched_ = 0;
    online_ = false;
    for (Waiting &waiting : outbox_)
        waiting.sent.reset();
    if (!failed)
        return;
    ++simulation_.failures;
    node_ = (node_ + 1) % simulation_.nodes.size();
    attempts_ = std::min(attempts_ + 1, 10);
    const int whole = std::min(1 << (attempts_ - 1), kLongestPause) * 1000;
    std::uniform_int_distribution<int> spread(whole / 2, whole);
    nextTry_ = now + milliseconds(spread(simulation_.random));
}

} // namespace fleet
