// Turns frames into the engine's tables: who is there, and what each device's applications have
// sent and received.
#pragma once

#include "engine/packets/flow_table.h"
#include "engine/packets/ndpi_classifier.h"
#include "engine/packets/packet.h"
#include "engine/tables.h"

#include <cstdint>
#include <optional>

namespace idpfwd {

class PacketAccounting : private FlowTable::Counter {
  public:
    // The router's own address is no client's; without one every address is a client's.
    PacketAccounting(Tables &tables, Classifier &classifier, std::optional<Mac> gateway,
                     std::uint32_t forgetSeconds);

    // One frame: what was captured of it, and its length on the wire. A frame that a client sends
    // counts up for it, one that it is sent counts down; one between two clients does both. What
    // is no IP is unknown traffic.
    void add(Packet::Bytes captured, std::uint32_t length, const Moment &now);

    // Gives up idle flows, and forgets the clients that have neither sent nor been sent a frame.
    void advance(const Moment &now);

    // Counts everything that is still held, and shows it.
    void finish() {
        flows_.finish();
        tables_.showAll();
    }

    // Whether a router's address was given that none of these many frames had.
    [[nodiscard]] bool missesGateway(std::uint64_t frames) const {
        return gateway_ && !gatewaySeen_ && frames_ >= frames;
    }

    [[nodiscard]] std::size_t flows() const { return flows_.size(); }

  private:
    void count(const Holding &holding, const Application &application) override;
    [[nodiscard]] bool isClient(const Mac &mac) const;
    std::uint64_t see(const Mac &mac, const Packet &packet);

    Tables &tables_;
    std::optional<Mac> gateway_;
    bool gatewaySeen_ = false;
    std::uint64_t frames_ = 0;
    std::uint32_t forgetSeconds_;
    Moment now_; // what is counted is stamped with
    std::uint64_t lastSweep_ = 0;
    FlowTable flows_;
};

} // namespace idpfwd
