#include "engine/packets/flow_keys.h"

#include "engine/mac_index.h"

#include <bit>
#include <random>
#include <utility>

namespace idpfwd {
namespace {

FlowKey::End endOf(const Packet::Address &address, std::uint16_t port) {
    return {std::bit_cast<std::array<std::uint64_t, 2>>(address), port};
}

} // namespace

FlowHash::FlowHash() {
    std::random_device random;
    for (std::uint64_t &number : secret_)
        number = std::uint64_t{random()} << 32 | random();
}

// A sum of products with numbers that nobody knows: whoever has chosen two keys, they hardly ever
// have the same. Spread, because keys in a row have sums in a row.
std::uint64_t FlowHash::operator()(const FlowKey &key) const {
    std::uint64_t sum = secret_[kWords];
    std::size_t next = 0;
    const auto mix = [&](std::uint32_t word) { sum += secret_[next++] * word; };
    mix(key.vlan);
    mix(std::uint32_t{key.version} << 8 | key.protocol);
    mix(std::uint32_t{key.ends[0].port} << 16 | key.ends[1].port);
    for (const FlowKey::End &end : key.ends)
        for (const std::uint64_t half : end.address) {
            mix(static_cast<std::uint32_t>(half));
            mix(static_cast<std::uint32_t>(half >> 32));
        }
    return spread(sum);
}

FlowKey keyOf(const Packet &packet) {
    FlowKey key{packet.vlan,
                packet.version,
                packet.protocol,
                {endOf(packet.sourceAddress, packet.sourcePort),
                 endOf(packet.destinationAddress, packet.destinationPort)}};
    if (key.ends[1] < key.ends[0])
        std::swap(key.ends[0], key.ends[1]);
    return key;
}

FlowKey FragmentPorts::keyOf(const Packet &packet, const FlowKey &own) {
    Piece piece{own, packet.fragmentId};
    piece.ends.ends = {endOf(packet.sourceAddress, 0), endOf(packet.destinationAddress, 0)};
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
