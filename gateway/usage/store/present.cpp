#include "usage/store/present.h"

#include <algorithm>

namespace usage {

namespace {

constexpr std::size_t kMostGaps = 1000;

} // namespace

void addGap(std::vector<Span> &gaps, Span gap) {
    const auto first = std::find_if(gaps.begin(), gaps.end(),
                                    [&](const Span &known) { return known.to >= gap.from; });
    auto last = first;
    for (; last != gaps.end() && last->from <= gap.to; ++last)
        gap = {std::min(gap.from, last->from), std::max(gap.to, last->to)};
    gaps.insert(gaps.erase(first, last), gap);
    if (gaps.size() > kMostGaps)
        gaps.erase(gaps.begin());
}

} // namespace usage
