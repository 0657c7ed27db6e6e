// What becomes of periods: which of them a coarser one is made of, how long they are kept, and how
// many devices they tell apart.
#pragma once

#include "usage/store/present.h"

#include <algorithm>

namespace usage {

// How long periods of a level are kept, in seconds; months for ever.
Seconds keptFor(Level level);

// Devices that a period of this level tells apart.
std::size_t mostDevices(Level level);

inline Level coarser(Level level) {
    return static_cast<Level>(indexOf(level) + 1);
}
inline Level finer(Level level) {
    return static_cast<Level>(indexOf(level) - 1);
}

// Keeps the devices with the most bytes, and puts those of all others into one entry.
Traffic capDevices(Traffic traffic, std::size_t most);

// Puts what a device had into the entry of the others. False when it had nothing.
bool moveToOthers(Traffic &traffic, DeviceId device);

// The next period to make of finer ones, the first of which begins at first: what was made before
// is not made again, whatever zone it was made in.
inline Span nextPeriod(Level level, Seconds first, Seconds madeUntil) {
    Span period = periodAt(level, first);
    period.from = std::max(period.from, madeUntil);
    return period;
}

} // namespace usage
