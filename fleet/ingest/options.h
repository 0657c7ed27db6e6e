// The command line and the environment of fleet-ingest.
#pragma once

#include "ingest/buffer.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace fleet {

enum class Command { kSetup, kIngest, kRollup, kRetain };

struct Options {
    Command command = Command::kIngest;
    BufferAddress buffer;
    std::vector<std::string> stores;
    std::string deviceKeyFile;
    bool plainDevices = false;
    std::string listen = "127.0.0.1:9464";
    std::uint64_t mostWaiting = 100'000;
    BufferLimits limits{.reports = 64LL << 30, .dead = 1LL << 30, .copies = 3};
    std::string day; // of rollup; empty for the days that are due
    int months = 0;  // of retain
};

// Either options, or the status to leave with: 0 after --help or --version, 2 for bad usage; what
// there was to say is said.
struct CommandLine {
    Options options;
    std::optional<int> leave;
};

[[nodiscard]] CommandLine parseCommandLine(int argc, const char *const *argv);

} // namespace fleet
