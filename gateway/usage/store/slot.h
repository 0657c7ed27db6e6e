// The packed form of one period's traffic, and of the counters that it was taken from.
#pragma once

#include "usage/sampling/growth.h"
#include "usage/store/packing.h"

#include <optional>

namespace usage {

Packed packTraffic(const Traffic &traffic);

// Nothing for bytes that packTraffic did not write.
std::optional<Traffic> unpackTraffic(PackedView packed);

// Calls visit(Pair, Bytes) for every entry in ascending order, without building the table. False,
// perhaps after some calls, for bytes that packTraffic did not write.
template <typename Visit>
bool visitTraffic(PackedView packed, Visit &&visit);

Packed packBaseline(const Baseline &baseline);
std::optional<Baseline> unpackBaseline(PackedView packed);

inline constexpr std::uint8_t kTrafficVersion = 1;

// Ids ascend: the first may be any, each further one is larger than the one before.
class AscendingIds {
  public:
    std::uint32_t next(Unpacker &from) {
        const std::uint64_t step = from.number();
        const std::uint64_t id = last_ + step;
        if ((step == 0 && !first_) || step > UINT32_MAX || id > UINT32_MAX)
            from.refuse();
        first_ = false;
        last_ = id;
        return from.good() ? static_cast<std::uint32_t>(id) : 0;
    }

  private:
    std::uint64_t last_ = 0;
    bool first_ = true;
};

template <typename Visit>
bool visitTraffic(PackedView packed, Visit &&visit) {
    Unpacker from(packed);
    if (from.byte() != kTrafficVersion)
        return false;
    AscendingIds devices;
    for (std::uint64_t left = from.number(); left > 0 && from.good(); --left) {
        const std::uint32_t device = devices.next(from);
        AscendingIds applications;
        for (std::uint64_t entries = from.number(); entries > 0 && from.good(); --entries) {
            const Pair pair{device, applications.next(from)};
            Bytes bytes;
            bytes.down = from.number();
            bytes.up = from.number();
            if (from.good())
                visit(pair, bytes);
        }
    }
    return from.good() && from.atEnd();
}

} // namespace usage
