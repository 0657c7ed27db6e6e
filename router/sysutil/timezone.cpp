#include "sysutil/timezone.h"

#include "common/text.h"
#include "platform/nvram.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <sys/time.h>

namespace {

constexpr char kZoneSetting[] = "time_zone";

// Codes of "time_zone" that are no number of hours.
constexpr int kMinus3Hours30 = -35;
constexpr int kPlus5Hours30 = 55;
constexpr int kPlus9Hours30 = 95;
constexpr int kPlus1Code = 100;
constexpr int kPlus10Code = 101;

// Equal values are distinct zones of one offset.
constexpr std::array<float, 45> index_mapping_zone = {
    -12, -11, -10, -9, -8, -7, -7, -6, -6, -5, -5, -5, -4, -35, -3, -2, -1, 0,  0,  1,  1,  1, 1,
    2,   2,   2,   3,  4,  4,  5,  55, 6,  7,  8,  8,  9,  95,  10, 10, 10, 11, 11, 12, 12, 13};

struct ZonePosition {
    int zone;
    const char *position;
};

constexpr ZonePosition kPositions[] = {
    {-35, "13"}, {-12, "0"}, {-11, "1"}, {-10, "2"}, {-9, "3"},  {-8, "4"},  {-7, "6"},
    {-6, "7"},   {-5, "10"}, {-4, "12"}, {-3, "14"}, {-2, "15"}, {-1, "16"}, {1, "19"},
    {2, "23"},   {3, "26"},  {4, "28"},  {5, "29"},  {6, "31"},  {7, "32"},  {8, "33"},
    {9, "35"},   {10, "39"}, {11, "40"}, {12, "42"}, {13, "44"}, {55, "30"}, {95, "36"},
};
constexpr char kGreenwichPosition[] = "18";

int configured_zone() {
    return decimal_value(kelpNvramConfig_get(kZoneSetting));
}

// Whole hours east; the codes of half hours stand as they are, 95 in TZ as well.
int hours_east(int zone) {
    if (zone == kPlus1Code)
        return 1;
    return zone == kPlus10Code ? 10 : zone;
}

struct DaylightRule {
    const char *start;
    const char *end;
};

DaylightRule daylight_rule(int zone, int hours) {
    if (decimal_value(kelpNvramConfig_get("time_zone_x")) != 0)
        return {"0", "0"};
    if (hours == 12)
        return {"M09.04.00", "M04.01.00"};
    if (hours == 10 || hours == 11)
        return {"M10.01.00", "M03.01.00"};
    if (hours >= -10 && hours <= -4)
        return {"M03.02.00", "M11.01.00"};
    if (zone == kMinus3Hours30)
        return {"M03.02.00/00:01:00", "M11.01.00/00:01:00"};
    return {"M03.05.00", "M10.05.00"};
}

struct ZoneText {
    char text[64];
};

// TZ counts west of Greenwich; long long, so that the negation cannot overflow.
ZoneText whole_hours(long long hours) {
    ZoneText result;
    format_text(result.text, sizeof result.text, "GMT%lld", -hours);
    return result;
}

ZoneText standard_zone(int zone) {
    if (zone == kPlus5Hours30)
        return {"GMT-5:30"};
    if (zone == kMinus3Hours30)
        return {"GMT+3:30"};
    return whole_hours(hours_east(zone));
}

ZoneText daylight_zone(int zone) {
    const int hours = hours_east(zone);
    if (zone == kPlus5Hours30)
        return {"GMT-6:30"};
    if (hours >= 3 && hours <= 9)
        return whole_hours(hours + 1); // these zones keep daylight saving all year
    if (zone == kPlus10Code || hours == 13)
        return whole_hours(hours);

    const DaylightRule rule = daylight_rule(zone, hours);
    const ZoneText standard = standard_zone(zone);
    ZoneText result;
    format_text(result.text, sizeof result.text, "%sDST,%s,%s", standard.text, rule.start,
                rule.end);
    return result;
}

int minutes_west(int zone) {
    if (zone == kPlus5Hours30)
        return -330;
    if (zone == kMinus3Hours30)
        return 210;
    if (zone == kPlus9Hours30)
        return -570;
    // 100 is not taken as +1 here, unlike in TZ: deliberate.
    const long long minutes = -60LL * (zone == kPlus10Code ? 10 : zone);
    return static_cast<int>(std::clamp<long long>(minutes, std::numeric_limits<int>::min(),
                                                  std::numeric_limits<int>::max()));
}

// What every caller of set_timezone_to_nvram has room for.
constexpr std::size_t kShortestText = 4;

void recode_half_hours(char *text) {
    struct HalfHour {
        const char *prefix;
        const char *code;
    };
    constexpr HalfHour kHalfHours[] = {{"-3.5", "-35"}, {"+5.5", "+55"}, {"+9.5", "+95"}};
    for (const auto &half : kHalfHours) {
        if (strncmp(text, half.prefix, strlen(half.prefix)) == 0)
            copy_text(text, kShortestText, half.code);
    }
}

// Replaces a number of hours that is no zone by a near one; false for what is no number.
bool normalise(char *text) {
    recode_half_hours(text);
    const float value = strtof(text, nullptr);
    if (std::isnan(value))
        return false;
    if (is_in_timezone_list(value) != 0)
        return true;
    if (value > 13.0F) {
        copy_text(text, kShortestText, "+13");
    } else if (value < -12.0F) {
        copy_text(text, kShortestText, "-12");
    } else {
        // A negative number gets a second minus sign and is cut to 3 characters: deliberate.
        const int hours = static_cast<int>(value + 1.0);
        format_text(text, kShortestText, hours >= 1 ? "+%d" : "-%d", hours);
    }
    return true;
}

} // namespace

int sys_set_timezone(void) {
    const int zone = configured_zone();
    const bool daylight = kelpNvramConfig_match("schedule_daylightadjust", "1") != 0;
    const ZoneText result = daylight ? daylight_zone(zone) : standard_zone(zone);
    return setenv("TZ", result.text, 1);
}

int system_update_timezone(void) {
    struct timezone kernel_zone {};
    kernel_zone.tz_minuteswest = minutes_west(configured_zone());
    sys_set_timezone();
    if (settimeofday(nullptr, &kernel_zone) != 0)
        perror("settimeofday");
    return 0;
}

int is_in_timezone_list(float value) {
    const auto *const end = index_mapping_zone.end();
    return std::find(index_mapping_zone.begin(), end, value) != end ? 1 : 0;
}

int getTimeZoneIndex(char *out) {
    const int zone = configured_zone();
    const char *position = kGreenwichPosition;
    for (const auto &known : kPositions) {
        if (known.zone == zone)
            position = known.position;
    }
    strcpy(out, position);
    return 0;
}

int set_timezone_to_nvram(char *text) {
    if (text == nullptr || *text == '\0' || !normalise(text))
        return 0;
    if (kelpNvramConfig_match(kZoneSetting, text) != 0)
        return 0;
    kelpNvramConfig_set(kZoneSetting, text);
    kelpNvramConfig_set("time_zone_state", "AutoConfigured");
    char position[3];
    getTimeZoneIndex(position);
    kelpNvramConfig_set("timezone_index", position);
    return 1;
}
