#include "usage/uplink/sender.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <map>
#include <memory>
#include <mosquitto.h>
#include <sys/time.h>
#include <utility>
#include <vector>

namespace uplink {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kQos = 1;
constexpr int kKeepAliveSeconds = 60;
constexpr int kSliceMilliseconds = 200;
constexpr time_t kConnectSeconds = 10;
constexpr std::size_t kWindow = 8; // messages on their way, of up to 256 KiB each
constexpr const char *kSystemAuthorities = "/etc/ssl/certs";

const char *orNull(const std::string &text) {
    return text.empty() ? nullptr : text.c_str();
}

// A key that wants a pass phrase is refused, not asked for on a terminal.
int noPassPhrase(char * /*buffer*/, int /*size*/, int /*writing*/, void * /*context*/) {
    return 0;
}

// While it lives no connect() takes longer than kConnectSeconds: the library's tries all addresses
// of a name in turn, each for as long as the kernel likes, which is minutes for one that is silent.
class ConnectLimit {
  public:
    ConnectLimit() {
        struct sigaction interrupt {};
        interrupt.sa_handler = [](int) {}; // without SA_RESTART
        sigaction(SIGALRM, &interrupt, &before_);
        set(kConnectSeconds);
    }
    ConnectLimit(const ConnectLimit &) = delete;
    ConnectLimit &operator=(const ConnectLimit &) = delete;
    ~ConnectLimit() {
        set(0);
        sigaction(SIGALRM, &before_, nullptr);
    }

  private:
    static void set(time_t seconds) {
        const itimerval every{.it_interval = {.tv_sec = seconds, .tv_usec = 0},
                              .it_value = {.tv_sec = seconds, .tv_usec = 0}};
        setitimer(ITIMER_REAL, &every, nullptr);
    }

    struct sigaction before_ {};
};

// One connection, used once. The library's callbacks only note what has happened.
class Connection {
  public:
    explicit Connection(const Config &config);

    // The library's status; the first failure is kept.
    bool start(const Config &config);
    // Waits for the broker at most a slice of time, and lets things happen.
    void work() { note(mosquitto_loop(handle_.get(), kSliceMilliseconds, 1)); }
    void send(const std::string &topic, std::int64_t sequence, const std::string &body);
    void leave() { mosquitto_disconnect(handle_.get()); }

    [[nodiscard]] bool connected() const { return connected_; }
    [[nodiscard]] bool room() const { return onTheirWay_.size() < kWindow; }
    [[nodiscard]] bool idle() const { return onTheirWay_.empty(); }
    [[nodiscard]] bool failed() const { return status_ != MOSQ_ERR_SUCCESS; }
    // Why it failed, for a person.
    [[nodiscard]] std::string failure() const;
    // The sequences that were acknowledged since the last call.
    std::vector<std::int64_t> takeAcknowledged() { return std::exchange(acknowledged_, {}); }

  private:
    struct Destroyer {
        void operator()(mosquitto *handle) const { mosquitto_destroy(handle); }
    };
    bool note(int status);
    void setCallbacks();

    std::unique_ptr<mosquitto, Destroyer> handle_;
    std::map<int, std::int64_t> onTheirWay_; // by the library's message number
    std::vector<std::int64_t> acknowledged_;
    std::string detail_; // what the library or the broker said last
    int status_ = MOSQ_ERR_SUCCESS;
    int error_ = 0; // errno beside it
    bool connected_ = false;
};

Connection::Connection(const Config &config)
    : handle_(mosquitto_new(config.router.c_str(), true, this)) {
    if (handle_ == nullptr)
        throw std::bad_alloc();
    setCallbacks();
}

void Connection::setCallbacks() {
    mosquitto_connect_callback_set(handle_.get(), [](mosquitto *, void *self, int code) {
        auto &connection = *static_cast<Connection *>(self);
        connection.connected_ = code == 0;
        if (code != 0)
            connection.detail_ = mosquitto_connack_string(code);
    });
    mosquitto_publish_callback_set(handle_.get(), [](mosquitto *, void *self, int number) {
        auto &connection = *static_cast<Connection *>(self);
        const auto found = connection.onTheirWay_.find(number);
        if (found == connection.onTheirWay_.end())
            return;
        connection.acknowledged_.push_back(found->second);
        connection.onTheirWay_.erase(found);
    });
    mosquitto_log_callback_set(handle_.get(),
                               [](mosquitto *, void *self, int level, const char *text) {
                                   if (level == MOSQ_LOG_ERR)
                                       static_cast<Connection *>(self)->detail_ = text;
                               });
}

bool Connection::note(int status) {
    if (!failed() && status != MOSQ_ERR_SUCCESS) {
        error_ = errno;
        status_ = status;
    }
    return status == MOSQ_ERR_SUCCESS;
}

bool Connection::start(const Config &config) {
    const ConnectLimit limit;
    const char *folder = config.caFile.empty() ? kSystemAuthorities : nullptr;
    return note(mosquitto_tls_set(handle_.get(), orNull(config.caFile), folder,
                                  orNull(config.certificateFile), orNull(config.keyFile),
                                  noPassPhrase)) &&
           note(mosquitto_username_pw_set(handle_.get(), orNull(config.username),
                                          orNull(config.password))) &&
           note(mosquitto_connect(handle_.get(), config.broker.c_str(), config.port,
                                  kKeepAliveSeconds));
}

void Connection::send(const std::string &topic, std::int64_t sequence, const std::string &body) {
    int number = 0;
    if (note(mosquitto_publish(handle_.get(), &number, topic.c_str(), static_cast<int>(body.size()),
                               body.data(), kQos, false)))
        onTheirWay_.emplace(number, sequence);
}

std::string Connection::failure() const {
    if (status_ == MOSQ_ERR_ERRNO)
        return error_ == EINTR ? "none of its addresses answers" : strerror(error_);
    const std::string text = mosquitto_strerror(status_);
    return detail_.empty() ? text : text + " (" + detail_ + ")";
}

// What a delivery goes through at each slice of time.
class Run {
  public:
    Run(Outbox &outbox, const Config &config)
        : outbox_(outbox), config_(config), connection_(config),
          topic_("usage/" + config.region + "/" + config.router + "/report"),
          deadline_(Clock::now() + config.patience) {}

    Delivery deliver(const std::function<bool()> &goOn) {
        connection_.start(config_);
        while (!connection_.failed()) {
            if (!goOn())
                return end("", true);
            connection_.work();
            removeAcknowledged();
            fill();
            if (connection_.connected() && connection_.idle() && !connection_.failed())
                return end("");
            if (Clock::now() >= deadline_)
                return end(connection_.connected() ? "the broker does not acknowledge"
                                                   : "the broker does not answer");
        }
        return end(connection_.failure());
    }

  private:
    Delivery end(const std::string &failure, bool stopped = false) {
        connection_.leave();
        return {.stopped = stopped, .acknowledged = acknowledged_, .failure = failure};
    }

    void removeAcknowledged() {
        const auto sequences = connection_.takeAcknowledged();
        if (sequences.empty())
            return;
        outbox_.remove(sequences);
        acknowledged_ += sequences.size();
        deadline_ = Clock::now() + config_.patience;
    }

    void fill() {
        while (connection_.connected() && connection_.room() && !connection_.failed()) {
            const auto message = outbox_.next(sent_);
            if (!message)
                return;
            sent_ = message->sequence;
            connection_.send(topic_, sent_, envelope(config_.router, outbox_.identity(), *message));
        }
    }

    Outbox &outbox_;
    const Config &config_;
    Connection connection_;
    std::string topic_;
    Clock::time_point deadline_;
    std::int64_t sent_ = 0; // up to this sequence
    std::size_t acknowledged_ = 0;
};

} // namespace

Delivery deliver(Outbox &outbox, const Config &config, const std::function<bool()> &goOn) {
    return Run(outbox, config).deliver(goOn);
}

} // namespace uplink
