// One reader of an interface: its ring, and the conversations that it finds there.
#pragma once

#include "engine/capture/ring.h"
#include "engine/packets/packet_accounting.h"

#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace idpfwd {

class Reader {
  public:
    // The lock guards the tables when there are several readers. Null where nDPI cannot be used.
    static std::unique_ptr<Reader> create(Tables &tables, std::size_t budget, std::mutex *lock);

    // From now on packets come from this ring. Without the router's own address it is the one that
    // the interface has at the time.
    void start(std::unique_ptr<Ring> ring, const std::string &interface,
               const std::optional<Mac> &gateway);

    // Null before the first start, and after an interface has gone.
    [[nodiscard]] Ring *ring() const { return ring_.get(); }
    void closeRing() { ring_.reset(); }

    // Reads what is there, up to so many packets that others have to wait for, and gives up what
    // was held for too long. False when the interface is gone.
    bool work();

    // Whether a router's address was given that none of these many frames had.
    [[nodiscard]] bool missesGateway(std::uint64_t frames) const {
        return accounting_.missesGateway(frames);
    }

    // Counts everything that is still held.
    void finish() { accounting_.finish(); }

  private:
    Reader(Tables &tables, std::unique_ptr<Classifier> classifier, std::size_t budget,
           std::mutex *lock)
        : classifier_(std::move(classifier)),
          accounting_(tables, *classifier_, std::nullopt, budget, lock) {}
    void followAddress();

    std::unique_ptr<Classifier> classifier_;
    PacketAccounting accounting_;
    std::unique_ptr<Ring> ring_;
    std::string followed_; // the interface whose address is the router's; empty for none
    std::uint64_t looked_ = 0;
    Moment now_;
};

// The present moment.
Moment presentMoment();

} // namespace idpfwd
