#include "system_util.h"

#include "support/fixture.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

constexpr char kUs[] = "DST,M03.02.00,M11.01.00";
constexpr char kAu[] = "DST,M10.01.00,M03.01.00";
constexpr char kNz[] = "DST,M09.04.00,M04.01.00";
constexpr char kHalf[] = "DST,M03.02.00/00:01:00,M11.01.00/00:01:00";
constexpr char kEu[] = "DST,M03.05.00,M10.05.00";

std::string zoneText(const char *daylight, const char *withoutDates) {
    rig::setSetting("schedule_daylightadjust", daylight);
    rig::setSetting("time_zone_x", withoutDates);
    EXPECT_EQ(system_update_timezone(), 0);
    return getenv("TZ");
}

} // namespace

class Timezone : public rig::Fixture {};

TEST_F(Timezone, AZoneHasItsTextsAndItsKernelOffset) {
    const struct {
        const char *zone, *standard, *daylight; // behind "GMT"; "DST" is added to the standard text
        int minutesWest;
    } rows[] = {{"-11", "11", kEu, 660},        {"-10", "10", kUs, 600},
                {"-4", "4", kUs, 240},          {"-35", "+3:30", kHalf, 210},
                {"-3", "3", kEu, 180},          {"", "0", kEu, 0},
                {"3", "-3", "-4", -180},        {"9", "-9", "-10", -540},
                {"55", "-5:30", "-6:30", -330}, {"95", "-95", kEu, -570},
                {"10", "-10", kAu, -600},       {"11", "-11", kAu, -660},
                {"12", "-12", kNz, -720},       {"100", "-1", kEu, -6000},
                {"101", "-10", "-10", -600},    {"-2147483648", "2147483648", kEu, 2147483647}};
    for (const auto &row : rows) {
        rig::setSetting("time_zone", row.zone);
        const std::string standard = std::string("GMT") + row.standard;
        const bool dated = row.daylight[0] == 'D';
        EXPECT_EQ(zoneText("1", "0"), (dated ? standard : "GMT") + row.daylight);
        EXPECT_EQ(zoneText("11", "0"), standard);
        EXPECT_EQ(rig::kernelMinutesWest, row.minutesWest) << row.zone;
    }
    rig::setSetting("time_zone", "-8");
    EXPECT_EQ(zoneText("1", "1"), "GMT8DST,0,0");
}

TEST_F(Timezone, AZoneGivenInHoursIsNormalisedAndStoredIfItDiffers) {
    const struct {
        const char *given, *text, *position; // no position: not stored
    } rows[] = {{"-3.5", "-35", "13"}, {"-3.50 h", "-35", ""}, {"+5.5", "+55", "30"},
                {"-8", "-8", "4"},     {"14", "+13", "44"},    {"13.01", "+13", ""},
                {"-inf", "-12", "0"},  {"5.5", "+6", "31"},    {"10", "10", "39"},
                {"nan", "nan", ""},    {"noon", "noon", "18"}, {"-2.5", "--1", "18"},
                {"-11.5", "--1", ""}};
    for (const auto &row : rows) {
        rig::setSetting("timezone_index", "");
        std::vector<char> text(row.given, row.given + strlen(row.given) + 1);
        text.resize(std::max<std::size_t>(text.size(), 4)); // no more room than is promised
        EXPECT_EQ(set_timezone_to_nvram(text.data()), *row.position != '\0' ? 1 : 0);
        EXPECT_STREQ(text.data(), row.text) << row.given;
        EXPECT_EQ(rig::setting("timezone_index"), row.position);
    }
    EXPECT_EQ(rig::setting("time_zone"), "--1");
}

TEST_F(Timezone, EveryZoneOfTheListHasItsPosition) {
    std::string positions;
    for (int zone = -100; zone <= 200; ++zone) {
        if (is_in_timezone_list(static_cast<float>(zone)) == 0)
            continue;
        rig::setSetting("time_zone", std::to_string(zone));
        char position[3];
        EXPECT_EQ(getTimeZoneIndex(position), 0);
        positions += std::to_string(zone) + "=" + position + " ";
    }
    EXPECT_EQ(positions, "-35=13 -12=0 -11=1 -10=2 -9=3 -8=4 -7=6 -6=7 -5=10 -4=12 -3=14 -2=15 "
                         "-1=16 0=18 1=19 2=23 3=26 4=28 5=29 6=31 7=32 8=33 9=35 10=39 11=40 "
                         "12=42 13=44 55=30 95=36 ");
}
