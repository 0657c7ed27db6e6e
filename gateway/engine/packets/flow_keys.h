// What tells the conversations of the LAN apart.
#pragma once

#include "engine/packets/packet.h"

#include <array>
#include <compare>
#include <cstdint>
#include <deque>
#include <map>

namespace idpfwd {

// Both directions of a conversation have the same key: the smaller end first.
struct FlowKey {
    // An address as two numbers, which are compared faster than its octets, and a port.
    struct End {
        std::array<std::uint64_t, 2> address{};
        std::uint16_t port = 0;

        friend constexpr bool operator==(const End &a, const End &b) {
            return a.address[0] == b.address[0] && a.address[1] == b.address[1] && a.port == b.port;
        }
        friend auto operator<=>(const End &, const End &) = default;
    };

    std::uint32_t vlan = 0;
    std::uint8_t version = 0;
    std::uint8_t protocol = 0;
    std::array<End, 2> ends{};

    friend auto operator<=>(const FlowKey &, const FlowKey &) = default;
};

// Gives a key a number that any of its bits can choose a bucket with. Each has a secret of its own:
// who does not know it can make up no keys that share a bucket more often than by chance.
class FlowHash {
  public:
    FlowHash();
    std::uint64_t operator()(const FlowKey &key) const;

  private:
    static constexpr std::size_t kWords = 11; // of 32 bits
    std::array<std::uint64_t, kWords + 1> secret_;
};

// The key that the packet's own headers give: that of a later fragment has no ports.
FlowKey keyOf(const Packet &packet);

// The ports of packets that come in pieces. A fragment that doesn't carry its ports is in the flow
// of the first fragment of its packet, and in the portless flow of the two addresses when that one
// has not been seen.
class FragmentPorts {
  public:
    // Packets in pieces that are remembered, the oldest is forgotten first.
    static constexpr std::size_t kMost = 1024;

    // The key of the flow that a fragment belongs to; own is what its headers give.
    FlowKey keyOf(const Packet &packet, const FlowKey &own);

  private:
    struct Piece {
        FlowKey ends;
        std::uint32_t id = 0;
        friend auto operator<=>(const Piece &, const Piece &) = default;
    };

    std::map<Piece, FlowKey> keys_;
    std::deque<Piece> order_;
};

} // namespace idpfwd
