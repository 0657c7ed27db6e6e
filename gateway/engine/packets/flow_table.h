// The conversations of the LAN. The traffic of a flow is held until its application is settled or
// given up, then counted once, and from then on counted straight away under the same application:
// what has been counted never moves.
#pragma once

#include "engine/packets/ndpi_classifier.h"
#include "engine/packets/packet.h"

#include <array>
#include <cstdint>
#include <deque>
#include <list>
#include <map>
#include <unordered_map>
#include <vector>

namespace idpfwd {

// The traffic of one device in one flow.
struct Holding {
    Mac mac{};
    std::uint64_t stay = 0; // of the device in the tables; 0 when they had no room for it
    Traffic traffic;
};

// Both directions of a conversation have the same key: the smaller end first. A fragment that
// doesn't carry its ports is in the flow of the first fragment of its packet, and in the portless
// flow of the two addresses when that one has not been seen.
struct FlowKey {
    std::uint32_t vlan = 0;
    std::uint8_t version = 0;
    std::uint8_t protocol = 0;
    std::array<Packet::Address, 2> addresses{};
    std::array<std::uint16_t, 2> ports{};

    friend auto operator<=>(const FlowKey &, const FlowKey &) = default;
};

struct FlowKeyHash {
    std::size_t operator()(const FlowKey &key) const;
};

class FlowTable {
  public:
    static constexpr std::size_t kMaxFlows = 16384;
    static constexpr std::size_t kMaxHoldings = 8;
    static constexpr unsigned kMaxInspected = 40;
    static constexpr std::uint64_t kMaxIdleHeld = 5'000;
    static constexpr std::uint64_t kMaxHeld = 15'000;
    static constexpr std::uint64_t kMaxIdleStream = 1'800'000;
    static constexpr std::uint64_t kMaxIdleOther = 120'000;

    // Counts what a device has sent and received under an application.
    class Counter {
      public:
        virtual ~Counter() = default;
        virtual void count(const Holding &holding, const Application &application) = 0;
    };

    FlowTable(Classifier &classifier, Counter &counter);

    // One IP packet, with the traffic that it is for each of the devices it concerns.
    void add(const Packet &packet, std::span<const Holding> holdings, const Moment &now);

    // Gives up and releases the flows that have been idle for too long.
    void expire(std::uint64_t milliseconds);

    // Gives up all flows: no more packets will come.
    void finish();

    [[nodiscard]] std::size_t size() const { return flows_.size(); }

  private:
    enum Age { kHeld, kStream, kOther, kAges };

    struct Flow {
        FlowKey key;
        Age age = kHeld;
        bool closed = false;
        unsigned inspected = 0;
        std::uint64_t first = 0;
        std::uint64_t last = 0;
        Classifier::FlowState state; // while held
        std::vector<Holding> held;
        Application application; // from then on
    };
    using Flows = std::list<Flow>;

    struct FragmentKey {
        FlowKey ends;
        std::uint32_t id = 0;
        friend auto operator<=>(const FragmentKey &, const FragmentKey &) = default;
    };

    FlowKey keyOf(const Packet &packet);
    Flows::iterator findOrAdd(const FlowKey &key, const Packet &packet, std::uint64_t now);
    void hold(Flow &flow, const Holding &holding);
    void inspect(Flows::iterator flow, const Packet &packet, std::uint64_t now);
    void settle(Flows::iterator flow, const Application &application);
    void giveUp(Flows::iterator flow);
    void release(Flows::iterator flow);
    void makeRoom();

    Classifier &classifier_;
    Counter &counter_;
    // Each list has a flow that has been idle longest at its front, give or take the few seconds
    // that a flow was held before it was given up.
    std::array<Flows, kAges> ages_;
    std::unordered_map<FlowKey, Flows::iterator, FlowKeyHash> flows_;
    std::map<FragmentKey, FlowKey> fragments_;
    std::deque<FragmentKey> fragmentOrder_;
};

} // namespace idpfwd
