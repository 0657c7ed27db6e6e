// What has passed between two readings of the engine's counters.
#pragma once

#include "usage/sampling/reading.h"

#include <map>
#include <vector>

namespace usage {

// What a counter has grown by. A counter that is new counts in full; so does one of which either
// direction runs backwards, because it has begun anew.
Bytes growth(const Bytes *previous, const Bytes &now);

// The counters as they were last read, of the stays that are there and of those that may return.
struct Baseline {
    struct StayCounters {
        Seconds seen = 0; // when it was last in a reading
        std::map<EngineIds, Bytes> counters;
        auto operator<=>(const StayCounters &) const = default;
    };
    std::uint64_t life = 0; // of the engine, 0 when it doesn't tell
    std::map<Stay, StayCounters> stays;
    bool operator==(const Baseline &) const = default;
};

struct Grown {
    std::size_t user = 0; // of the reading
    EngineIds ids;
    Bytes bytes;
};

// The growth of every counter since the baseline, which becomes the reading. Another life of the
// engine begins everything anew. A stay that is missing is remembered for a day, at most 256 of
// them, because an answer may be cut.
std::vector<Grown> advance(Baseline &baseline, const Reading &now, Seconds time);

} // namespace usage
