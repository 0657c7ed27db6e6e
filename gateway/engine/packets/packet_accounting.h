// Turns frames into the engine's tables: who is there, and what each device's applications have
// sent and received.
#pragma once

#include "engine/packets/flow_table.h"
#include "engine/packets/ledger.h"
#include "engine/packets/ndpi_classifier.h"
#include "engine/packets/packet.h"
#include "engine/tables.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <mutex>
#include <optional>

namespace idpfwd {

// No frame is longer than what a capture holds of one; offload merges at most so much.
constexpr std::uint32_t kLongestFrame = 262'144;

class PacketAccounting {
  public:
    // The router's own address is no client's; without one every address is a client's. The budget
    // is the flow table's; the lock guards the tables when others use them too.
    PacketAccounting(Tables &tables, Classifier &classifier, std::optional<Mac> gateway,
                     std::size_t budget = FlowTable::kDefaultBudget, std::mutex *lock = nullptr);

    // One frame: what was captured of it, and its length on the wire. A frame that a client sends
    // counts up for it, one that it is sent counts down; one between two clients does both. What
    // is no IP is unknown traffic. The tables show it after the next flush.
    void add(Packet::Bytes captured, std::uint32_t length, const Moment &now);

    // Tells the tables what was counted since the last time.
    void flush() { ledger_.flush(now_); }

    // Gives up what was held for too long, releases idle flows, and flushes.
    void advance(const Moment &now);

    // Counts everything that is still held, and flushes.
    void finish();

    // Whether a router's address was given that none of these many frames had.
    [[nodiscard]] bool missesGateway(std::uint64_t frames) const {
        return knowsGateway() && !gatewaySeen_ && frames_ >= frames;
    }

    // The router's address when it may have changed. It keeps those that it had before: who has not
    // noticed goes on sending there.
    void setGateway(const std::optional<Mac> &gateway);

    [[nodiscard]] const FlowTable &flows() const { return flows_; }

  private:
    struct Question {
        std::array<std::uint8_t, 4> address{};
        std::uint64_t asked = 0; // in a moment's milliseconds
    };

    [[nodiscard]] bool knowsGateway() const { return gateways_[0] != 0; }
    [[nodiscard]] bool isGateway(const Mac &mac) const {
        const std::uint64_t number = macNumber(mac);
        return number != 0 && std::ranges::find(gateways_, number) != gateways_.end();
    }
    [[nodiscard]] bool isClient(const Mac &mac) const { return isDevice(mac) && !isGateway(mac); }
    [[nodiscard]] bool hasAnsweredArp(const Packet &packet);
    void noteLease(const Packet &packet);
    std::uint64_t seeSender(const Packet &packet, bool answered);
    std::uint64_t seeReceiver(const Packet &packet);

    std::array<std::uint64_t, 4> gateways_{}; // the numbers of its addresses, the present one first
    bool gatewaySeen_ = false;
    std::uint64_t frames_ = 0;
    Moment now_; // what is counted is stamped with
    std::array<Question, 64> questions_;
    std::size_t nextQuestion_ = 0;
    Ledger ledger_;
    FlowTable flows_;
};

} // namespace idpfwd
