#include "system_util.h"

#include "support/fixture.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

class Timezone : public rig::Fixture {
  protected:
    static std::string zoneText(const char *zone, bool saving, const char *simple = "0") {
        rig::setSetting("time_zone", zone);
        rig::setSetting("schedule_daylightadjust", saving ? "1" : "0");
        rig::setSetting("time_zone_x", simple);
        EXPECT_EQ(sys_set_timezone(), 0);
        return getenv("TZ");
    }

    struct Stored {
        int result;
        std::string text, zone, index;
        bool operator==(const Stored &) const = default;
    };
    static Stored store(const char *text) {
        char exact[16]; // what lies behind the four bytes must survive
        std::fill(std::begin(exact), std::end(exact), '#');
        strcpy(exact, text);
        const int result = set_timezone_to_nvram(exact);
        for (std::size_t i = std::max<std::size_t>(4, strlen(text) + 1); i < sizeof exact; ++i)
            EXPECT_EQ(exact[i], '#') << text << " at " << i;
        return {result, exact, rig::setting("time_zone"), rig::setting("timezone_index")};
    }
};

TEST_F(Timezone, EveryZoneHasItsTextPositionAndKernelOffset) {
    struct {
        const char *zone, *standard, *daylight, *simple, *position;
        int minutesWest;
    } const rows[] = {
        {"-12", "GMT12", "GMT12DST,M03.05.00,M10.05.00", "GMT12DST,0,0", "0", 720},
        {"-11", "GMT11", "GMT11DST,M03.05.00,M10.05.00", "GMT11DST,0,0", "1", 660},
        {"-10", "GMT10", "GMT10DST,M03.02.00,M11.01.00", "GMT10DST,0,0", "2", 600},
        {"-9", "GMT9", "GMT9DST,M03.02.00,M11.01.00", "GMT9DST,0,0", "3", 540},
        {"-8", "GMT8", "GMT8DST,M03.02.00,M11.01.00", "GMT8DST,0,0", "4", 480},
        {"-7", "GMT7", "GMT7DST,M03.02.00,M11.01.00", "GMT7DST,0,0", "6", 420},
        {"-6", "GMT6", "GMT6DST,M03.02.00,M11.01.00", "GMT6DST,0,0", "7", 360},
        {"-5", "GMT5", "GMT5DST,M03.02.00,M11.01.00", "GMT5DST,0,0", "10", 300},
        {"-4", "GMT4", "GMT4DST,M03.02.00,M11.01.00", "GMT4DST,0,0", "12", 240},
        {"-35", "GMT+3:30", "GMT+3:30DST,M03.02.00/00:01:00,M11.01.00/00:01:00", "GMT+3:30DST,0,0",
         "13", 210},
        {"-3", "GMT3", "GMT3DST,M03.05.00,M10.05.00", "GMT3DST,0,0", "14", 180},
        {"-2", "GMT2", "GMT2DST,M03.05.00,M10.05.00", "GMT2DST,0,0", "15", 120},
        {"-1", "GMT1", "GMT1DST,M03.05.00,M10.05.00", "GMT1DST,0,0", "16", 60},
        {"0", "GMT0", "GMT0DST,M03.05.00,M10.05.00", "GMT0DST,0,0", "18", 0},
        {"", "GMT0", "GMT0DST,M03.05.00,M10.05.00", "GMT0DST,0,0", "18", 0},
        {"+1", "GMT-1", "GMT-1DST,M03.05.00,M10.05.00", "GMT-1DST,0,0", "19", -60},
        {"2", "GMT-2", "GMT-2DST,M03.05.00,M10.05.00", "GMT-2DST,0,0", "23", -120},
        {"3", "GMT-3", "GMT-4", "GMT-4", "26", -180},
        {"4", "GMT-4", "GMT-5", "GMT-5", "28", -240},
        {"5", "GMT-5", "GMT-6", "GMT-6", "29", -300},
        {"55", "GMT-5:30", "GMT-6:30", "GMT-6:30", "30", -330},
        {"6", "GMT-6", "GMT-7", "GMT-7", "31", -360},
        {"7", "GMT-7", "GMT-8", "GMT-8", "32", -420},
        {"8", "GMT-8", "GMT-9", "GMT-9", "33", -480},
        {"9", "GMT-9", "GMT-10", "GMT-10", "35", -540},
        {"95", "GMT-95", "GMT-95DST,M03.05.00,M10.05.00", "GMT-95DST,0,0", "36", -570},
        {"10", "GMT-10", "GMT-10DST,M10.01.00,M03.01.00", "GMT-10DST,0,0", "39", -600},
        {"11", "GMT-11", "GMT-11DST,M10.01.00,M03.01.00", "GMT-11DST,0,0", "40", -660},
        {"12", "GMT-12", "GMT-12DST,M09.04.00,M04.01.00", "GMT-12DST,0,0", "42", -720},
        {"13", "GMT-13", "GMT-13", "GMT-13", "44", -780},
        {"14", "GMT-14", "GMT-14DST,M03.05.00,M10.05.00", "GMT-14DST,0,0", "18", -840},
        {"100", "GMT-1", "GMT-1DST,M03.05.00,M10.05.00", "GMT-1DST,0,0", "18", -6000},
        {"101", "GMT-10", "GMT-10", "GMT-10", "18", -600},
        {"-2147483648", "GMT2147483648", "GMT2147483648DST,M03.05.00,M10.05.00",
         "GMT2147483648DST,0,0", "18", std::numeric_limits<int>::max()},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.zone);
        EXPECT_EQ(zoneText(row.zone, true), row.daylight);
        EXPECT_EQ(zoneText(row.zone, true, "1"), row.simple);
        EXPECT_EQ(zoneText(row.zone, false, "1"), row.standard);
        setenv("TZ", "stale", 1);
        EXPECT_EQ(system_update_timezone(), 0);
        EXPECT_STREQ(getenv("TZ"), row.standard);
        EXPECT_EQ(rig::kernelMinutesWest, row.minutesWest);
        char position[3];
        EXPECT_EQ(getTimeZoneIndex(position), 0);
        EXPECT_STREQ(position, row.position);
    }
}

TEST_F(Timezone, AnyOtherDaylightSwitchThanOneIsOff) {
    rig::setSetting("time_zone", "-8");
    for (const char *off : {"", "0", "2", "11", "on"}) {
        rig::setSetting("schedule_daylightadjust", off);
        sys_set_timezone();
        EXPECT_STREQ(getenv("TZ"), "GMT8") << off;
    }
}

TEST_F(Timezone, AKernelThatRefusesIsReportedOnly) {
    rig::settimeofdayFails = true;
    EXPECT_EQ(rig::standardError([] { EXPECT_EQ(system_update_timezone(), 0); }),
              "settimeofday: Operation not permitted\n");
}

TEST_F(Timezone, OnlyWholeZonesAndHalfHourCodesAreInTheList) {
    for (const float value : {-12.0F, -35.0F, 0.0F, 13.0F, 55.0F, 95.0F})
        EXPECT_EQ(is_in_timezone_list(value), 1) << value;
    for (const float value : {-13.0F, 14.0F, 5.5F, 100.0F, 101.0F, std::nanf(""), HUGE_VALF})
        EXPECT_EQ(is_in_timezone_list(value), 0) << value;
}

TEST_F(Timezone, AZoneGivenInHoursIsNormalisedAndStored) {
    struct {
        const char *given, *text, *index;
    } const rows[] = {
        {"-3.5", "-35", "13"},    {"-3.50 hours", "-35", "13"},
        {"+5.5", "+55", "30"},    {"+9.5", "+95", "36"},
        {"-8", "-8", "4"},        {"7", "7", "32"},
        {"+10.0", "+10.0", "39"}, // in the list, so it stands as it is
        {"14", "+13", "44"},      {"13.01", "+13", "44"},
        {"inf", "+13", "44"},     {"1e30", "+13", "44"},
        {"-13", "-12", "0"},      {"-inf", "-12", "0"},
        {"5.5", "+6", "31"},      {"12.5", "+13", "44"},
        {"0.5", "+1", "19"},      {"-0.5", "-0", "18"},
        {"-1.5", "-0", "18"},     {"-2.5", "--1", "18"},
        {"-11.5", "--1", "18"}, // "--10" cut to three characters
    };
    for (const auto &row : rows) {
        rig::setSetting("time_zone", "unset");
        rig::setSetting("time_zone_state", "");
        EXPECT_EQ(store(row.given), (Stored{1, row.text, row.text, row.index})) << row.given;
        EXPECT_EQ(rig::setting("time_zone_state"), "AutoConfigured") << row.given;
    }
    EXPECT_EQ(rig::settingSaves(), 0);
}

TEST_F(Timezone, NothingIsStoredWithoutAChangeOrANumber) {
    rig::setSetting("time_zone", "+13");
    EXPECT_EQ(set_timezone_to_nvram(nullptr), 0);
    EXPECT_EQ(store(""), (Stored{0, "", "+13", ""}));
    EXPECT_EQ(store("nan"), (Stored{0, "nan", "+13", ""}));
    EXPECT_EQ(store("14"), (Stored{0, "+13", "+13", ""}));
    EXPECT_EQ(rig::setting("time_zone_state"), "");
}
