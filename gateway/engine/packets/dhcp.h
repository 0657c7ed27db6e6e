// What a device says of itself when it asks for an address.
#pragma once

#include "engine/packets/packet.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace idpfwd {

struct DhcpFacts {
    Mac client{};
    std::string hostName;                 // option 12, printable characters only
    std::string vendorClass;              // option 60, likewise
    std::vector<std::uint8_t> parameters; // option 55, in the device's order: a fingerprint
};

// Reads a client's message, the payload of a datagram to port 67. Whatever is damaged or missing
// stays empty; nothing when it is no such message.
[[nodiscard]] std::optional<DhcpFacts> readDhcpRequest(Packet::Bytes payload);

// The device that a server's message, the payload of a datagram from port 67, gives a lease to;
// nothing when it is no such message.
[[nodiscard]] std::optional<Mac> readDhcpLease(Packet::Bytes payload);

} // namespace idpfwd
