// What one captured Ethernet frame says about who talks to whom. Nothing here reads beyond the
// bytes that were captured, whatever lengths the headers claim.
#pragma once

#include "engine/tables.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>

namespace idpfwd {

constexpr std::uint8_t kProtocolTcp = 6;
constexpr std::uint8_t kProtocolUdp = 17;
constexpr std::uint8_t kProtocolIpv4 = 4; // of a packet that carries another one
constexpr std::uint8_t kProtocolIpv6 = 41;

// The smallest piece of a frame that names its sender and its receiver.
constexpr std::size_t kEthernetHeader = 14;

struct Packet {
    using Bytes = std::span<const std::uint8_t>;

    // An IPv4 address has its four octets first, the rest is zero.
    using Address = std::array<std::uint8_t, 16>;

    Mac source{};
    Mac destination{};
    std::uint32_t vlan = 0;      // the identifiers of all tags, the outermost in the highest bits,
                                 // and of the PPPoE session
    std::uint16_t etherType = 0; // of the network bytes; below 0x600 it is a length
    Bytes network;               // what follows the Ethernet header, tags, PPPoE and MPLS labels

    // 4 or 6 when the addresses below are there, else 0.
    std::uint8_t version = 0;
    Address sourceAddress{};
    Address destinationAddress{};
    std::uint8_t protocol = 0; // behind IPv6's extension headers
    bool fragment = false;
    bool laterFragment = false; // one that begins behind the ports
    std::uint32_t fragmentId = 0;
    bool inTunnel = false; // all of this is of an IP packet inside another

    // Set for TCP and UDP whose ports were captured.
    bool hasPorts = false;
    std::uint16_t sourcePort = 0;
    std::uint16_t destinationPort = 0;
    std::uint8_t tcpFlags = 0;
    Bytes ip;      // from the IP header on, without Ethernet's padding
    Bytes payload; // what follows the TCP or UDP header
};

// Reads a frame. False when not even the two hardware addresses are there; a frame that is no IP,
// or is damaged behind the Ethernet header, is a packet without a version.
[[nodiscard]] bool parseFrame(Packet::Bytes frame, Packet &packet);

// Addresses of groups (and of broadcast), and the all-zero one, belong to no device.
[[nodiscard]] inline bool isDevice(const Mac &mac) {
    return (mac[0] & 1) == 0 && macNumber(mac) != 0;
}

struct ArpMessage {
    bool isReply = false;
    std::array<std::uint8_t, 4> sender{}; // IPv4 addresses
    std::array<std::uint8_t, 4> target{};
};

// An ARP message about IPv4 that names the one that sent it as its sender; nothing for any other.
[[nodiscard]] std::optional<ArpMessage> readArp(const Packet &packet);

} // namespace idpfwd
