// What is done to the store beside the reports' way into it: its tables, the sums by day, and the
// end of what is old.
#pragma once

#include "ingest/clickhouse.h"

#include <stdexcept>
#include <string>

namespace fleet {

struct StoreError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Makes tables and questions on every replica. Throws StoreError, as the others do.
void setUpStore(Store &store);

// Makes the sums of a day ("2026-11-21") or, with an empty text, of every day that got rows since
// its sums were made, and prints each. May be repeated. A day that lies before what is kept is left
// as it is, which is said.
void rollUp(Store &store, const std::string &day);

// Drops the reports that arrived more than so many whole months ago. The sums by day stay, and so
// do those of days that lose rows: they are made once more before.
void retain(Store &store, int months);

} // namespace fleet
