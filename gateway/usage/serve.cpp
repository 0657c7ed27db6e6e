#include "usage/serve.h"

#include "common/file.h"
#include "usage/answers/api.h"
#include "usage/http/http_listener.h"
#include "usage/http/site.h"
#include "usage/sampling/engine_reader.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <malloc.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/stat.h>

namespace usage {
namespace {

void tell(const std::string &line) {
    std::cerr << "traffic-usage: " << line << std::endl;
}

Moment now() {
    timespec wall{};
    timespec running{};
    clock_gettime(CLOCK_REALTIME, &wall);
    clock_gettime(CLOCK_BOOTTIME, &running);
    return {wall.tv_sec,
            static_cast<std::int64_t>(running.tv_sec) * 1000 + running.tv_nsec / 1000000};
}

sigset_t endingSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        sigaddset(&signals, signal);
    return signals;
}

void makeFolder(const std::string &folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error)
        throw std::runtime_error("cannot make " + folder + ": " + error.message());
}

// Tables of the engine take a megabyte for a moment: they go back to the system at once.
void keepMemorySmall() {
    mallopt(M_MMAP_THRESHOLD, 1 << 16);
    mallopt(M_TRIM_THRESHOLD, 1 << 16);
}

class Loop {
  public:
    explicit Loop(const ServeOptions &options)
        : options_(options),
          history_({.store = {.folder = options.place.state, .limit = options.limit},
                    .scratchFile = options.place.scratch(),
                    .every = options.every},
                   engine_, names_, tell),
          api_([this] { return view(); }, &history_, options.place.state),
          site_(api_, history_, options.place.instance, options.settings.messages),
          server_({.socketPath = options.place.socket(),
                   .listen = options.listen,
                   .passwordHash = options.settings.passwordHash},
                  [this](const HttpRequest &request) { return site_.handle(request); }) {}

    // Until a signal that ends it can be read from the descriptor.
    void run(int signals) {
        std::int64_t next = now().milliseconds;
        for (;;) {
            const std::int64_t wait = next - now().milliseconds;
            if (wait <= 0) {
                history_.sample(now());
                site_.sampled(now().wall);
                next = std::max(next, now().milliseconds - options_.every * 1000) +
                       options_.every * 1000;
                continue;
            }
            pollfd watched[] = {{.fd = signals, .events = POLLIN, .revents = 0},
                                {.fd = server_.descriptor(), .events = POLLIN, .revents = 0}};
            if (poll(watched, 2, shorter(static_cast<int>(wait), server_.timeout())) < 0 &&
                errno != EINTR)
                throw std::runtime_error(std::string("cannot wait: ") + strerror(errno));
            if (watched[0].revents != 0)
                return;
            server_.work();
        }
    }

    // Nothing that was counted is missing afterwards.
    bool stop() {
        history_.sample(now());
        return history_.commit();
    }

  private:
    static int shorter(int wait, int other) { return other < 0 ? wait : std::min(wait, other); }

    View view() {
        return {history_.present(), history_.store(),        history_.status(),
                history_.rates(),   options_.place.instance, now().wall};
    }

    ServeOptions options_;
    EngineReader engine_;
    DatabaseNames names_;
    History history_;
    Api api_;
    Site site_;
    HttpServer server_;
};

// The address that nobody chose may be another instance's: counting goes on without the page then.
std::string defaultListen() {
    constexpr const char *kListen = "127.0.0.1:8080";
    try {
        close(listenOnTcp(parseListen(kListen)));
        return kListen;
    } catch (const std::runtime_error &error) {
        tell(std::string(error.what()) + "; there is no page: choose an address with --listen");
        return "none";
    }
}

} // namespace

int serve(const ServeOptions &given) {
    ServeOptions options = given;
    keepMemorySmall();
    umask(S_IWGRP | S_IRWXO); // who used what is nobody else's business
    const sigset_t ending = endingSignals();
    sigprocmask(SIG_BLOCK, &ending, nullptr);
    signal(SIGPIPE, SIG_IGN);
    const Descriptor signals(signalfd(-1, &ending, SFD_NONBLOCK | SFD_CLOEXEC));
    makeFolder(options.place.state);
    makeFolder(options.place.runtime);
    if (options.listen.empty())
        options.listen = defaultListen();
    Loop loop(options);
    tell(std::string(TRAFFIC_USAGE_VERSION) + ": " + options.place.instance + ", store " +
         options.place.state + ", a sample every " + std::to_string(options.every) + " s, socket " +
         options.place.socket() + ", page " +
         (options.listen == "none" ? "none" : "http://" + options.listen + "/"));
    loop.run(signals.get());
    return loop.stop() ? 0 : 1;
}

} // namespace usage
