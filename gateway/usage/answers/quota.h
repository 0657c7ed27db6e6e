// Limits that an owner sets, and where they stand.
#pragma once

#include "usage/clock.h"

#include <optional>

namespace usage {

enum class QuotaPeriod { kDay, kMonth };

struct Quota {
    std::int64_t number = 0;   // by which it is removed
    std::optional<Mac> device; // nothing: all devices together
    std::uint64_t total = 0;   // bytes of both directions
    QuotaPeriod per = QuotaPeriod::kMonth;
    int startsOn = 1; // day on which a billing month begins; in a shorter month its last day
    auto operator<=>(const Quota &) const = default;
};

// The day or the billing month that the time lies in.
Span quotaPeriodAt(const Quota &quota, Seconds now);

// What will have been used at the end of the period if it goes on like this; what was used so far
// while nothing of the period has passed.
std::uint64_t estimate(std::uint64_t used, const Span &period, Seconds now);

inline bool isPassed(const Quota &quota, std::uint64_t used) {
    return used > quota.total;
}

} // namespace usage
