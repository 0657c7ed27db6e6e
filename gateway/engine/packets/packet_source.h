// The sources that read packets: live from an interface, or from a capture file.
#pragma once

#include "engine/source.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace idpfwd {

struct PacketOptions {
    std::string name;              // the interface, or the capture file
    std::optional<Mac> gatewayMac; // the router's own address on the LAN; the interface's own
                                   // without it
    std::uint32_t forgetSeconds = 600;
    bool fast = false; // captures: don't keep the packets' own pace
    std::string databases = "/tmp/trend";
};

// Null with a one-line reason in error.
std::unique_ptr<Source> openInterface(const PacketOptions &options, std::string &error);
std::unique_ptr<Source> openCapture(const PacketOptions &options, std::string &error);

} // namespace idpfwd
