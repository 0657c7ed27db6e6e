#include "engine/packets/flow_keys.h"

#include "engine/mac_index.h"

#include <bit>
#include <cstring>
#include <tuple>
#include <utility>

namespace idpfwd {
namespace {

std::array<std::uint64_t, 2> halves(const Packet::Address &address) {
    return std::bit_cast<std::array<std::uint64_t, 2>>(address);
}

} // namespace

std::uint64_t hashOf(const FlowKey &key) {
    std::uint64_t hash =
        std::uint64_t{key.vlan} << 16 ^ std::uint64_t{key.version} << 8 ^ key.protocol;
    const auto mix = [&hash](std::uint64_t value) {
        hash = (hash ^ value) * 0x9e3779b97f4a7c15u;
        hash ^= hash >> 29;
    };
    for (const Packet::Address &address : key.addresses)
        for (const std::uint64_t half : halves(address))
            mix(half);
    mix(std::uint64_t{key.ports[0]} << 16 | key.ports[1]);
    return spread(hash);
}

FlowKey keyOf(const Packet &packet) {
    FlowKey key{packet.vlan, packet.version, packet.protocol, {}, {}};
    key.addresses = {packet.sourceAddress, packet.destinationAddress};
    key.ports = {packet.sourcePort, packet.destinationPort};
    const auto source = std::tie(packet.sourceAddress, packet.sourcePort);
    if (std::tie(packet.destinationAddress, packet.destinationPort) < source) {
        std::swap(key.addresses[0], key.addresses[1]);
        std::swap(key.ports[0], key.ports[1]);
    }
    return key;
}

FlowKey FragmentPorts::keyOf(const Packet &packet, const FlowKey &own) {
    Piece piece{own, packet.fragmentId};
    piece.ends.addresses = {packet.sourceAddress, packet.destinationAddress};
    piece.ends.ports = {};
    // IPv6 names the protocol in each piece only as the first header behind it.
    piece.ends.protocol = packet.version == 4 ? packet.protocol : 0;
    if (packet.laterFragment) {
        const auto first = keys_.find(piece);
        return first == keys_.end() ? own : first->second;
    }
    if (keys_.insert_or_assign(piece, own).second)
        order_.push_back(piece);
    if (order_.size() > kMost) {
        keys_.erase(order_.front());
        order_.pop_front();
    }
    return own;
}

} // namespace idpfwd
