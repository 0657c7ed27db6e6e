// The words that everything here is said in: who, what, when, how much.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <limits>
#include <map>
#include <string>

namespace usage {

// Seconds since the epoch, UTC.
using Seconds = std::int64_t;

using Mac = std::array<std::uint8_t, 6>;

// Bytes in the two directions, as the device sees them. Sums stop at the largest value rather than
// begin anew.
struct Bytes {
    std::uint64_t down = 0;
    std::uint64_t up = 0;

    static std::uint64_t sum(std::uint64_t a, std::uint64_t b) {
        return a > std::numeric_limits<std::uint64_t>::max() - b
                   ? std::numeric_limits<std::uint64_t>::max()
                   : a + b;
    }
    Bytes &operator+=(const Bytes &more) {
        down = sum(down, more.down);
        up = sum(up, more.up);
        return *this;
    }
    [[nodiscard]] std::uint64_t total() const { return sum(down, up); }
    [[nodiscard]] bool any() const { return down != 0 || up != 0; }
    auto operator<=>(const Bytes &) const = default;
};

// Numbers that this store gave to a device and to an application.
using DeviceId = std::uint32_t;
using ApplicationId = std::uint32_t;

// Under both: bytes whose device or application is no longer told apart.
inline constexpr std::uint32_t kOthers = 0;

struct Pair {
    DeviceId device = kOthers;
    ApplicationId application = kOthers;
    auto operator<=>(const Pair &) const = default;
};

// What passed in one period.
using Traffic = std::map<Pair, Bytes>;

// A span of time, the end excluded.
struct Span {
    Seconds from = 0;
    Seconds to = 0;
    auto operator<=>(const Span &) const = default;
};

} // namespace usage
