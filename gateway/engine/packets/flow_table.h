// The conversations of the LAN. The traffic of a flow is held until its application is settled, but
// not for long; then it is counted once, and what follows is counted straight away. What has been
// counted never moves. A flow that did not show its application in time counts under the best
// guess, and under its application from where that shows.
#pragma once

#include "engine/packets/flow_keys.h"
#include "engine/packets/ndpi_classifier.h"
#include "engine/packets/packet.h"

#include <array>
#include <cstdint>
#include <list>
#include <memory>
#include <vector>

namespace idpfwd {

// The traffic of one device in one flow.
struct Holding {
    Mac mac{};
    std::uint64_t stay = 0; // of the device in the tables; 0 when they had no room for it
    Traffic traffic;
};

class FlowTable {
  public:
    static constexpr std::size_t kMaxHoldings = 8;
    static constexpr std::uint64_t kMaxHeld = 15'000;
    static constexpr std::uint64_t kMaxIdleWatched = 600'000;
    static constexpr std::uint64_t kMaxIdleStream = 1'800'000;
    static constexpr std::uint64_t kMaxIdleOther = 120'000;
    static constexpr std::size_t kDefaultBudget = std::size_t{32} << 20;

    // Counts what a device has sent and received under an application. A stay that has ended since
    // is told by its number.
    class Counter {
      public:
        virtual ~Counter() = default;
        virtual void count(const Holding &holding, const Application &application) = 0;
    };

    // The budget is in bytes, for everything that is remembered of flows. What does not fit goes:
    // when those that are still looked at take more than half of it, the one that is watched and
    // was idle for longest is settled, else the one that was held for longest; when they don't, the
    // settled flow that was idle for longest is released.
    FlowTable(Classifier &classifier, Counter &counter, std::size_t budget = kDefaultBudget);

    // One IP packet, with the traffic that it is for each of the devices it concerns.
    void add(const Packet &packet, std::span<const Holding> holdings, const Moment &now);

    // Counts the flows that were held for too long, releases the settled ones that have been idle
    // for too long.
    void expire(std::uint64_t milliseconds);

    // Gives up all flows: no more packets will come.
    void finish();

    [[nodiscard]] std::size_t size() const { return size_; }

    // What is remembered now, in bytes.
    [[nodiscard]] std::size_t memory() const;

  private:
    // Held, then watched: counted, but still looked at. Then settled.
    enum Age { kHeld, kWatched, kStream, kOther, kAges };

    // What is needed of a flow only until it is settled.
    struct Held {
        std::uint64_t first = 0;
        unsigned inspected = 0;
        std::size_t bytes = 0; // all of this, as it was counted last
        Classifier::FlowState state;
        std::vector<Holding> holdings; // none when it is watched
    };

    struct Flow {
        FlowKey key;
        Age age = kHeld;
        bool closed = false;
        Application application; // when it is not held any more
        std::uint64_t last = 0;
        std::unique_ptr<Held> held;
        Flow *next = nullptr; // in its bucket
        std::list<Flow>::iterator self;
    };
    using Flows = std::list<Flow>;

    Flow *find(const FlowKey &key) const;
    Flow &findOrAdd(const FlowKey &key, const Packet &packet, std::uint64_t now);
    void hold(Held &held, const Holding &holding);
    void inspect(Flow &flow, const Packet &packet, std::uint64_t now);
    void countHoldings(Flow &flow, const Application &application);
    void watch(Flow &flow);
    void settle(Flow &flow, const Application &application);
    void giveUp(Flow &flow);
    void release(Flow &flow);
    void countHeld(Held &held);
    void keepToBudget();
    bool releaseLongestIdle();

    Classifier &classifier_;
    Counter &counter_;
    std::size_t budget_;
    FragmentPorts fragments_;
    FlowHash hash_;
    // Held flows are in the order in which they came. Of the others the one that has been idle
    // longest is at the front, give or take the time that a flow was held or watched.
    std::array<Flows, kAges> ages_;
    std::vector<Flow *> buckets_;
    std::size_t size_ = 0;
    std::size_t heldBytes_ = 0;
};

} // namespace idpfwd
