#include "simulate/run.h"

#include "simulate/router.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <unistd.h>

namespace fleet {
namespace {

using Clock = Router::Clock;
using std::chrono::duration;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds kTick{100};
constexpr seconds kProgress{5};
// How long held connections may take to come about before the first report is made.
constexpr seconds kOpening{120};

constexpr std::uint32_t kFullReport = 294; // what the daemon holds at most

// A client of the MQTT library takes three descriptors.
void allowDescriptors(std::uint32_t routers) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur < 3ULL * routers + 100)
        throw std::runtime_error("too few descriptors for so many routers (ulimit -n)");
}

Node nodeOf(const std::string &text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos)
        throw std::runtime_error("'" + text + "' is no address like 127.0.0.1:8883");
    return {text.substr(0, colon), std::stoi(text.substr(colon + 1))};
}

SSL_CTX *makeContext(const std::string &authority) {
    SSL_CTX *context = SSL_CTX_new(TLS_client_method());
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
    if (SSL_CTX_load_verify_locations(context, authority.c_str(), nullptr) != 1)
        throw std::runtime_error("the authority's certificate can't be read: " + authority);
    return context;
}

class Run {
  public:
    Run(const RunOptions &options, const std::atomic<bool> &stop);
    ~Run();
    Run(const Run &) = delete;
    Run &operator=(const Run &) = delete;

    std::size_t go();

  private:
    void openAll();
    void step(Clock::time_point now);
    void makeReports(Clock::time_point now);
    void makeReport(Clock::time_point now);
    [[nodiscard]] std::uint32_t recordsOfNext() const;
    [[nodiscard]] Fault faultOfNext() const;
    void tick(Clock::time_point now);
    void serve(milliseconds patience);
    void tell(Clock::time_point now, bool last);
    [[nodiscard]] std::size_t online() const;
    [[nodiscard]] std::size_t left() const;
    [[nodiscard]] bool isOver(Clock::time_point now) const;

    const RunOptions &options_;
    const std::atomic<bool> &stop_;
    Simulation simulation_;
    std::vector<std::unique_ptr<Router>> routers_;
    Clock::time_point begun_ = Clock::now();
    Clock::time_point ticked_;
    Clock::time_point told_ = begun_;
    std::uint64_t made_ = 0;
};

Run::Run(const RunOptions &options, const std::atomic<bool> &stop)
    : options_(options), stop_(stop) {
    allowDescriptors(options.routers);
    for (const std::string &node : options.nodes)
        simulation_.nodes.push_back(nodeOf(node));
    simulation_.seed = options.seed;
    simulation_.context = makeContext(options.authority);
    simulation_.held = !options.each;
    simulation_.random.seed(static_cast<unsigned>(options.seed));
    simulation_.watch = epoll_create1(EPOLL_CLOEXEC);
    for (std::uint32_t i = 0; i < options.routers; ++i)
        routers_.push_back(std::make_unique<Router>(simulation_, i));
}

Run::~Run() {
    routers_.clear();
    ::close(simulation_.watch);
    SSL_CTX_free(simulation_.context);
}

std::uint32_t Run::recordsOfNext() const {
    if (options_.odd && made_ % 97 == 5)
        return 0;
    if (options_.odd && made_ % 89 == 7)
        return kFullReport;
    return options_.records;
}

Fault Run::faultOfNext() const {
    if (options_.badEvery == 0 || made_ % options_.badEvery != options_.badEvery / 2)
        return Fault::kNone;
    return options_.refused ? Fault::kRefused
                            : static_cast<Fault>(1 + made_ / options_.badEvery % kEnvelopeFaults);
}

void Run::makeReport(Clock::time_point now) {
    Router &router = *routers_[made_ % routers_.size()];
    router.report(std::time(nullptr), recordsOfNext(), faultOfNext(), now);
    ++made_;
    if (options_.odd && made_ % 500 == 250)
        router.impersonate(static_cast<std::uint32_t>(made_ % routers_.size()));
}

void Run::makeReports(Clock::time_point now) {
    const double elapsed = duration<double>(now - begun_).count();
    if (elapsed > options_.seconds)
        return;
    while (static_cast<double>(made_) < elapsed * options_.rate)
        makeReport(now);
}

void Run::tick(Clock::time_point now) {
    for (const auto &router : routers_)
        router->onTick(now);
    ticked_ = now;
}

void Run::serve(milliseconds patience) {
    std::array<epoll_event, 256> events{};
    const int count = epoll_wait(simulation_.watch, events.data(), static_cast<int>(events.size()),
                                 static_cast<int>(patience.count()));
    const auto now = Clock::now();
    for (int i = 0; i < count; ++i)
        routers_[events.at(static_cast<std::size_t>(i)).data.u32]->onReady(
            events.at(static_cast<std::size_t>(i)).events, now);
}

std::size_t Run::online() const {
    return static_cast<std::size_t>(std::count_if(
        routers_.begin(), routers_.end(), [](const auto &router) { return router->isOnline(); }));
}

std::size_t Run::left() const {
    return std::accumulate(
        routers_.begin(), routers_.end(), std::size_t{0},
        [](std::size_t sum, const auto &router) { return sum + router->waiting(); });
}

void Run::tell(Clock::time_point now, bool last) {
    if (now - told_ < kProgress && !last)
        return;
    told_ = now;
    printf("%6.0f s  routers online %zu of %zu, reports made %llu, acknowledged %llu, in outboxes "
           "%zu, connections lost or refused %llu\n",
           duration<double>(now - begun_).count(), online(), routers_.size(),
           static_cast<unsigned long long>(made_),
           static_cast<unsigned long long>(simulation_.acknowledged), left(),
           static_cast<unsigned long long>(simulation_.failures));
    fflush(stdout);
}

bool Run::isOver(Clock::time_point now) const {
    const double elapsed = duration<double>(now - begun_).count();
    if (stop_ || elapsed > options_.seconds + options_.drain)
        return true;
    return elapsed > options_.seconds && left() == 0;
}

void Run::step(Clock::time_point now) {
    if (now - ticked_ >= kTick)
        tick(now);
    serve(milliseconds(5));
    tell(now, false);
}

// Opening thousands of connections and holding them are different things; a run is about the
// latter.
void Run::openAll() {
    for (auto now = begun_; !stop_ && now - begun_ < kOpening && online() < routers_.size();
         now = Clock::now())
        step(now);
    begun_ = Clock::now();
}

std::size_t Run::go() {
    if (simulation_.held)
        openAll();
    for (;;) {
        const auto now = Clock::now();
        if (isOver(now))
            break;
        makeReports(now);
        step(now);
    }
    tell(Clock::now(), true);
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    printf("the routers took %ld CPU s, %ld MB at most\n",
           static_cast<long>(used.ru_utime.tv_sec + used.ru_stime.tv_sec), used.ru_maxrss / 1024);
    fflush(stdout);
    writeLedger(options_.ledger, simulation_.ledger);
    return left();
}

} // namespace

std::size_t simulate(const RunOptions &options, const std::atomic<bool> &stop) {
    return Run(options, stop).go();
}

} // namespace fleet
