// The gateway's zone: where hours, days and months begin in it, and times as texts. The zone is the
// C library's (TZ, else /etc/localtime). All borders lie on the grid of slots.
#pragma once

#include "usage/types.h"

#include <optional>
#include <string>
#include <string_view>

namespace usage {

inline constexpr Seconds kSlotSeconds = 300;
inline constexpr Seconds kHourSeconds = 3600;
inline constexpr Seconds kDaySeconds = 86400;

// An earlier time is that of a clock that was never set.
inline constexpr Seconds kEarliest = 1577836800; // 2020-01-01
// What can be written with a year of four digits.
inline constexpr Seconds kLatest = 253402214400; // 9999-12-31

// The kinds of period that the history is kept in, each made of the one before.
enum class Level { kSlot, kHour, kDay, kMonth };

// Takes a changed zone of the system over.
void refreshZone();

// "Europe/Berlin"; "UTC" when nothing says it.
std::string zoneName();

// Seconds that the zone's clocks are ahead of UTC at that time.
Seconds zoneOffset(Seconds time);

// The period of that level that the time lies in. An hour is cut where the zone's offset changes; a
// day has 23 to 25 hours then.
Span periodAt(Level level, Seconds time);

// The 00:00 (or the first moment) of that day of that month; a day that the month lacks is its
// last. month may be 0 or 13: of the year before or after.
Seconds dayOfMonth(int year, int month, int day);

struct Date {
    int year = 1970;
    int month = 1;
    int day = 1;
};
// The zone's date at that time.
Date dateAt(Seconds time);

// "2026-11-21T21:18:00+01:00", in the zone.
std::string timeText(Seconds time);

// A time as people give it: RFC 3339 ("2026-11-21T21:18:00+01:00", "...Z"; without an offset in the
// zone; a blank for the T will do), or a date, the beginning of that day. Nothing for all else.
std::optional<Seconds> parseTime(std::string_view text);

// So long before now: "30m", "24h", "7d", "12mo"; days and months by the calendar, at the same time
// of day. Nothing for all else.
std::optional<Seconds> parseAgo(std::string_view text, Seconds now);

} // namespace usage
