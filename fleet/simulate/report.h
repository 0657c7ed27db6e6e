// What a simulated router reports. Everything follows from seed, router, sequence and time, so that
// whoever checks the store can make it again instead of remembering it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace fleet {

// What is wrong with a report, on purpose. The last one only a store finds that was told which
// types of devices there are.
enum class Fault { kNone, kJson, kSchema, kCount, kRange, kIdentity, kRefused };

inline constexpr int kFaults = 7;
inline constexpr int kEnvelopeFaults = 5; // from kJson on

// What tells a report apart, and decides what is in it.
struct ReportKey {
    std::uint64_t seed = 0;
    std::uint32_t router = 0;
    std::uint64_t sequence = 0;
    std::int64_t taken = 0; // seconds since 1970
    std::uint64_t dropped = 0;
    std::uint32_t records = 0;
    Fault fault = Fault::kNone;
};

// A record as a router means it; bytes may be negative.
struct SimulatedRecord {
    std::string device;
    std::string deviceType;
    std::string appType;
    std::string appName;
    std::int64_t start = 0;
    std::int64_t end = 0;
    std::int64_t upload = 0;
    std::int64_t download = 0;
};

[[nodiscard]] std::string routerName(std::uint32_t router);
[[nodiscard]] std::string regionName(std::uint32_t router);
[[nodiscard]] std::string outboxName(std::uint64_t seed, std::uint32_t router);
[[nodiscard]] std::string passwordOf(std::uint64_t seed, std::uint32_t router);
[[nodiscard]] std::string topicOf(std::uint32_t router);

[[nodiscard]] std::vector<SimulatedRecord> recordsOf(const ReportKey &key);

// The envelope, as the router publishes it: faulty where the key says so.
[[nodiscard]] std::string bodyOf(const ReportKey &key);

// The reason under which a faulty one must become a dead letter.
[[nodiscard]] const char *reasonOf(Fault fault);

// A number that follows from two others and looks random.
[[nodiscard]] std::uint64_t mix(std::uint64_t a, std::uint64_t b);

} // namespace fleet
