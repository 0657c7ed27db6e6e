#include "history_rig.h"
#include "usage/text.h"

namespace usage::testing {
namespace {

struct DayLength {
    const char *zone;
    const char *day;
    int halfHours;
    int hours; // that begin in it
};

TEST(ClockTest, DaysAndHoursFitTogetherWhereverTheClocksAreSet) {
    for (const DayLength &row : {DayLength{"UTC", "2026-03-29", 48, 24},
                                 {"Asia/Kolkata", "2026-06-01", 48, 24},
                                 {"America/New_York", "2026-03-08", 46, 23},
                                 {"America/New_York", "2026-11-01", 50, 25},
                                 {"Australia/Lord_Howe", "2026-04-05", 49, 25},
                                 {"Australia/Lord_Howe", "2026-10-04", 47, 24},
                                 {"Africa/Cairo", "2026-04-24", 46, 23},    // begins at 01:00
                                 {"Africa/Cairo", "2026-10-29", 50, 25}}) { // has 23:00 twice
        SCOPED_TRACE(std::string(row.zone) + " " + row.day);
        const InZone zone(row.zone);
        const Seconds noon = parseTime(std::string(row.day) + "T12:00").value();
        const Span day = periodAt(Level::kDay, noon);
        EXPECT_EQ(day.to - day.from, row.halfHours * 1800);
        int hours = 0;
        for (Seconds time = day.from; time < day.to; ++hours) {
            const Span hour = periodAt(Level::kHour, time);
            EXPECT_EQ(hour.from, time);
            for (const Seconds inside : {hour.from, hour.from + 1, hour.to - 1}) {
                EXPECT_EQ(periodAt(Level::kHour, inside), hour);
                EXPECT_EQ(periodAt(Level::kDay, inside), day);
                EXPECT_EQ(periodAt(Level::kMonth, inside), periodAt(Level::kMonth, noon));
            }
            ASSERT_GT(hour.to, time);
            time = hour.to;
            if (time > day.to)
                ADD_FAILURE() << "an hour is in two days";
        }
        EXPECT_EQ(hours, row.hours);
    }
}

TEST(ClockTest, ReadsTimesAsPeopleWriteThem) {
    const InZone zone("Asia/Kolkata");
    const Seconds evening = parseTime("2026-11-21T21:18:00+01:00").value();
    EXPECT_EQ(evening, 1795292280);
    EXPECT_EQ(timeText(evening), "2026-11-22T01:48:00+05:30");
    EXPECT_EQ(parseTime("2026-11-21t20:18:00.25z"), evening);
    EXPECT_EQ(parseTime("2026-11-21T22:17:00+01:59"), evening);
    EXPECT_EQ(parseTime("2026-11-22 01:48"), evening);
    EXPECT_EQ(parseTime("2026-11-22"), evening - 6480);
    EXPECT_EQ(parseAgo("30m", evening), evening - 1800);
    EXPECT_EQ(parseAgo("24h", evening), evening - 86400);
    EXPECT_EQ(parseAgo("9mo", evening), parseTime("2026-02-22T01:48"));
    EXPECT_EQ(parseAgo("900000d", evening), 0);
    for (const char *wrong :
         {"", "2026", "2026-02-29", "2026-13-01", "2026-1-1", "2026-11-21T", "2026-11-21T24:00",
          "2026-11-21T21:18:00+0100", "2026-11-21T21:18:00+01:60", "2026-11-21T21:18x",
          "0000-01-01", "7d", "-1h"})
        EXPECT_FALSE(parseTime(wrong)) << wrong;
    for (const char *wrong : {"", "d", "7", "7w", "-7d", "7 d", "99999999999999999999d"})
        EXPECT_FALSE(parseAgo(wrong, evening)) << wrong;
}

TEST(ClockTest, DaysAgoKeepTheTimeOfDayOverAChangeOfTheClocks) {
    const InZone zone("America/New_York");
    EXPECT_EQ(parseAgo("1d", parseTime("2026-03-08T12:00").value()), parseTime("2026-03-07T12:00"));
    EXPECT_EQ(parseAgo("1mo", parseTime("2026-03-31").value()), parseTime("2026-02-28"));
}

TEST(QuotaTest, BillingMonthsBeginOnTheirDayOrTheLastOne) {
    const Quota quota{.number = 1, .device = {}, .total = 10, .startsOn = 31};
    const Span february = quotaPeriodAt(quota, parseTime("2026-02-28T01:00").value());
    EXPECT_EQ(february, (Span{*parseTime("2026-02-28"), *parseTime("2026-03-31")}));
    EXPECT_EQ(quotaPeriodAt(quota, february.from - 1).to, february.from);
    EXPECT_EQ(quotaPeriodAt(quota, *parseTime("2026-01-01")).from, *parseTime("2025-12-31"));
    EXPECT_EQ(estimate(10, {0, 100}, 0), 10U);
    EXPECT_EQ(estimate(10, {0, 100}, 25), 40U);
    EXPECT_EQ(estimate(UINT64_MAX, {0, 100}, 25), UINT64_MAX);
    EXPECT_FALSE(isPassed(quota, 10));
    EXPECT_TRUE(isPassed(quota, 11));
}

TEST(TextTest, WhatNeighboursSendBecomesCleanText) {
    for (const auto &[bytes, clean] : std::map<std::string, std::string>{
             {"caf\xC3\xA9 \xF0\x9F\x98\x80", "caf\xC3\xA9 \xF0\x9F\x98\x80"},
             {"a\x1B[2J\xE2\x82 b\n\x7F", "a\uFFFD[2J\uFFFD\uFFFD b\uFFFD\uFFFD"},
             {"\xC2\x9B", "\uFFFD"}})
        EXPECT_EQ(cleanText(bytes), clean);
    EXPECT_EQ(cleanText("aaa\u00e9", 4), "aaa");
}

TEST(TextTest, SizesAndAddressesAreTakenWhole) {
    for (const auto &[text, size] :
         std::map<std::string, std::uint64_t>{{"0", 0},
                                              {"18446744073709551615", UINT64_MAX},
                                              {"64M", 64U << 20U},
                                              {"1.5GiB", 3U << 29U},
                                              {"2kb", 2048}})
        EXPECT_EQ(parseSize(text), size) << text;
    for (const char *wrong :
         {"", "M", "1.5", "1..5M", "-1M", "1X", "9999999T", "5Mx", "18446744073709551616"})
        EXPECT_FALSE(parseSize(wrong)) << wrong;
    EXPECT_EQ(humanSize(1023), "1023 B");
    EXPECT_EQ(humanSize(1024), "1.0 KiB");
    EXPECT_EQ(humanSize(1023 * 1024), "1.0 MiB");
    EXPECT_EQ(parseMac("02-00-5E-00-00-11"), parseMac("02:00:5e:00:00:11"));
    for (const char *wrong : {"", "02:00:5e:00:00:1", "02:00:5e:00:00:111", "02:00-5e:00:00:11",
                              "02:00:5e:00:00:g1", "02005e000011"})
        EXPECT_FALSE(parseMac(wrong)) << wrong;
}

} // namespace
} // namespace usage::testing
