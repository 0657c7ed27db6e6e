// What is in memory while the service runs: all that a commit makes durable in one step.
#pragma once

#include "usage/answers/quota.h"
#include "usage/sampling/growth.h"
#include "usage/store/directory.h"

#include <array>

namespace usage {

inline constexpr std::size_t kLevels = 4;

inline std::size_t indexOf(Level level) {
    return static_cast<std::size_t>(level);
}

// Traffic that is not committed yet, by the beginning of its slot.
using Slots = std::map<Seconds, Traffic>;

struct Present {
    Directory directory;
    Baseline baseline;
    Slots slots;
    std::vector<Span> gaps; // in which something was counted, but nobody knows when; ascending
    std::vector<Quota> quotas;
    Seconds lastSample = 0;               // 0 before the first
    std::uint64_t commit = 0;             // the name of the commit that this follows
    std::array<Seconds, kLevels> until{}; // a level's periods are made up to here; unused for slots
    std::array<Seconds, kLevels> trimmed{}; // a level's periods before this are gone
};

// Notes a gap, joined with those that it touches; the oldest go when there are too many.
void addGap(std::vector<Span> &gaps, Span gap);

} // namespace usage
