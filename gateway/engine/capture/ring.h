// The kernel's ring of an interface's packets, in blocks that packets of any size share.
#pragma once

#include "engine/packets/packet_names.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace idpfwd {

class Ring {
  public:
    // Starts to capture; size is in bytes. Null with a one-line reason in error.
    static std::unique_ptr<Ring> open(const std::string &interface, std::size_t size,
                                      std::string &error);

    // From now on each packet reaches one of these rings only: all packets of two addresses the
    // same one, whichever way they go; those that are no IP, or carry a tag, the first. What came
    // before is not read. False with the reason in error.
    static bool share(const std::vector<Ring *> &rings, std::string &error);

    // Readable when there are packets.
    [[nodiscard]] int descriptor() const { return pcap_get_selectable_fd(pcap_.get()); }

    // Hands over what is there, at most so many packets. How many; negative when the interface is
    // gone, with the reason in failure().
    int read(int most, pcap_handler handler, void *user);
    [[nodiscard]] std::string failure() const { return pcap_geterr(pcap_.get()); }

    // How many packets the kernel has dropped because the ring was full, since the ring was opened.
    // To be asked by one thread only.
    std::uint64_t drops();

  private:
    explicit Ring(Pcap pcap) : pcap_(std::move(pcap)) {}
    bool join(int &group, std::string &error) const;

    Pcap pcap_;
    std::uint64_t drops_ = 0;
    timeval sharedSince_{}; // packets before then may have reached other rings too; 0 when all of
                            // them have been read
    std::uint64_t shared_ = 0; // the same by the clock that is never set
};

// The hardware address of an interface; nothing when it has none.
std::optional<Mac> ownAddress(const std::string &interface);

} // namespace idpfwd
