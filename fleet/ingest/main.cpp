// fleet-ingest: the operator's end of the reports' way.
#include "ingest/ingest.h"
#include "ingest/log.h"
#include "ingest/options.h"
#include "ingest/upkeep.h"

#include <csignal>
#include <curl/curl.h>
#include <fstream>
#include <iterator>
#include <memory>
#include <thread>

namespace fleet {
namespace {

std::atomic<bool> stop{false};

void onSignal(int) {
    stop = true;
}

void catchSignals() {
    struct sigaction action {};
    action.sa_handler = onSignal;
    for (const int number : {SIGTERM, SIGINT, SIGHUP})
        sigaction(number, &action, nullptr);
    signal(SIGPIPE, SIG_IGN);
}

// The whole file; a newline at its end, which editors add, is no part of the key.
DeviceKey readKey(const Options &options) {
    if (options.plainDevices)
        return {};
    std::ifstream file(options.deviceKeyFile, std::ios::binary);
    if (!file)
        throw std::runtime_error("the device key can't be read: " + options.deviceKeyFile);
    std::string key{std::istreambuf_iterator<char>(file), {}};
    while (!key.empty() && key.back() == '\n')
        key.pop_back();
    return DeviceKey(key);
}

// Everything may be repeated, so whatever fails is tried again: servers that are just starting, and
// a stream that has no leader yet, get a minute.
void setUp(const Options &options) {
    for (int tries = 30;; --tries) {
        try {
            Store store(options.stores);
            setUpStore(store);
            Buffer buffer(options.buffer);
            buffer.setUp(options.limits);
            return;
        } catch (const std::runtime_error &error) {
            if (tries == 0 || stop)
                throw;
            logLine(std::string(error.what()) + "; trying again");
            std::this_thread::sleep_for(std::chrono::seconds(2));
        }
    }
}

std::unique_ptr<Buffer> connect(const BufferAddress &address) {
    for (;;) {
        try {
            return std::make_unique<Buffer>(address);
        } catch (const BufferError &error) {
            if (stop)
                return nullptr;
            logLine(error.what());
            std::this_thread::sleep_for(std::chrono::seconds(1));
        }
    }
}

void ingest(const Options &options) {
    const DeviceKey key = readKey(options);
    Store store(options.stores);
    Gauges gauges;
    const HealthServer server(options.listen, gauges, options.mostWaiting);
    logLine("version " FLEET_VERSION ", serving at " + options.listen);
    const auto buffer = connect(options.buffer);
    if (buffer)
        Ingester(*buffer, store, key, gauges, stop).run();
    logLine("stored " + std::to_string(gauges.reports) + " reports of " +
            std::to_string(gauges.rows) + " rows; gave back " + std::to_string(gauges.givenBack));
}

void run(const Options &options) {
    switch (options.command) {
    case Command::kSetup:
        setUp(options);
        break;
    case Command::kIngest:
        ingest(options);
        break;
    case Command::kRollup: {
        Store store(options.stores);
        rollUp(store, options.day);
        break;
    }
    case Command::kRetain: {
        Store store(options.stores);
        retain(store, options.months);
        break;
    }
    }
}

} // namespace
} // namespace fleet

int main(int argc, char **argv) {
    const auto line = fleet::parseCommandLine(argc, argv);
    if (line.leave)
        return *line.leave;
    fleet::catchSignals();
    curl_global_init(CURL_GLOBAL_DEFAULT);
    int status = 0;
    try {
        fleet::run(line.options);
    } catch (const std::exception &error) {
        fleet::logLine(error.what());
        status = 1;
    }
    // No nats_Close(): the library would free what OpenSSL 3 frees again at exit.
    return status;
}
