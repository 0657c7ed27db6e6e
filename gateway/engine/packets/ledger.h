// What one reader of packets has seen and counted since it last told the tables: most packets are
// of devices that are known, and need no look into the tables, which other readers share.
#pragma once

#include "engine/packets/flow_table.h"
#include "engine/packets/packet.h"
#include "engine/tables.h"

#include <array>
#include <cstdint>
#include <mutex>
#include <vector>

namespace idpfwd {

class Ledger final : public FlowTable::Counter {
  public:
    // The lock is taken for every use of the tables; null when nobody else uses them.
    explicit Ledger(Tables &tables, std::mutex *lock = nullptr);

    // Notes that a device is there, with what speaks for it (of Evidence) and the packet, if it is
    // the one that sent it. The device's stay, 0 when the tables have no room for it.
    std::uint64_t see(const Mac &mac, unsigned evidence, const Packet *sent, const Moment &now);

    // Kept until the next flush. What was held for a device that has been forgotten since counts
    // as forgotten.
    void count(const Holding &holding, const Application &application) override;

    // Counts a frame whose header claims so many bytes more than any frame can have.
    void addCapped(std::uint64_t bytes);

    // Tells the tables everything, as of this moment.
    void flush(const Moment &now);

  private:
    // A device of the tables.
    struct Known {
        std::uint64_t mac = 0; // 0 for a free place
        std::uint64_t stay = 0;
        unsigned evidence = 0;
        bool touched = false; // seen since the last flush
        Packet::Address ipv4{}, ipv6{};
    };
    struct Count {
        Holding holding;
        Application application;
    };
    static constexpr std::size_t kPlaces = 512;
    static constexpr std::size_t kMostCounts = 1024;

    [[nodiscard]] std::unique_lock<std::mutex> lockTables() const;
    static bool isNews(const Known &known, const Packet &packet);
    void touch(Known &known);
    void lookUp(Known &known, const Mac &mac, unsigned evidence, const Packet *sent);
    void apply(const Count &count);

    Tables &tables_;
    std::mutex *lock_;
    Moment now_;
    std::vector<Known> known_ = std::vector<Known>(kPlaces);
    std::vector<std::size_t> touched_; // their places
    std::vector<Count> counts_;
    std::array<std::uint16_t, 1024> places_{}; // of counts, from 1; 0 for none
    std::uint64_t departures_ = 0;             // of devices, as far as they are known here
};

} // namespace idpfwd
