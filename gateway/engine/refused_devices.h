// The devices for which the user table had no room: what is known of each, so that it is counted
// once, gets its place when it has earned one, and can be named. Of a size that no flood changes.
#pragma once

#include "engine/mac_index.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace idpfwd {

struct RefusedDevice {
    Mac mac{};
    std::uint8_t evidence = 0; // see Evidence
    std::uint64_t seen = 0;    // last, in a moment's milliseconds
    std::uint64_t packets = 0; // that were counted as overflow
    std::uint64_t bytes = 0;
};

class RefusedDevices {
  public:
    // Notes a sight of a device; newcomer says whether it was not known here. The device that was
    // not seen for longest makes room. Valid until the next call.
    RefusedDevice &see(const Mac &mac, std::uint64_t milliseconds, bool &newcomer);

    // Null when it is not known here. Valid until the next call.
    RefusedDevice *find(const Mac &mac);

    void erase(const Mac &mac);
    void clear();

    // Drops those that were last seen before then.
    void forgetBefore(std::uint64_t milliseconds);

    // At most so many, those first that were seen last.
    [[nodiscard]] std::vector<RefusedDevice> latest(std::size_t most) const;

  private:
    static constexpr std::size_t kWays = 4;
    static constexpr std::size_t kSets = 4096;

    [[nodiscard]] std::size_t firstOfSet(const Mac &mac) const;

    // Empty until there is one; a free place has the address 0, which is no device's.
    std::vector<RefusedDevice> places_;
    std::size_t known_ = 0;
};

} // namespace idpfwd
