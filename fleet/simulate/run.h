// A run of many simulated routers against the buffer.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace fleet {

struct RunOptions {
    std::vector<std::string> nodes; // "127.0.0.1:25021"
    std::string authority;          // file with the certificate that the nodes' one is signed by
    std::string ledger;             // file to write
    std::uint64_t seed = 1;
    std::uint32_t routers = 100;
    double rate = 20;           // reports a second, of all routers together
    std::uint32_t records = 20; // of a report
    double seconds = 30;        // how long reports are made
    double drain = 120;         // how long outboxes may take to empty afterwards
    std::uint32_t badEvery = 0; // one report in so many is faulty; 0 for none
    bool each = false;          // connect for each report
    bool refused = false;       // faulty reports are good ones that a store may refuse
    bool odd = false;           // now and then a report of 0 or of 294 records, and an impostor
};

// Runs until all outboxes are empty, or the time is up, or stop is set; prints a line of progress
// every few seconds. Returns how many reports are left in outboxes.
std::size_t simulate(const RunOptions &options, const std::atomic<bool> &stop);

} // namespace fleet
