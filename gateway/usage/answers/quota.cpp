#include "usage/answers/quota.h"

#include <algorithm>

namespace usage {

Span quotaPeriodAt(const Quota &quota, Seconds now) {
    if (quota.per == QuotaPeriod::kDay)
        return periodAt(Level::kDay, now);
    const Date date = dateAt(now);
    const Seconds begin = dayOfMonth(date.year, date.month, quota.startsOn);
    if (begin > now)
        return {dayOfMonth(date.year, date.month - 1, quota.startsOn), begin};
    return {begin, dayOfMonth(date.year, date.month + 1, quota.startsOn)};
}

std::uint64_t estimate(std::uint64_t used, const Span &period, Seconds now) {
    const Seconds passed = std::clamp(now, period.from, period.to) - period.from;
    if (passed == 0)
        return used;
    const long double whole = static_cast<long double>(used) *
                              static_cast<long double>(period.to - period.from) /
                              static_cast<long double>(passed);
    return whole >= 0x1p64L ? UINT64_MAX : static_cast<std::uint64_t>(whole);
}

} // namespace usage
