#include "engine/packets/flow_table.h"

#include <algorithm>
#include <tuple>

namespace idpfwd {
namespace {

// Packets in pieces whose ports are remembered, the oldest is forgotten first.
constexpr std::size_t kMaxFragments = 1024;

constexpr std::uint8_t kFin = 1;
constexpr std::uint8_t kSyn = 2;
constexpr std::uint8_t kRst = 4;
constexpr std::uint8_t kAck = 16;

constexpr std::array<std::uint64_t, 3> kMaxIdle = {
    FlowTable::kMaxIdleHeld, FlowTable::kMaxIdleStream, FlowTable::kMaxIdleOther};

void addTo(Traffic &sum, const Traffic &more) {
    sum.down_bytes += more.down_bytes;
    sum.up_bytes += more.up_bytes;
    sum.down_packets += more.down_packets;
    sum.up_packets += more.up_packets;
}

bool opensAgain(const Packet &packet) {
    return packet.protocol == kProtocolTcp && (packet.tcpFlags & (kSyn | kAck)) == kSyn;
}

bool closes(const Packet &packet) {
    return packet.protocol == kProtocolTcp && (packet.tcpFlags & (kFin | kRst)) != 0;
}

} // namespace

std::size_t FlowKeyHash::operator()(const FlowKey &key) const {
    std::uint64_t hash = 0xcbf29ce484222325u;
    const auto mix = [&hash](std::uint64_t value) {
        hash = (hash ^ value) * 0x9e3779b97f4a7c15u;
        hash ^= hash >> 29;
    };
    for (const Packet::Address &address : key.addresses)
        for (std::size_t part = 0; part < address.size(); part += 8) {
            std::uint64_t value = 0;
            for (std::size_t octet = part; octet < part + 8; octet++)
                value = value << 8 | address[octet];
            mix(value);
        }
    mix(std::uint64_t{key.vlan} << 32 | std::uint32_t{key.ports[0]} << 16 | key.ports[1]);
    mix(static_cast<std::uint64_t>(key.version) << 8 | key.protocol);
    return hash;
}

FlowTable::FlowTable(Classifier &classifier, Counter &counter)
    : classifier_(classifier), counter_(counter) {}

FlowKey FlowTable::keyOf(const Packet &packet) {
    FlowKey key{packet.vlan, packet.version, packet.protocol, {}, {}};
    key.addresses = {packet.sourceAddress, packet.destinationAddress};
    key.ports = {packet.sourcePort, packet.destinationPort};
    const auto source = std::tie(packet.sourceAddress, packet.sourcePort);
    if (std::tie(packet.destinationAddress, packet.destinationPort) < source) {
        std::swap(key.addresses[0], key.addresses[1]);
        std::swap(key.ports[0], key.ports[1]);
    }
    if (!packet.fragment)
        return key;

    FragmentKey fragment{key, packet.fragmentId};
    fragment.ends.addresses = {packet.sourceAddress, packet.destinationAddress};
    fragment.ends.ports = {};
    // IPv6 names the protocol in each piece only as the first header behind it.
    fragment.ends.protocol = packet.version == 4 ? packet.protocol : 0;
    if (packet.laterFragment) {
        const auto first = fragments_.find(fragment);
        return first == fragments_.end() ? key : first->second;
    }
    if (fragments_.insert_or_assign(fragment, key).second)
        fragmentOrder_.push_back(fragment);
    if (fragmentOrder_.size() > kMaxFragments) {
        fragments_.erase(fragmentOrder_.front());
        fragmentOrder_.pop_front();
    }
    return key;
}

FlowTable::Flows::iterator FlowTable::findOrAdd(const FlowKey &key, const Packet &packet,
                                                std::uint64_t now) {
    if (const auto known = flows_.find(key); known != flows_.end()) {
        const auto flow = known->second;
        if (!flow->closed || !opensAgain(packet))
            return flow;
        release(flow); // the same ports serve another connection
    }
    if (flows_.size() >= kMaxFlows)
        makeRoom();
    Flow flow;
    flow.key = key;
    flow.first = now;
    flow.last = now;
    flow.state = classifier_.newFlow();
    const auto added = ages_[kHeld].insert(ages_[kHeld].end(), std::move(flow));
    flows_.emplace(key, added);
    return added;
}

void FlowTable::hold(Flow &flow, const Holding &holding) {
    const auto same = std::find_if(flow.held.begin(), flow.held.end(),
                                   [&](const Holding &held) { return held.mac == holding.mac; });
    if (same == flow.held.end()) {
        flow.held.push_back(holding);
        return;
    }
    // A device that was forgotten in between starts at 0. One for which there was no room until
    // now brings what it had along.
    if (same->stay != 0 && same->stay != holding.stay)
        same->traffic = {};
    same->stay = holding.stay;
    addTo(same->traffic, holding.traffic);
}

void FlowTable::inspect(Flows::iterator flow, const Packet &packet, std::uint64_t now) {
    if (!packet.laterFragment && flow->state) {
        flow->inspected++;
        if (const auto application = classifier_.inspect(*flow->state, packet.ip, now)) {
            settle(flow, *application);
            return;
        }
    }
    if (!flow->state || flow->inspected >= kMaxInspected || flow->held.size() >= kMaxHoldings ||
        now - flow->first > kMaxHeld)
        giveUp(flow);
}

void FlowTable::settle(Flows::iterator flow, const Application &application) {
    flow->state.reset();
    flow->application = application;
    for (const Holding &holding : flow->held)
        counter_.count(holding, application);
    std::vector<Holding>().swap(flow->held);
    const Age age = flow->key.protocol == kProtocolTcp ? kStream : kOther;
    ages_[age].splice(ages_[age].end(), ages_[flow->age], flow);
    flow->age = age;
}

void FlowTable::giveUp(Flows::iterator flow) {
    settle(flow, flow->state ? classifier_.giveUp(*flow->state) : Application{});
}

void FlowTable::release(Flows::iterator flow) {
    if (flow->age == kHeld)
        giveUp(flow);
    flows_.erase(flow->key);
    ages_[flow->age].erase(flow);
}

void FlowTable::makeRoom() {
    Flows *oldest = nullptr;
    for (Flows &flows : ages_)
        if (!flows.empty() && (oldest == nullptr || flows.front().last < oldest->front().last))
            oldest = &flows;
    if (oldest != nullptr)
        release(oldest->begin());
}

void FlowTable::add(const Packet &packet, std::span<const Holding> holdings, const Moment &now) {
    const auto flow = findOrAdd(keyOf(packet), packet, now.milliseconds);
    Flows &flows = ages_[flow->age];
    flows.splice(flows.end(), flows, flow);
    flow->last = now.milliseconds;
    flow->closed = flow->closed || closes(packet);
    for (const Holding &holding : holdings)
        if (flow->age == kHeld)
            hold(*flow, holding);
        else
            counter_.count(holding, flow->application);
    if (flow->age == kHeld)
        inspect(flow, packet, now.milliseconds);
}

void FlowTable::expire(std::uint64_t milliseconds) {
    for (std::size_t age = 0; age < kAges; age++)
        while (!ages_[age].empty() && milliseconds - ages_[age].front().last > kMaxIdle[age])
            if (age == kHeld)
                giveUp(ages_[age].begin());
            else
                release(ages_[age].begin());
}

void FlowTable::finish() {
    while (!ages_[kHeld].empty())
        giveUp(ages_[kHeld].begin());
}

} // namespace idpfwd
