// What 400 days of a household, or of a busy network, cost: size, bytes written, memory, the
// slowest question; beside it one row for each device, application and slot, for the days that
// slots are kept.
#include "usage/answers/query.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <malloc.h>
#include <random>
#include <set>

namespace usage {
namespace {

constexpr int kDays = 400;
constexpr int kRowDays = 3;            // as long as slots are kept
constexpr Seconds kStart = 1735689600; // 2025-01-01T00:00:00Z

struct Network {
    const char *name;
    std::uint32_t devices;
    std::uint32_t applications;
    std::array<std::uint32_t, 3> active; // pairs in a slot: at night, by day, in the evening
};
constexpr Network kHousehold{"household", 12, 12, {6, 20, 50}};
constexpr Network kBusy{"busy", 20, 50, {60, 150, 300}};

std::uint32_t activeAt(const Network &network, Seconds slot) {
    const Seconds hour = slot % kDaySeconds / kHourSeconds;
    return network.active[hour < 7 ? 0 : hour < 18 ? 1 : 2];
}

// The same slots for every run; the amounts spread over six powers of ten.
class Generator {
  public:
    explicit Generator(const Network &network) : network_(network) {}
    void fill(Seconds slot, Traffic &traffic) {
        for (std::uint32_t i = activeAt(network_, slot); i > 0; --i) {
            const auto device = static_cast<DeviceId>(1 + random_() % network_.devices);
            const auto application =
                static_cast<ApplicationId>(1 + random_() % network_.applications);
            const std::uint64_t down = random_() % 1000 << random_() % 20;
            traffic[{device, application}] += {down, down / (1 + random_() % 50)};
        }
    }

  private:
    Network network_;
    std::mt19937 random_{1};
};

std::uint64_t numberIn(const char *file, const std::string &key) {
    std::ifstream stream(file);
    std::string word;
    std::uint64_t value = 0;
    while (stream >> word) {
        if (word == key && stream >> value)
            return value;
    }
    return 0;
}

std::uint64_t bytesWritten() {
    return numberIn("/proc/self/io", "wchar:");
}

double megabytes(std::uint64_t bytes) {
    return static_cast<double>(bytes) / 1e6;
}

// Every file of a folder.
std::uint64_t sizeOf(const std::string &folder) {
    std::uint64_t sum = 0;
    for (const auto &entry : std::filesystem::directory_iterator(folder))
        sum += entry.file_size();
    return sum;
}

void addNames(const Network &network, Directory &directory) {
    for (std::uint32_t i = 1; i <= network.devices; ++i) {
        Device &device = directory.device({2, 0, 0, 0, 0, static_cast<std::uint8_t>(i)});
        device.hostName = "device-" + std::to_string(i);
    }
    for (std::uint32_t i = 1; i <= network.applications; ++i)
        directory.application(
            {"Category " + std::to_string(i % 10), "Application " + std::to_string(i)});
}

// The counters that a commit holds beside the slots: all that the network ever used.
Baseline countersOf(const Network &network) {
    Baseline baseline;
    for (std::uint32_t device = 1; device <= network.devices; ++device) {
        auto &stay = baseline.stays[{{2, 0, 0, 0, 0, static_cast<std::uint8_t>(device)}, kStart}];
        for (std::uint32_t i = 1; i <= network.applications; ++i)
            stay.counters[{1, static_cast<std::uint16_t>(i)}] = {1ULL << 36U, 1ULL << 32U};
    }
    return baseline;
}

double millisecondsOf(const auto &run) {
    double best = 1e9;
    for (int i = 0; i < 5; ++i) {
        const auto begin = std::chrono::steady_clock::now();
        run();
        const std::chrono::duration<double, std::milli> took =
            std::chrono::steady_clock::now() - begin;
        best = std::min(best, took.count());
    }
    return best;
}

double slowestQuestion(const Present &present, const Store &store,
                       const std::vector<Seconds> &backs) {
    double slowest = 0;
    for (const Seconds back : backs) {
        for (const auto step :
             {std::optional<Level>(), std::optional(Level::kDay), std::optional(Level::kMonth)}) {
            Question question;
            question.range = {present.lastSample - back, present.lastSample};
            question.byDevice = true;
            question.byApplication = true;
            question.step = step;
            question.top = 100;
            slowest = std::max(slowest, millisecondsOf([&] { ask(present, store, question); }));
        }
    }
    return slowest;
}

void tell(const char *what, double value, const char *unit) {
    std::cout << "  " << std::left << std::setw(46) << what << std::right << std::fixed
              << std::setprecision(2) << std::setw(10) << value << " " << unit << std::endl;
}

void measureHistory(const Network &network, const std::string &folder) {
    Present present;
    Store store({.folder = folder}, present);
    addNames(network, present.directory);
    present.baseline = countersOf(network);
    Generator generator(network);
    const std::uint64_t before = bytesWritten();
    for (Seconds slot = kStart; slot < kStart + kDays * kDaySeconds; slot += kSlotSeconds) {
        generator.fill(slot, present.slots[slot]);
        if ((slot + kSlotSeconds) % kHourSeconds == 0) {
            present.lastSample = slot + kSlotSeconds;
            store.commit(present);
        }
    }
    tell("written a day", megabytes(bytesWritten() - before) / kDays, "MB");
    tell("file and log after 400 days", megabytes(sizeOf(folder)), "MB");
    malloc_trim(0);
    tell("memory of its own (RssAnon)",
         static_cast<double>(numberIn("/proc/self/status", "RssAnon:")) / 1e3, "MB");
    tell("slowest question over the last day", slowestQuestion(present, store, {kDaySeconds}),
         "ms");
    tell("slowest question over 7, 30, 365 days",
         slowestQuestion(present, store, {7 * kDaySeconds, 30 * kDaySeconds, 365 * kDaySeconds}),
         "ms");
}

void measureRows(const Network &network, const std::string &folder) {
    Database database(folder + "/rows.db", SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    database.run(
        "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL; PRAGMA wal_autocheckpoint=64;"
        "CREATE TABLE traffic(start INTEGER, device INTEGER, application INTEGER, down INTEGER,"
        " up INTEGER, PRIMARY KEY(start, device, application)) WITHOUT ROWID");
    Generator generator(network);
    const std::uint64_t before = bytesWritten();
    for (Seconds slot = kStart; slot < kStart + kRowDays * kDaySeconds; slot += kSlotSeconds) {
        Traffic traffic;
        generator.fill(slot, traffic);
        Transaction transaction(database);
        Statement insert(database, "INSERT INTO traffic VALUES(?, ?, ?, ?, ?)");
        for (const auto &[pair, bytes] : traffic)
            insert.bind(slot)
                .bind(std::int64_t{pair.device})
                .bind(std::int64_t{pair.application})
                .bind(static_cast<std::int64_t>(bytes.down))
                .bind(static_cast<std::int64_t>(bytes.up))
                .run();
        transaction.commit();
    }
    tell("one row each: written a day", megabytes(bytesWritten() - before) / kRowDays, "MB");
    tell("one row each: file and log after 3 days", megabytes(sizeOf(folder)), "MB");
    tell("one row each: the last day by device, application", millisecondsOf([&] {
             Statement sum(database, "SELECT device, application, sum(down), sum(up) FROM traffic"
                                     " WHERE start >= ? GROUP BY device, application");
             sum.bind(kStart + (kRowDays - 1) * kDaySeconds);
             while (sum.step()) {
             }
         }),
         "ms");
}

void measure(const Network &network, const std::filesystem::path &root) {
    std::cout << network.name << std::endl;
    for (const auto run : {measureHistory, measureRows}) {
        std::filesystem::remove_all(root);
        std::filesystem::create_directories(root);
        run(network, root);
    }
    std::filesystem::remove_all(root);
}

} // namespace
} // namespace usage

int main(int argc, char **argv) {
    if (argc != 2) {
        std::cerr << "usage: history_bench FOLDER (which is emptied)\n";
        return 2;
    }
    mallopt(M_MMAP_THRESHOLD, 1 << 16); // as the service has it
    try {
        for (const usage::Network &network : {usage::kHousehold, usage::kBusy})
            usage::measure(network, argv[1]);
    } catch (const std::exception &error) {
        std::cerr << "history_bench: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
