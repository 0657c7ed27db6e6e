#include "usage/uplink/service.h"

#include "common/file.h"
#include "usage/uplink/schedule.h"
#include "usage/uplink/sender.h"
#include "usage/uplink/taken.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <iostream>
#include <mosquitto.h>
#include <poll.h>
#include <random>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <utility>

namespace uplink {
namespace {

constexpr int kFailed = 1;
constexpr std::chrono::seconds kLookEvery{10}; // a signal can be missed while nothing runs here

using Clock = Schedule::Clock;

sigset_t ourSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR2})
        sigaddset(&signals, signal);
    return signals;
}

// What the signals ask for, taken from a descriptor: nothing is ever interrupted by one.
class Signals {
  public:
    Signals()
        : taken_(ourSignals()), descriptor_(signalfd(-1, &taken_, SFD_NONBLOCK | SFD_CLOEXEC)) {
        if (!descriptor_)
            throw std::runtime_error(std::string("cannot take signals: ") + strerror(errno));
    }

    // True once for any number of SIGUSR2.
    bool report() { return collect(), std::exchange(report_, false); }
    bool end() { return collect(), end_; }

    void wait(Clock::duration atMost) {
        const auto wait = std::chrono::ceil<std::chrono::milliseconds>(atMost).count();
        pollfd watched{.fd = descriptor_.get(), .events = POLLIN, .revents = 0};
        poll(&watched, 1, static_cast<int>(std::max<std::int64_t>(wait, 0)));
    }

  private:
    void collect() {
        signalfd_siginfo taken{};
        while (read(descriptor_.get(), &taken, sizeof taken) == static_cast<ssize_t>(sizeof taken))
            (taken.ssi_signo == SIGUSR2 ? report_ : end_) = true;
    }

    sigset_t taken_;
    Descriptor descriptor_;
    bool report_ = false;
    bool end_ = false;
};

// The library's own set-up, for as long as it lives.
class Library {
  public:
    Library() { mosquitto_lib_init(); }
    Library(const Library &) = delete;
    Library &operator=(const Library &) = delete;
    ~Library() { mosquitto_lib_cleanup(); }
};

// A line that is told again only after something else was.
class Trouble {
  public:
    void tell(const std::string &line) {
        if (line != told_)
            say(line);
        told_ = line;
    }
    void over() { told_.clear(); }

  private:
    std::string told_;
};

class Uplink {
  public:
    Uplink(const Options &options, const Config &config, Signals &signals)
        : options_(options), config_(config), signals_(signals), outbox_(openOutbox()),
          spool_(options.spool, say),
          schedule_(
              {.spread = config.spread, .first = config.retryFirst, .longest = config.retryLongest},
              [this] { return share_(random_); }) {
        say(std::string("version " UPLINK_VERSION ": ") + config.router + " to " + config.broker +
            ":" + std::to_string(config.port) + ", outbox " + outbox_.identity() + " with " +
            std::to_string(outbox_.waiting()) + " reports, at most " +
            std::to_string(config.outboxLimit) + " bytes");
    }

    int once() {
        look(Occasion::kWritten);
        const bool sent = outbox_.waiting() == 0 || attempt();
        return sent && outbox_.waiting() == 0 ? 0 : kFailed;
    }

    int serve() {
        look(Occasion::kWritten);
        while (!signals_.end()) {
            if (outbox_.waiting() > 0)
                schedule_.wanted(Clock::now());
            if (schedule_.pending() && Clock::now() >= schedule_.due())
                attempt();
            auto next = nextLook_;
            if (schedule_.pending())
                next = std::min(next, schedule_.due());
            signals_.wait(next - Clock::now());
            lookIfAsked();
        }
        return 0;
    }

  private:
    // Another one in place of a damaged one.
    Outbox openOutbox() {
        std::filesystem::create_directories(options_.state);
        try {
            return {options_.state, config_.outboxLimit};
        } catch (const SqlDamage &damage) {
            say("the outbox is damaged (" + std::string(damage.what()) + "), kept as " +
                setAside(options_.state) + ": what waited in it is not sent");
        } catch (const SqlError &error) {
            throw SqlError("cannot use the outbox in " + options_.state + ": " + error.what());
        }
        return {options_.state, config_.outboxLimit};
    }

    // What can't be taken now is told and waits: the daemon goes on all the same.
    void look(Occasion occasion) {
        nextLook_ = Clock::now() + kLookEvery;
        try {
            spool_.take(outbox_, occasion, time(nullptr));
            spoolTrouble_.over();
        } catch (const SqlDamage &) {
            throw;
        } catch (const std::exception &error) {
            spoolTrouble_.tell(std::string("cannot take the report: ") + error.what());
        }
    }

    void lookIfAsked() {
        if (signals_.report())
            look(Occasion::kWritten);
        else if (Clock::now() >= nextLook_)
            look(Occasion::kTimer);
    }

    Delivery tryDelivery() {
        try {
            return deliver(outbox_, config_, [this] {
                lookIfAsked();
                return !signals_.end();
            });
        } catch (const SqlDamage &) {
            throw;
        } catch (const SqlError &error) { // what was sent is sent again: it does not matter
            return {.stopped = false,
                    .acknowledged = 0,
                    .failure = std::string("the outbox can't be written: ") + error.what()};
        }
    }

    // One delivery; false when it has failed.
    bool attempt() {
        const Delivery delivery = tryDelivery();
        if (delivery.failure.empty()) {
            schedule_.done();
            deliveryTrouble_.over();
            return true;
        }
        schedule_.failed(Clock::now(), delivery.acknowledged > 0);
        deliveryTrouble_.tell("cannot send to " + config_.broker + ": " + delivery.failure + "; " +
                              std::to_string(outbox_.waiting()) + " reports wait");
        return false;
    }

    const Options &options_;
    const Config &config_;
    Signals &signals_;
    Outbox outbox_;
    Spool spool_;
    std::mt19937_64 random_{std::random_device{}()};
    std::uniform_real_distribution<double> share_{0.0, 1.0};
    Schedule schedule_;
    Trouble spoolTrouble_;
    Trouble deliveryTrouble_;
    Clock::time_point nextLook_;
};

} // namespace

void say(const std::string &line) {
    std::cerr << "aws_json: " << line << std::endl;
}

void blockSignals() {
    const sigset_t signals = ourSignals();
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    signal(SIGPIPE, SIG_IGN);
}

int runService(const Options &options, const Config &config) {
    umask(S_IRWXG | S_IRWXO); // who used what is nobody else's to read
    const Library library;
    Signals signals;
    for (;;) {
        try {
            Uplink uplink(options, config, signals);
            return options.once ? uplink.once() : uplink.serve();
        } catch (const SqlDamage &damage) { // found while it was in use: opened afresh
            say(std::string("the outbox is damaged: ") + damage.what());
        }
        if (options.once)
            return kFailed;
        signals.wait(kLookEvery);
        if (signals.end())
            return 0;
    }
}

} // namespace uplink
