// What became of every report that simulated routers made, as they know it themselves: the store is
// held against this.
#pragma once

#include "simulate/report.h"

#include <cstdint>
#include <string>
#include <vector>

namespace fleet {

enum class Fate : char {
    kAcknowledged = 'a', // the buffer said that it has it: it must be in the store, once
    kOpen = 'o',         // sent perhaps, never acknowledged: in the store once, or not at all
};

struct Entry {
    ReportKey key;
    Fate fate = Fate::kOpen;
};

// Writes the ledger as one line for each report. Throws std::runtime_error.
void writeLedger(const std::string &path, const std::vector<Entry> &entries);

// Throws std::runtime_error when the file can't be read or is no ledger.
[[nodiscard]] std::vector<Entry> readLedger(const std::string &path);

} // namespace fleet
