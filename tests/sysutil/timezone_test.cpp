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
    EXPECT_EQ(sys_set_timezone(), 0);
    const char *const text = getenv("TZ");
    return text != nullptr ? text : "";
}

} // namespace

class Timezone : public rig::Fixture {};

TEST_F(Timezone, EveryZoneHasItsTextsItsPositionAndItsKernelOffset) {
    const struct {
        const char *zone, *standard, *daylight; // behind "GMT"; "DST" is added to the standard text
        const char *position;
        int minutesWest;
    } rows[] = {{"-12", "12", kEu, "0", 720},      {"-11", "11", kEu, "1", 660},
                {"-10", "10", kUs, "2", 600},      {"-9", "9", kUs, "3", 540},
                {"-8", "8", kUs, "4", 480},        {"-7", "7", kUs, "6", 420},
                {"-6", "6", kUs, "7", 360},        {"-5", "5", kUs, "10", 300},
                {"-4", "4", kUs, "12", 240},       {"-3", "3", kEu, "14", 180},
                {"-2", "2", kEu, "15", 120},       {"-1", "1", kEu, "16", 60},
                {"0", "0", kEu, "18", 0},          {"", "0", kEu, "18", 0},
                {"+1", "-1", kEu, "19", -60},      {"2", "-2", kEu, "23", -120},
                {"3", "-3", "-4", "26", -180},     {"4", "-4", "-5", "28", -240},
                {"5", "-5", "-6", "29", -300},     {"55", "-5:30", "-6:30", "30", -330},
                {"6", "-6", "-7", "31", -360},     {"7", "-7", "-8", "32", -420},
                {"8", "-8", "-9", "33", -480},     {"9", "-9", "-10", "35", -540},
                {"95", "-95", kEu, "36", -570},    {"10", "-10", kAu, "39", -600},
                {"11", "-11", kAu, "40", -660},    {"12", "-12", kNz, "42", -720},
                {"13", "-13", "-13", "44", -780},  {"14", "-14", kEu, "18", -840},
                {"100", "-1", kEu, "18", -6000},   {"101", "-10", "-10", "18", -600},
                {"-35", "+3:30", kHalf, "13", 210}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.zone);
        rig::setSetting("time_zone", row.zone);
        const std::string standard = std::string("GMT") + row.standard;
        const bool dated = row.daylight[0] == 'D';
        const std::string base = dated ? standard : "GMT";
        EXPECT_EQ(zoneText("1", "0"), base + row.daylight);
        EXPECT_EQ(zoneText("1", "1"), base + (dated ? "DST,0,0" : row.daylight));
        EXPECT_EQ(zoneText("11", "1"), standard);
        setenv("TZ", "stale", 1);
        EXPECT_EQ(system_update_timezone(), 0);
        EXPECT_EQ(getenv("TZ"), standard);
        EXPECT_EQ(rig::kernelMinutesWest, row.minutesWest);
        char position[3];
        EXPECT_EQ(getTimeZoneIndex(position), 0);
        EXPECT_STREQ(position, row.position);
    }
    rig::setSetting("time_zone", "-2147483648");
    system_update_timezone();
    EXPECT_STREQ(getenv("TZ"), "GMT2147483648");
    EXPECT_EQ(rig::kernelMinutesWest, 2147483647);
    rig::settimeofdayFails = true;
    EXPECT_EQ(rig::standardError([] { EXPECT_EQ(system_update_timezone(), 0); }),
              "settimeofday: Operation not permitted\n");
}

TEST_F(Timezone, AZoneGivenInHoursIsNormalisedAndStoredIfItDiffers) {
    const struct {
        const char *given, *text, *position; // no position: not stored
    } rows[] = {{"-3.5", "-35", "13"}, {"-3.50 h", "-35", ""},
                {"+5.5", "+55", "30"}, {"+9.5", "+95", "36"},
                {"-8", "-8", "4"},     {"+10.0", "+10.0", "39"},
                {"14", "+13", "44"},   {"13.01", "+13", ""},
                {"inf", "+13", ""},    {"1e30", "+13", ""},
                {"-13", "-12", "0"},   {"-inf", "-12", ""},
                {"5.5", "+6", "31"},   {"0.5", "+1", "19"},
                {"-0.5", "-0", "18"},  {"nan", "nan", ""},
                {"-1.5", "-0", ""},    {"-2.5", "--1", "18"},
                {"-11.5", "--1", ""},  {"", "", ""}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.given);
        const std::string before = rig::setting("time_zone");
        rig::setSetting("timezone_index", "");
        std::vector<char> text(row.given, row.given + strlen(row.given) + 1);
        text.resize(std::max<std::size_t>(text.size(), 4)); // no more room than is promised
        const bool stored = row.position[0] != '\0';
        EXPECT_EQ(set_timezone_to_nvram(text.data()), stored ? 1 : 0);
        EXPECT_STREQ(text.data(), row.text);
        EXPECT_EQ(rig::setting("time_zone"), stored ? row.text : before);
        EXPECT_EQ(rig::setting("timezone_index"), row.position);
    }
    EXPECT_EQ(rig::setting("time_zone_state"), "AutoConfigured");
    EXPECT_EQ(set_timezone_to_nvram(nullptr), 0);
    for (const float value : {-13.0F, 5.5F, 100.0F})
        EXPECT_EQ(is_in_timezone_list(value), 0) << value;
    EXPECT_EQ(rig::settingSaves(), 0);
}
