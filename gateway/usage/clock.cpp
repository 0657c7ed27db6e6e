#include "usage/clock.h"

#include "usage/text.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>

namespace usage {
namespace {

constexpr std::string_view kZoneFolder = "zoneinfo/";

tm localTime(Seconds time) {
    const auto when = static_cast<time_t>(time);
    tm local{};
    localtime_r(&when, &local);
    return local;
}

Seconds floorTo(Seconds value, Seconds step) {
    const Seconds rest = value % step;
    return value - (rest < 0 ? rest + step : rest);
}

// Days from the epoch to a date of the common calendar, after Howard Hinnant's days_from_civil.
Seconds dayNumber(int year, int month, int day) {
    year -= month <= 2 ? 1 : 0;
    const Seconds era = floorTo(year, 400) / 400;
    const Seconds yearOfEra = year - era * 400;
    const Seconds dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    return era * 146097 + yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear - 719468;
}

int daysOfMonth(int year, int month) {
    const int nextYear = month == 12 ? year + 1 : year;
    return static_cast<int>(dayNumber(nextYear, month % 12 + 1, 1) - dayNumber(year, month, 1));
}

// Where the offset changes between two times that have different ones: the first moment of the new.
Seconds changeBetween(Seconds before, Seconds after) {
    const Seconds old = zoneOffset(before);
    while (after - before > 1) {
        const Seconds middle = before + (after - before) / 2;
        (zoneOffset(middle) == old ? before : after) = middle;
    }
    return after;
}

// The moment at which the zone's clocks show this many seconds since their epoch: the first when
// there are two, the moment of the change when they leap over it.
Seconds momentOf(Seconds shown) {
    const Seconds before = zoneOffset(shown - kDaySeconds);
    const Seconds after = zoneOffset(shown + kDaySeconds);
    if (zoneOffset(shown - before) == before)
        return shown - before;
    if (zoneOffset(shown - after) == after)
        return shown - after;
    return changeBetween(shown - kDaySeconds, shown + kDaySeconds);
}

Seconds onGrid(Seconds border) {
    return floorTo(border, kSlotSeconds);
}

Span hourAt(Seconds time) {
    const Seconds offset = zoneOffset(time);
    Seconds from = floorTo(time + offset, kHourSeconds) - offset;
    Seconds to = from + kHourSeconds;
    if (zoneOffset(from) != offset)
        from = changeBetween(from, time);
    if (zoneOffset(to) != offset)
        to = changeBetween(time, to);
    return {onGrid(from), onGrid(to)};
}

// Days are counted by their beginnings, so that clocks that are set back at midnight do not begin a
// day twice.
Span dayAt(Seconds time) {
    Seconds day = floorTo(time + zoneOffset(time), kDaySeconds);
    if (onGrid(momentOf(day + kDaySeconds)) <= time)
        day += kDaySeconds;
    return {onGrid(momentOf(day)), onGrid(momentOf(day + kDaySeconds))};
}

Span monthAt(Seconds time) {
    const Date date = dateAt(time);
    return {dayOfMonth(date.year, date.month, 1), dayOfMonth(date.year, date.month + 1, 1)};
}

// Reads fixed parts of a text one after the other; false from the first that isn't there.
class Parts {
  public:
    explicit Parts(std::string_view text) : rest_(text) {}

    int number(std::size_t digits, int least, int most) {
        const auto value = parseNumber(rest_.substr(0, digits), static_cast<std::uint64_t>(most));
        good_ = good_ && rest_.size() >= digits && value && static_cast<int>(*value) >= least;
        rest_.remove_prefix(std::min(digits, rest_.size()));
        return good_ ? static_cast<int>(*value) : least;
    }
    // One of these characters, 0 when it is none.
    char one(std::string_view of) {
        if (rest_.empty() || of.find(rest_[0]) == std::string_view::npos)
            return 0;
        const char found = rest_[0];
        rest_.remove_prefix(1);
        return found;
    }
    void need(char c) { good_ = one({&c, 1}) != 0 && good_; }
    void skipDigits() {
        rest_.remove_prefix(std::min(rest_.find_first_not_of("0123456789"), rest_.size()));
    }
    [[nodiscard]] bool good() const { return good_; }
    [[nodiscard]] bool end() const { return good_ && rest_.empty(); }

  private:
    std::string_view rest_;
    bool good_ = true;
};

Seconds parseShownTime(Parts &parts) {
    const int hour = parts.number(2, 0, 23);
    parts.need(':');
    const int minute = parts.number(2, 0, 59);
    int second = 0;
    if (parts.one(":") != 0) {
        second = parts.number(2, 0, 60);
        if (parts.one(".") != 0)
            parts.skipDigits();
    }
    return hour * kHourSeconds + minute * 60 + second;
}

// The offset at the end of a time, or nothing when there is none and the zone's counts.
std::optional<Seconds> parseOffset(Parts &parts) {
    const char sign = parts.one("Zz+-");
    if (sign == 0)
        return std::nullopt;
    if (sign == 'Z' || sign == 'z')
        return 0;
    const int hours = parts.number(2, 0, 23);
    parts.need(':');
    const Seconds offset = hours * kHourSeconds + parts.number(2, 0, 59) * 60;
    return sign == '-' ? -offset : offset;
}

std::string zoneOfLink(const std::string &path) {
    std::error_code error;
    const std::string target = std::filesystem::canonical(path, error).string();
    const auto at = target.find(kZoneFolder);
    return error || at == std::string::npos ? "" : target.substr(at + kZoneFolder.size());
}

} // namespace

void refreshZone() {
    tzset();
}

std::string zoneName() {
    const char *name = getenv("TZ");
    std::string zone = name != nullptr ? name : zoneOfLink("/etc/localtime");
    if (!zone.empty() && zone[0] == ':')
        zone.erase(0, 1);
    if (const auto at = zone.find(kZoneFolder); at != std::string::npos)
        zone.erase(0, at + kZoneFolder.size());
    return zone.empty() || zone == "Etc/UTC" ? "UTC" : cleanText(zone);
}

Seconds zoneOffset(Seconds time) {
    return localTime(time).tm_gmtoff;
}

Span periodAt(Level level, Seconds time) {
    switch (level) {
    case Level::kSlot:
        return {onGrid(time), onGrid(time) + kSlotSeconds};
    case Level::kHour:
        return hourAt(time);
    case Level::kDay:
        return dayAt(time);
    case Level::kMonth:
        break;
    }
    return monthAt(time);
}

Seconds dayOfMonth(int year, int month, int day) {
    if (month < 1 || month > 12) {
        year += month < 1 ? -1 : 1;
        month += month < 1 ? 12 : -12;
    }
    day = std::min(day, daysOfMonth(year, month));
    return onGrid(momentOf(dayNumber(year, month, day) * kDaySeconds));
}

Date dateAt(Seconds time) {
    const tm local = localTime(dayAt(time).to - 1);
    return {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday};
}

std::string timeText(Seconds time) {
    const tm local = localTime(std::clamp<Seconds>(time, 0, kLatest));
    const long minutes = local.tm_gmtoff / 60;
    char text[80];
    snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d%c%02ld:%02ld", local.tm_year + 1900,
             local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
             minutes < 0 ? '-' : '+', std::abs(minutes) / 60, std::abs(minutes) % 60);
    return text;
}

std::optional<Seconds> parseTime(std::string_view text) {
    Parts parts(text);
    const int year = parts.number(4, 1970, 9999);
    parts.need('-');
    const int month = parts.number(2, 1, 12);
    parts.need('-');
    const int day = parts.number(2, 1, 31);
    if (!parts.good() || day > daysOfMonth(year, month))
        return std::nullopt;
    Seconds shown = dayNumber(year, month, day) * kDaySeconds;
    std::optional<Seconds> offset;
    if (!parts.end()) {
        if (parts.one("Tt ") == 0)
            return std::nullopt;
        shown += parseShownTime(parts);
        offset = parseOffset(parts);
    }
    const Seconds moment = offset ? shown - *offset : momentOf(shown);
    if (!parts.end() || moment < 0 || moment > kLatest)
        return std::nullopt;
    return moment;
}

std::optional<Seconds> parseAgo(std::string_view text, Seconds now) {
    const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    const auto count = parseNumber(text.substr(0, digits), 1000000);
    const std::string_view unit = text.substr(digits);
    if (!count)
        return std::nullopt;
    const auto number = static_cast<Seconds>(*count);
    const Seconds shown = now + zoneOffset(now);
    Seconds ago = -1;
    if (unit == "m")
        ago = now - number * 60;
    else if (unit == "h")
        ago = now - number * kHourSeconds;
    else if (unit == "d")
        ago = momentOf(shown - number * kDaySeconds);
    else if (unit == "mo" && number <= 12 * 1000) {
        const Date date = dateAt(now);
        const int months = date.year * 12 + date.month - 1 - static_cast<int>(number);
        if (months >= 1970 * 12) {
            const int year = months / 12;
            const int month = months % 12 + 1;
            const int day = std::min(date.day, daysOfMonth(year, month));
            ago = momentOf(dayNumber(year, month, day) * kDaySeconds +
                           (shown - floorTo(shown, kDaySeconds)));
        }
    } else {
        return std::nullopt;
    }
    return std::max<Seconds>(ago, 0);
}

} // namespace usage
