#include "usage/store/present.h"

#include <algorithm>

namespace usage {

namespace {

constexpr std::size_t kMostGaps = 1000;

} // namespace

void addGap(std::vector<Span> &gaps, Span gap) {
    if (!gaps.empty() && gap.from <= gaps.back().to) {
        gaps.back().from = std::min(gaps.back().from, gap.from);
        gaps.back().to = std::max(gaps.back().to, gap.to);
        return;
    }
    if (gaps.size() >= kMostGaps)
        gaps.erase(gaps.begin());
    gaps.push_back(gap);
}

} // namespace usage
