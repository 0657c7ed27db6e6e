#include "engine/loop.h"

#include "common/file.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <sys/signalfd.h>

namespace idpfwd {
namespace {

sigset_t loopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1})
        sigaddset(&signals, signal);
    return signals;
}

// The shorter of two waits, of which -1 is endless.
int shorter(int a, int b) {
    if (a < 0 || b < 0)
        return std::max(a, b);
    return std::min(a, b);
}

// Calls back once, when the condition first holds.
class Once {
  public:
    explicit Once(const std::function<void()> &callback) : callback_(callback) {}
    void when(bool condition) {
        if (!condition || called_)
            return;
        called_ = true;
        callback_();
    }

  private:
    const std::function<void()> &callback_;
    bool called_ = false;
};

// Calls back when a number has grown, at most once in a while.
class Growth {
  public:
    explicit Growth(const std::function<void()> &callback) : callback_(callback) {}
    void look(std::uint64_t number) {
        constexpr auto kPause = std::chrono::minutes(1);
        const auto now = std::chrono::steady_clock::now();
        if (number == said_ || (said_ != 0 && now < next_))
            return;
        said_ = number;
        next_ = now + kPause;
        callback_();
    }

  private:
    const std::function<void()> &callback_;
    std::uint64_t said_ = 0;
    std::chrono::steady_clock::time_point next_;
};

// False when the engine is to end.
bool takeSignals(int signals, const LoopEvents &events) {
    signalfd_siginfo taken{};
    while (read(signals, &taken, sizeof taken) == static_cast<ssize_t>(sizeof taken)) {
        if (taken.ssi_signo != SIGUSR1)
            return false;
        events.dump();
    }
    return true;
}

} // namespace

void blockSignals() {
    const sigset_t signals = loopSignals();
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    signal(SIGPIPE, SIG_IGN);
}

std::string runLoop(Source &source, Device &device, const LoopEvents &events) {
    const sigset_t taken = loopSignals();
    const Descriptor signals(signalfd(-1, &taken, SFD_NONBLOCK | SFD_CLOEXEC));
    RequestServer server(source);
    Once ready(events.ready);
    Once finished(events.finished);
    Growth overflow(events.overflow);
    std::vector<pollfd> watched;
    while (device.failure().empty() && source.failure().empty()) {
        ready.when(device.ready());
        finished.when(source.finished());
        watched = {{.fd = signals.get(), .events = POLLIN, .revents = 0},
                   {.fd = source.descriptor(), .events = POLLIN, .revents = 0}};
        device.watch(watched);
        const int count =
            poll(watched.data(), watched.size(), shorter(source.timeout(), device.timeout()));
        if (count < 0 && errno != EINTR)
            return std::string("cannot wait: ") + strerror(errno);
        if (watched[0].revents != 0 && !takeSignals(signals.get(), events))
            return "";
        source.work();
        const auto locked = source.lockTables();
        device.serve(std::span(watched).subspan(2), server);
        const Overflow &refused = source.tables.overflow();
        overflow.look(refused.users + refused.rows + refused.packets);
    }
    return device.failure().empty() ? source.failure() : device.failure();
}

} // namespace idpfwd
