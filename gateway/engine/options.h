// The command line of idpfwd.
#pragma once

#include "engine/tables.h"

#include <cstdint>
#include <optional>
#include <string>

namespace idpfwd {

enum class SourceKind { kScenario, kInterface, kCapture };
enum class DeviceKind { kCuse, kSocket };

struct Options {
    SourceKind source = SourceKind::kScenario;
    std::string sourceName; // the file or the interface
    bool fast = false;
    std::optional<Mac> gatewayMac;
    std::uint32_t forgetSeconds = 600;
    std::size_t memory = std::size_t{32} << 20; // bytes for all that is remembered of flows
    std::size_t ring = std::size_t{8} << 20;    // bytes of an interface's packets in the kernel
    unsigned readers = 1;
    std::optional<DeviceKind> device; // unset: CUSE where the kernel offers it, else the socket
    std::string socketPath;
    std::string databases = "/tmp/trend";
    std::string dumpFile; // "" for none
};

// What the command line asks for: to run, or only to print a text and leave with this status.
struct CommandLine {
    Options options;
    std::optional<int> leave;
    std::string text; // ends with a newline; goes to standard error when leave is not 0
};

CommandLine parseCommandLine(int argc, char **argv);

// "aa:bb:cc:dd:ee:ff" in either case; nothing for any other text.
std::optional<Mac> parseMac(const std::string &text);
std::string formatMac(const std::uint8_t *mac);

} // namespace idpfwd
