// The store's rows of a report, as tab-separated text. Pure functions.
#pragma once

#include "ingest/report/device_key.h"
#include "ingest/report/envelope.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace fleet {

// The columns that the rows have, in order, in the parentheses of an INSERT.
[[nodiscard]] std::string_view reportColumns();
[[nodiscard]] std::string_view arrivalColumns();

// A router's clock is taken for right within these bounds around the time of arrival, in seconds.
inline constexpr std::int64_t kOldestUse = 400LL * 86400;
inline constexpr std::int64_t kNewestUse = 86400;

// Whether neither end of a period can be right when it arrived then (seconds since 1970).
[[nodiscard]] bool clockIsBad(const Record &record, std::int64_t received);

// The day under which a record counts, "2026-11-21" (UTC): that of its start or, where the clock is
// bad, that of its arrival.
[[nodiscard]] std::string dayOf(const Record &record, std::int64_t received);

// A text as a tab-separated value: a tab, a newline, a backslash and a NUL are escaped, every other
// byte stands as it is.
void appendEscaped(std::string &out, std::string_view text);

// Appends one row for each record of the envelope, which arrived then.
void appendReportRows(std::string &out, const Envelope &envelope, std::int64_t received,
                      const DeviceKey &key);

// Appends the one row of the report itself.
void appendArrivalRow(std::string &out, const Envelope &envelope, std::int64_t received);

} // namespace fleet
