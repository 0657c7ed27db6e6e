#include "engine/packets/flow_table.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace idpfwd {
namespace {

constexpr std::uint8_t kFin = 1;
constexpr std::uint8_t kSyn = 2;
constexpr std::uint8_t kRst = 4;
constexpr std::uint8_t kAck = 16;

// What the allocator adds to each piece of memory that it hands out.
constexpr std::size_t kAllocation = 2 * sizeof(void *);

// One bucket for so many bytes of the budget: as many as there can be flows, about.
constexpr std::size_t kBytesPerBucket = 256;

bool opensAgain(const Packet &packet) {
    return packet.protocol == kProtocolTcp && (packet.tcpFlags & (kSyn | kAck)) == kSyn;
}

bool closes(const Packet &packet) {
    return packet.protocol == kProtocolTcp && (packet.tcpFlags & (kFin | kRst)) != 0;
}

} // namespace

FlowTable::FlowTable(Classifier &classifier, Counter &counter, std::size_t budget)
    : classifier_(classifier), counter_(counter), budget_(budget),
      buckets_(std::bit_ceil(std::max<std::size_t>(budget / kBytesPerBucket, 1024))) {}

std::size_t FlowTable::memory() const {
    constexpr std::size_t kFlow = sizeof(Flow) + 2 * sizeof(void *) + kAllocation;
    return size_ * kFlow + heldBytes_ + buckets_.size() * sizeof(void *);
}

FlowTable::Flow *FlowTable::find(const FlowKey &key) const {
    Flow *flow = buckets_[hash_(key) & (buckets_.size() - 1)];
    while (flow != nullptr && flow->key != key)
        flow = flow->next;
    return flow;
}

FlowTable::Flow &FlowTable::findOrAdd(const FlowKey &key, const Packet &packet, std::uint64_t now) {
    Flow *known = find(key);
    if (known != nullptr && (!known->closed || !opensAgain(packet)))
        return *known;
    if (known != nullptr)
        release(*known); // the same ports serve another connection
    Flows &held = ages_[kHeld];
    Flow &flow = held.emplace_back();
    flow.self = std::prev(held.end());
    flow.key = key;
    Flow *&bucket = buckets_[hash_(key) & (buckets_.size() - 1)];
    flow.next = std::exchange(bucket, &flow);
    flow.held = std::make_unique<Held>();
    flow.held->first = now;
    flow.held->state = Classifier::newFlow();
    ++size_;
    return flow;
}

void FlowTable::hold(Held &held, const Holding &holding) {
    const auto same = std::ranges::find(held.holdings, holding.mac, &Holding::mac);
    if (same == held.holdings.end()) {
        held.holdings.push_back(holding);
        return;
    }
    // A device that was forgotten in between starts at 0. One for which there was no room until
    // now brings what it had along.
    if (same->stay != 0 && same->stay != holding.stay) {
        counter_.count(*same, {});
        same->traffic = {};
    }
    same->stay = holding.stay;
    same->traffic += holding.traffic;
}

// What a held flow takes beside its place in the table.
void FlowTable::countHeld(Held &held) {
    const std::size_t bytes = sizeof(Held) + held.state.bytes +
                              held.holdings.capacity() * sizeof(Holding) + 3 * kAllocation;
    heldBytes_ += bytes - held.bytes;
    held.bytes = bytes;
}

void FlowTable::inspect(Flow &flow, const Packet &packet, std::uint64_t now) {
    Held &held = *flow.held;
    if (!packet.laterFragment && held.state.flow) {
        held.inspected++;
        if (const auto application = classifier_.inspect(held.state, packet, now)) {
            settle(flow, *application);
            return;
        }
    }
    countHeld(held);
    if (!held.state.flow || held.inspected >= Classifier::kMostPackets ||
        held.holdings.size() >= kMaxHoldings)
        giveUp(flow);
}

void FlowTable::countHoldings(Flow &flow, const Application &application) {
    flow.application = application;
    for (const Holding &holding : std::exchange(flow.held->holdings, {}))
        counter_.count(holding, application);
}

void FlowTable::watch(Flow &flow) {
    if (!flow.held->state.flow) {
        giveUp(flow);
        return;
    }
    countHoldings(flow, classifier_.guess(flow.held->state));
    countHeld(*flow.held);
    ages_[kWatched].splice(ages_[kWatched].end(), ages_[kHeld], flow.self);
    flow.age = kWatched;
}

void FlowTable::settle(Flow &flow, const Application &application) {
    countHoldings(flow, application);
    heldBytes_ -= flow.held->bytes;
    flow.held.reset();
    const Age age = flow.key.protocol == kProtocolTcp ? kStream : kOther;
    ages_[age].splice(ages_[age].end(), ages_[flow.age], flow.self);
    flow.age = age;
}

void FlowTable::giveUp(Flow &flow) {
    Classifier::FlowState &state = flow.held->state;
    settle(flow, state.flow ? classifier_.giveUp(state) : Application{});
}

void FlowTable::release(Flow &flow) {
    if (flow.held)
        giveUp(flow);
    Flow **link = &buckets_[hash_(flow.key) & (buckets_.size() - 1)];
    while (*link != &flow)
        link = &(*link)->next;
    *link = flow.next;
    --size_;
    ages_[flow.age].erase(flow.self);
}

bool FlowTable::releaseLongestIdle() {
    Flows *oldest = nullptr;
    for (const Age age : {kStream, kOther}) {
        Flows &flows = ages_[age];
        if (!flows.empty() && (oldest == nullptr || flows.front().last < oldest->front().last))
            oldest = &flows;
    }
    if (oldest == nullptr)
        return false;
    release(oldest->front());
    return true;
}

void FlowTable::keepToBudget() {
    while (memory() > budget_) {
        const bool undecidedAreMost = heldBytes_ > budget_ / 2;
        if (!undecidedAreMost && releaseLongestIdle())
            continue;
        const Age first = ages_[kWatched].empty() ? kHeld : kWatched;
        if (ages_[first].empty())
            return;
        giveUp(ages_[first].front());
    }
}

void FlowTable::add(const Packet &packet, std::span<const Holding> holdings, const Moment &now) {
    const FlowKey own = keyOf(packet);
    const FlowKey key = packet.fragment ? fragments_.keyOf(packet, own) : own;
    Flow &flow = findOrAdd(key, packet, now.milliseconds);
    flow.last = now.milliseconds;
    flow.closed = flow.closed || closes(packet);
    const bool undecided = flow.held != nullptr, held = flow.age == kHeld;
    if (held)
        for (const Holding &holding : holdings)
            hold(*flow.held, holding);
    if (undecided)
        inspect(flow, packet, now.milliseconds);
    if (!held) {
        Flows &flows = ages_[flow.age];
        flows.splice(flows.end(), flows, flow.self);
        for (const Holding &holding : holdings)
            counter_.count(holding, flow.application);
    }
    if (undecided)
        keepToBudget();
}

void FlowTable::expire(std::uint64_t milliseconds) {
    Flows &held = ages_[kHeld];
    while (!held.empty() && milliseconds - held.front().held->first > kMaxHeld)
        watch(held.front());
    const auto eachIdle = [&](Flows &flows, std::uint64_t most, auto end) {
        while (!flows.empty() && milliseconds - flows.front().last > most)
            (this->*end)(flows.front());
    };
    eachIdle(ages_[kWatched], kMaxIdleWatched, &FlowTable::giveUp);
    eachIdle(ages_[kStream], kMaxIdleStream, &FlowTable::release);
    eachIdle(ages_[kOther], kMaxIdleOther, &FlowTable::release);
}

void FlowTable::finish() {
    while (!ages_[kHeld].empty())
        giveUp(ages_[kHeld].front());
}

} // namespace idpfwd
