#include "engine/tables.h"

#include <gtest/gtest.h>

#include <limits>
#include <set>

namespace idpfwd {
namespace {

Mac mac(std::uint32_t number) {
    return {
        0x02, 0, 0, 0, static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)};
}

constexpr Moment at(std::uint32_t seconds) {
    return {.seconds = seconds, .milliseconds = std::uint64_t{seconds} * 1000};
}

constexpr Traffic kTraffic{.down_bytes = 1000, .up_bytes = 100, .down_packets = 2, .up_packets = 1};

void seeAll(Tables &tables, std::uint32_t now) {
    for (std::uint32_t i = 0; i < kMaxUsers; ++i)
        ASSERT_NE(tables.seeUser(mac(i), at(now)), nullptr);
}

TEST(Tables, NumbersAreUniqueFrom1To63AndNotReusedAtOnce) {
    Tables tables;
    tables.seeUser(mac(500), at(1));
    for (std::uint32_t i = 0; i < kMaxUsers - 1; ++i)
        tables.seeUser(mac(i), at(10));
    std::set<int> uids;
    for (const auto &user : tables.users())
        uids.insert(user.uid);
    EXPECT_EQ(uids.size(), kMaxUsers);
    EXPECT_EQ(*uids.begin(), 1);
    EXPECT_EQ(*uids.rbegin(), 63);

    tables.seeUser(mac(1), at(30));
    tables.forgetUnseen(at(35), 20);
    EXPECT_EQ(tables.users().size(), 1U);
    EXPECT_EQ(tables.seeUser(mac(501), at(35))->uid, 1) << "the one that was free longest";
    tables.forgetUnseen(at(60), 20);
    EXPECT_EQ(tables.seeUser(mac(502), at(60))->uid, 2);
}

TEST(Tables, TrafficGrowsARowWhoseCountersNeverRunBackwards) {
    Tables tables;
    tables.addTraffic(mac(1), 3, 17, kTraffic, at(100));
    tables.addTraffic(mac(1), 3, 17, kTraffic, at(160));
    tables.addTraffic(mac(1), 3, 18, kTraffic, {.seconds = 0});
    ASSERT_EQ(tables.rows().size(), 2U);
    const devid_app_rate_entry &row = tables.rows()[0];
    EXPECT_EQ(row.uid, tables.users()[0].uid);
    EXPECT_EQ(std::uint64_t{row.down_accl_byte}, 2000U);
    EXPECT_EQ(std::uint64_t{row.up_accl_byte}, 200U);
    EXPECT_EQ(std::uint32_t{row.down_accl_pkt}, 4U);
    EXPECT_EQ(std::uint32_t{row.last_elapsed_ts}, 160U);
    EXPECT_NE(std::uint32_t{row.available}, 0U);
    EXPECT_NE(std::uint32_t{tables.rows()[1].last_elapsed_ts}, 0U) << "never 0, whatever the clock";
    constexpr auto kLargest = std::numeric_limits<std::uint32_t>::max();
    tables.addTraffic(mac(1), 3, 17, {.up_packets = kLargest - 1}, at(170));
    EXPECT_EQ(std::uint32_t{row.up_accl_pkt}, kLargest) << "and does not start again";
}

TEST(Tables, AForgottenDeviceTakesItsRowsAlongAndComesBackAtZero) {
    Tables tables;
    tables.addTraffic(mac(1), 3, 17, kTraffic, at(100));
    tables.addTraffic(mac(2), 3, 17, kTraffic, at(150));
    tables.addTraffic(mac(1), 3, 17, kTraffic, at(190)); // held since: it was not there again
    const std::uint64_t stay = tables.stay(mac(1));
    tables.forgetUnseen(at(200), 100);
    EXPECT_EQ(tables.users().size(), 2U) << "unseen for exactly the time";
    tables.forgetUnseen({.seconds = 2'000'000'000, .milliseconds = 200'000}, 100);
    EXPECT_EQ(tables.users().size(), 2U) << "a clock that was set is no time that went by";
    tables.forgetUnseen(at(201), 100);
    ASSERT_EQ(tables.users().size(), 1U);
    ASSERT_EQ(tables.rows().size(), 1U);
    EXPECT_EQ(tables.rows()[0].uid, tables.findUser(mac(2))->uid);
    EXPECT_EQ(tables.stay(mac(1)), 0U);

    tables.addTraffic(mac(2), 3, 17, kTraffic, at(210));
    EXPECT_EQ(std::uint64_t{tables.rows()[0].down_accl_byte}, 2000U) << "the index followed";
    tables.addTraffic(mac(1), 3, 17, kTraffic, at(210));
    EXPECT_EQ(std::uint64_t{tables.rows()[1].down_accl_byte}, 1000U);
    EXPECT_NE(tables.stay(mac(1)), stay);
}

TEST(Tables, ARefusedDeviceCountsOnceAStayAndEntersWhenThereIsRoom) {
    Tables tables;
    seeAll(tables, 10);
    EXPECT_FALSE(tables.overflow().any());
    EXPECT_EQ(tables.seeUser(mac(100), at(10)), nullptr);
    tables.addTraffic(mac(100), 1, 1, kTraffic, at(20));
    tables.addTraffic(mac(101), 1, 1, kTraffic, at(20));
    EXPECT_EQ(tables.overflow().users, 2U);
    EXPECT_EQ(tables.overflow().packets, 6U);
    EXPECT_EQ(tables.overflow().bytes, 2200U);

    tables.forgetUnseen(at(25), 10); // the refused ones stay
    EXPECT_NE(tables.seeUser(mac(100), at(30)), nullptr);
    tables.forgetUnseen(at(1000), 10);
    seeAll(tables, 1000);
    EXPECT_EQ(tables.seeUser(mac(101), at(1000)), nullptr);
    EXPECT_EQ(tables.overflow().users, 3U);
}

TEST(Tables, ARefusedRowCountsOnceWithAllItsTraffic) {
    Tables tables;
    seeAll(tables, 10);
    tables.seeUser(mac(0), at(20));
    for (std::uint32_t i = 0; i < kMaxRows; ++i)
        tables.addTraffic(mac(i / 512), 1, static_cast<std::uint16_t>(i % 512), kTraffic, at(20));
    EXPECT_EQ(tables.rows().size(), kMaxRows);
    EXPECT_FALSE(tables.overflow().any());
    tables.addTraffic(mac(0), 2, 1, kTraffic, at(20));
    tables.addTraffic(mac(0), 2, 1, kTraffic, at(20));
    EXPECT_EQ(tables.rows().size(), kMaxRows);
    EXPECT_EQ(tables.overflow().rows, 1U);
    EXPECT_EQ(tables.overflow().bytes, 2200U);
    tables.forgetUnseen(at(25), 10);
    tables.addTraffic(mac(0), 2, 1, kTraffic, at(25));
    EXPECT_EQ(tables.rows().size(), 513U) << "there is room again";
}

} // namespace
} // namespace idpfwd
