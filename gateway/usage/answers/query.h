// The one place that sums: every answer, table, page and metric comes from here.
#pragma once

#include "usage/store/store.h"

#include <set>
#include <utility>

namespace usage {

enum class Sort { kDown, kUp, kTotal, kName };

// More rows than this become one, whatever is asked.
inline constexpr std::size_t kMostRows = 40000;

struct Question {
    Span range;
    bool byDevice = false;
    bool byApplication = false;
    bool byCategory = false;
    std::optional<Level> step;                 // hours, days or months
    std::optional<std::set<DeviceId>> devices; // only these
    std::optional<std::set<ApplicationId>> applications;
    Sort sort = Sort::kTotal;
    std::size_t top = kMostRows;
};

struct Row {
    Seconds start = 0;                   // of the step
    DeviceId device = kOthers;           // when asked by device
    ApplicationId application = kOthers; // when asked by application
    std::string category;                // when asked by application or category
    Bytes bytes;
};

struct Answer {
    Span range; // widened to whole periods of the finest kind that is kept for all of it
    Seconds resolution = 0;    // of that kind; a month counts as 30 days
    std::optional<Level> step; // coarser than asked for where nothing finer is kept
    Bytes total;
    std::vector<Row> rows;
    std::size_t othersCount = 0; // rows beyond top, and one for what has no device any more
    Bytes others;
};

// From then until now, with the second that is under way: a sample of this second is in it.
Span untilNow(Seconds from, Seconds now);

// Reads what is committed, adds what is not. Throws SqlError for a store that is damaged.
Answer ask(const Present &present, const Store &store, const Question &question);

// Calls back with the periods of this level in the span, and with finer ones where it has none.
void eachPeriod(const Store &store, Level level, const Span &span, const Store::Visitor &visit);

// The finest level that is kept for each span of the whole history, in order.
std::vector<std::pair<Level, Span>> finestSpans(const Present &present, const Store &store);

} // namespace usage
