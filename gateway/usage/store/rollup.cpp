#include "usage/store/rollup.h"

#include <limits>
#include <set>

namespace usage {

Seconds keptFor(Level level) {
    switch (level) {
    case Level::kSlot:
        return 3 * kDaySeconds;
    case Level::kHour:
        return 62 * kDaySeconds;
    case Level::kDay:
        return 400 * kDaySeconds;
    case Level::kMonth:
        break;
    }
    return std::numeric_limits<Seconds>::max();
}

std::size_t mostDevices(Level level) {
    switch (level) {
    case Level::kDay:
        return 256;
    case Level::kMonth:
        return 64;
    case Level::kSlot:
    case Level::kHour:
        break;
    }
    return std::numeric_limits<std::size_t>::max();
}

Traffic capDevices(Traffic traffic, std::size_t most) {
    std::map<DeviceId, std::uint64_t> totals;
    for (const auto &[pair, bytes] : traffic) {
        if (pair.device != kOthers) {
            std::uint64_t &total = totals[pair.device];
            total = Bytes::sum(total, bytes.total());
        }
    }
    if (totals.size() <= most)
        return traffic;
    std::vector<std::pair<std::uint64_t, DeviceId>> ranked;
    ranked.reserve(totals.size());
    for (const auto &[device, total] : totals)
        ranked.emplace_back(total, device);
    const auto kept = ranked.end() - static_cast<std::ptrdiff_t>(most);
    std::nth_element(ranked.begin(), kept, ranked.end());
    for (auto device = ranked.begin(); device != kept; ++device)
        moveToOthers(traffic, device->second);
    return traffic;
}

bool moveToOthers(Traffic &traffic, DeviceId device) {
    const auto first = traffic.lower_bound({device, 0});
    auto last = first;
    Bytes moved;
    for (; last != traffic.end() && last->first.device == device; ++last)
        moved += last->second;
    if (first == last)
        return false;
    traffic.erase(first, last);
    traffic[Pair{}] += moved;
    return true;
}

} // namespace usage
