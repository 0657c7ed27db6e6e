// The ledger of the routers, held against the store.
#pragma once

#include "ingest/report/device_key.h"
#include "simulate/ledger.h"

#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace fleet {

// What the store has of a report: the sums that the questions of check/questions.h ask for.
struct StoredReport {
    std::uint64_t rows = 0;        // in `reports`
    std::uint64_t items = 0;       // of these, with an item of their own
    std::uint64_t fingerprint = 0; // over all columns that come from the router
    std::uint64_t arrivals = 0;    // in `arrivals`
    std::uint64_t records = 0;     // as its arrival says
    std::int64_t taken = 0;
    std::uint64_t dropped = 0;
};

// Router, outbox, sequence.
using StoredKey = std::tuple<std::string, std::string, std::uint64_t>;
using Stored = std::map<StoredKey, StoredReport>;

// Sums of a router's application, over all days.
struct Sums {
    std::uint64_t records = 0;
    std::uint64_t upload = 0;
    std::uint64_t download = 0;

    bool operator==(const Sums &) const = default;
};
using Daily = std::map<std::pair<std::string, std::string>, Sums>; // router, application

struct Judgement {
    std::uint64_t missing = 0;
    std::uint64_t twice = 0;
    std::uint64_t altered = 0;
    std::uint64_t unknown = 0; // in the store, and nobody made it
};

// The number that the store computes over a report's rows: the sum of the first eight bytes of the
// MD5 of each, as in `rowFingerprint`.
[[nodiscard]] std::uint64_t fingerprintOf(const ReportKey &key, const DeviceKey &devices);

// Every acknowledged report must be there once and unaltered; one that was not may be there, once.
[[nodiscard]] Judgement judgeReports(const std::vector<Entry> &ledger, const Stored &stored,
                                     const DeviceKey &devices);

// The sums of all reports that are in the store, against `daily`: too little is missing, too much
// is twice; another mixture is altered. Counted by router and application.
[[nodiscard]] Judgement judgeDaily(const std::vector<Entry> &ledger, const Stored &stored,
                                   const Daily &daily);

// Dead letters as (reason, body): those that were made against those that are there.
using Letters = std::multimap<std::string, std::string>;
[[nodiscard]] Judgement judgeLetters(const std::vector<Entry> &ledger, const Letters &letters);

} // namespace fleet
