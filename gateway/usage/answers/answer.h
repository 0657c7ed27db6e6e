// Answers as JSON. Every document ends with a newline.
#pragma once

#include "usage/answers/query.h"
#include "usage/history.h"

namespace usage {

// What answers are made from: the service's own state, or what a reader found in the store.
struct View {
    const Present &present;
    const Store &store;
    const Status &status;
    const Rates &rates;
    std::string instance;
    Seconds now = 0;
};

// by: the names that were asked for, in that order.
std::string usageJson(const View &view, const std::vector<std::string> &by, const Answer &answer);

std::string nowJson(const View &view);

// A page of 100 devices in the order of their addresses, those behind the cursor (an address, or
// nothing for the first page).
std::string devicesJson(const View &view, const std::optional<Mac> &after);

std::string quotasJson(const View &view);
std::string stateJson(const View &view);

// Periods as lines of JSON, at the finest that is kept, from a time on: whole periods until there
// are some 128 KB. next: from where on the rest is, nothing when there is no more. No lines at all
// when the time lies inside of a period that is kept as a whole by now: its rest can't be told.
struct ExportedLines {
    std::string lines;
    std::optional<Seconds> next;
};
std::optional<ExportedLines> exportLines(const View &view, Seconds from);

} // namespace usage
