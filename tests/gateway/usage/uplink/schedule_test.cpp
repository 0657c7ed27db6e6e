#include "usage/uplink/schedule.h"

#include <gtest/gtest.h>

namespace uplink {
namespace {

using namespace std::chrono_literals;
using Clock = Schedule::Clock;

const Clock::time_point kNow{1000s};

TEST(UplinkSchedule, ATryIsDueWithinTheSpreadAndStaysWhereItIs) {
    double share = 0.25;
    Schedule schedule({.spread = 40s, .first = 5s, .longest = 60s}, [&] { return share; });
    EXPECT_FALSE(schedule.pending());
    schedule.wanted(kNow);
    share = 0.9;
    schedule.wanted(kNow + 5s);
    EXPECT_TRUE(schedule.pending());
    EXPECT_EQ(schedule.due() - kNow, 10s);
    schedule.done();
    EXPECT_FALSE(schedule.pending());
}

TEST(UplinkSchedule, WaitsGrowUpToTheLongestAndStartAnewWithProgress) {
    Schedule schedule({.spread = 0s, .first = 8s, .longest = 20s}, [] { return 0.5; });
    const auto wait = [&](bool progress) {
        schedule.failed(kNow, progress);
        schedule.wanted(kNow); // a new report makes nothing sooner
        return schedule.due() - kNow;
    };
    EXPECT_EQ(wait(false), 6s);
    EXPECT_EQ(wait(false), 12s);
    EXPECT_EQ(wait(false), 15s);
    EXPECT_EQ(wait(false), 15s);
    EXPECT_EQ(wait(true), 6s);
    EXPECT_EQ(wait(false), 12s);
    schedule.done();
    EXPECT_EQ(wait(false), 6s);
}

} // namespace
} // namespace uplink
