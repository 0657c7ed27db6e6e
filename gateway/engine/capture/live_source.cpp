#include "engine/capture/reader.h"
#include "engine/packets/packet_names.h"

#include <atomic>
#include <cstdio>
#include <mutex>
#include <poll.h>
#include <thread>

namespace idpfwd {
namespace {

constexpr int kPoll = 1000; // milliseconds between two looks at what has become idle

// A single reader works in the engine's own loop. Several have a thread each, which begins with the
// source's first work, so that whatever the engine has put on for itself by then holds for them
// too.
class LiveSource final : public PacketSource {
  public:
    LiveSource(const PacketOptions &options, std::shared_ptr<const NameTable> names)
        : PacketSource(std::move(names)), options_(options) {}
    LiveSource(const LiveSource &) = delete;
    LiveSource &operator=(const LiveSource &) = delete;
    ~LiveSource() override { stopThreads(); }

    bool open(std::string &error) {
        std::mutex *lock = options_.readers > 1 ? &tablesLock_ : nullptr;
        for (unsigned i = 0; i < options_.readers; i++) {
            readers_.push_back(Reader::create(tables, options_.memory / options_.readers, lock));
            if (!readers_.back()) {
                error = "the packet classifier cannot be used";
                return false;
            }
        }
        return openRings(error);
    }

    [[nodiscard]] int descriptor() const override {
        const Ring *ring = readers_[0]->ring();
        return ring != nullptr && alone() && !finished_ ? ring->descriptor() : -1;
    }

    [[nodiscard]] int timeout() const override { return finished_ ? -1 : kPoll; }
    [[nodiscard]] bool finished() const override { return finished_; }
    [[nodiscard]] std::string failure() const override { return failure_; }
    [[nodiscard]] std::unique_lock<std::mutex> lockTables() override {
        return alone() ? std::unique_lock<std::mutex>() : std::unique_lock(tablesLock_);
    }

    void work() override {
        if (finished_)
            return;
        if (readers_[0]->ring() == nullptr)
            lookForInterface();
        else if (!(alone() ? readers_[0]->work() : keepThreads()))
            interfaceIsGone();
        sweep();
    }

    void stop() override {
        if (finished_)
            return;
        finished_ = true;
        stopThreads();
        for (const auto &reader : readers_)
            reader->finish();
        tables.showAll();
        sayDrops();
    }

    [[nodiscard]] std::optional<std::uint64_t> captureDrops() const override {
        std::uint64_t drops = earlierDrops_;
        for (const auto &reader : readers_)
            drops += reader->ring() != nullptr ? reader->ring()->drops() : 0;
        return drops;
    }

  private:
    [[nodiscard]] bool alone() const { return readers_.size() == 1; }

    // All of them, or none.
    bool openRings(std::string &error) {
        std::vector<std::unique_ptr<Ring>> rings;
        std::vector<Ring *> shared;
        for (std::size_t i = 0; i < readers_.size(); i++) {
            rings.push_back(Ring::open(options_.name, options_.ring / readers_.size(), error));
            if (!rings.back())
                return false;
            shared.push_back(rings.back().get());
        }
        if (!alone() && !Ring::share(shared, error))
            return false;
        for (std::size_t i = 0; i < readers_.size(); i++)
            readers_[i]->start(std::move(rings[i]), options_.name, options_.gatewayMac);
        return true;
    }

    // False when a reader has found the interface gone.
    bool keepThreads() {
        if (threads_.empty())
            for (const auto &reader : readers_)
                threads_.emplace_back(
                    [this, &reader](const std::stop_token &token) { readUntil(token, *reader); });
        return !gone_;
    }

    void readUntil(const std::stop_token &token, Reader &reader) {
        constexpr int kLongestWait = 200;
        pollfd packets{.fd = reader.ring()->descriptor(), .events = POLLIN, .revents = 0};
        while (!token.stop_requested() && !gone_) {
            poll(&packets, 1, kLongestWait);
            if (!reader.work())
                gone_ = true;
        }
    }

    void stopThreads() {
        for (std::jthread &thread : threads_)
            thread.request_stop();
        threads_.clear();
    }

    // As one of the readers has found it; the others may have ended before they did.
    [[nodiscard]] std::string whyGone() const {
        std::string reason;
        for (const auto &reader : readers_)
            reason = reason.empty() ? reader->ring()->failure() : reason;
        return reason;
    }

    void interfaceIsGone() {
        stopThreads();
        earlierDrops_ = captureDrops().value_or(0);
        fprintf(stderr, "idpfwd: %s: %s; waiting for it to come back\n", options_.name.c_str(),
                whyGone().c_str());
        for (const auto &reader : readers_)
            reader->closeRing();
        gone_ = false;
        goneSince_ = steadyMilliseconds();
    }

    void lookForInterface() {
        std::string error;
        const std::uint64_t away = steadyMilliseconds() - goneSince_;
        if (openRings(error))
            fprintf(stderr, "idpfwd: %s: it is back, packets are read again\n",
                    options_.name.c_str());
        else if (away > std::uint64_t{options_.awaySeconds} * 1000)
            failure_ = options_.name + " has been gone for " + std::to_string(away / 1000) +
                       " s: " + error;
    }

    void sweep() {
        constexpr std::uint64_t kSweep = 1000, kSayDrops = 10'000;
        const Moment now = presentMoment();
        if (now.milliseconds - lastSweep_ < kSweep)
            return;
        lastSweep_ = now.milliseconds;
        {
            const auto locked = lockTables();
            tables.forgetUnseen(now, options_.forgetSeconds);
        }
        if (now.milliseconds - lastWord_ < kSayDrops)
            return;
        lastWord_ = now.milliseconds;
        checkGateway();
        sayDrops();
    }

    // Once, when one reader has seen enough of the LAN to know; several see a part of it each.
    void checkGateway() {
        constexpr std::uint64_t kTelling = 1000; // frames of a LAN, the router's among them
        if (saidGateway_ || !options_.gatewayMac || !alone() ||
            !readers_[0]->missesGateway(kTelling))
            return;
        saidGateway_ = true;
        sayMissingGateway(options_.name);
    }

    void sayDrops() {
        const std::uint64_t dropped = captureDrops().value_or(0);
        if (dropped == saidDrops_)
            return;
        fprintf(stderr, "idpfwd: %s: the kernel dropped %llu packets, they are not counted\n",
                options_.name.c_str(), static_cast<unsigned long long>(dropped - saidDrops_));
        saidDrops_ = dropped;
    }

    PacketOptions options_;
    std::mutex tablesLock_;
    std::vector<std::unique_ptr<Reader>> readers_;
    std::vector<std::jthread> threads_;
    std::atomic<bool> gone_ = false; // a reader has found the interface gone
    bool finished_ = false;
    bool saidGateway_ = false;
    std::string failure_;
    std::uint64_t goneSince_ = 0;
    std::uint64_t lastSweep_ = 0;
    std::uint64_t lastWord_ = 0;
    std::uint64_t earlierDrops_ = 0; // of rings that are closed
    std::uint64_t saidDrops_ = 0;
};

} // namespace

std::unique_ptr<Source> openInterface(const PacketOptions &options, std::string &error) {
    auto names = prepareNames(Classifier::create().get(), options, error);
    if (!names)
        return nullptr;
    auto source = std::make_unique<LiveSource>(options, std::move(names));
    if (!source->open(error))
        return nullptr;
    return source;
}

} // namespace idpfwd
