#include "usage/sampling/growth.h"

#include <algorithm>

namespace usage {
namespace {

constexpr Seconds kRememberedSeconds = 86400;
constexpr std::size_t kMostMissing = 256;

void forgetMissing(Baseline &baseline, Seconds now) {
    std::vector<std::pair<Seconds, Stay>> missing;
    for (const auto &[stay, counters] : baseline.stays) {
        if (counters.seen != now)
            missing.emplace_back(counters.seen, stay);
    }
    std::sort(missing.begin(), missing.end());
    const std::size_t tooMany = missing.size() - std::min(missing.size(), kMostMissing);
    for (std::size_t i = 0; i < missing.size(); ++i) {
        if (i < tooMany || now - missing[i].first > kRememberedSeconds)
            baseline.stays.erase(missing[i].second);
    }
}

} // namespace

Bytes growth(const Bytes *previous, const Bytes &now) {
    if (previous == nullptr || now.down < previous->down || now.up < previous->up)
        return now;
    return {now.down - previous->down, now.up - previous->up};
}

std::vector<Grown> advance(Baseline &baseline, const Reading &now, Seconds time) {
    if (now.life != baseline.life && now.life != 0 && baseline.life != 0)
        baseline.stays.clear();
    if (now.life != 0)
        baseline.life = now.life;
    for (const Reading::User &user : now.users)
        baseline.stays[user.stay].seen = time;
    std::vector<Grown> grown;
    for (const Reading::Row &row : now.rows) {
        auto &counters = baseline.stays[now.users[row.user].stay].counters;
        const auto [found, isNew] = counters.try_emplace(row.ids, row.bytes);
        const Bytes more = growth(isNew ? nullptr : &found->second, row.bytes);
        found->second = row.bytes;
        if (more.any())
            grown.push_back({row.user, row.ids, more});
    }
    forgetMissing(baseline, time);
    return grown;
}

} // namespace usage
