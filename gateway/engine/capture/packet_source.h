// The sources that read packets: live from an interface, or from a capture file.
#pragma once

#include "engine/packets/flow_table.h"
#include "engine/source.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace idpfwd {

// What an interface's ring takes without --ring: with the budget of the flows at its limit the
// engine stays below 64 MiB.
constexpr std::size_t kDefaultRing = std::size_t{8} << 20;

struct PacketOptions {
    std::string name;              // the interface, or the capture file
    std::optional<Mac> gatewayMac; // the router's own address on the LAN; the interface's own
                                   // without it
    std::uint32_t forgetSeconds = 600;
    bool fast = false; // captures: don't keep the packets' own pace
    std::string databases = "/tmp/trend";
    std::size_t memory = FlowTable::kDefaultBudget; // bytes for all that is remembered of flows
    std::size_t ring = kDefaultRing;                // interfaces: bytes, of all readers together
    unsigned readers = 1;                           // interfaces: at least 1
    std::uint32_t awaySeconds = 30; // how long an interface may be gone until the source fails
};

// Null with a one-line reason in error.
std::unique_ptr<Source> openInterface(const PacketOptions &options, std::string &error);
std::unique_ptr<Source> openCapture(const PacketOptions &options, std::string &error);

} // namespace idpfwd
