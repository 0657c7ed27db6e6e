#include "engine/tables.h"

#include <gtest/gtest.h>

#include <set>

namespace idpfwd {
namespace {

Mac mac(std::uint32_t number) {
    return {
        0x02, 0, 0, 0, static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)};
}

constexpr Traffic kTraffic{.down_bytes = 1000, .up_bytes = 100, .down_packets = 2, .up_packets = 1};

void fillUsers(Tables &tables, std::uint32_t now) {
    for (std::uint32_t i = 0; i < kMaxUsers; ++i)
        ASSERT_NE(tables.seeUser(mac(i), now), nullptr);
}

TEST(Tables, NumbersAreUniqueFrom1To63AndNotReusedAtOnce) {
    Tables tables;
    fillUsers(tables, 10);
    std::set<int> uids;
    for (const auto &user : tables.users())
        uids.insert(user.uid);
    EXPECT_EQ(uids.size(), kMaxUsers);
    EXPECT_EQ(*uids.begin(), 1);
    EXPECT_EQ(*uids.rbegin(), 63);

    const int first = tables.findUser(mac(0))->uid;
    const int second = tables.findUser(mac(1))->uid;
    tables.forget(mac(0));
    tables.forget(mac(1));
    EXPECT_EQ(tables.seeUser(mac(500), 10)->uid, first);
    tables.forget(mac(500));
    EXPECT_EQ(tables.seeUser(mac(501), 10)->uid, second) << "the one that was free longest";
}

TEST(Tables, TrafficGrowsARowAndKeepsItsDeviceAlive) {
    Tables tables;
    tables.addTraffic(mac(1), 3, 17, kTraffic, 100);
    tables.addTraffic(mac(1), 3, 17, kTraffic, 160);
    tables.addTraffic(mac(1), 3, 18, kTraffic, 0);
    ASSERT_EQ(tables.rows().size(), 2U);
    const devid_app_rate_entry &row = tables.rows()[0];
    EXPECT_EQ(row.uid, tables.users()[0].uid);
    EXPECT_EQ(std::uint64_t{row.down_accl_byte}, 2000U);
    EXPECT_EQ(std::uint64_t{row.up_accl_byte}, 200U);
    EXPECT_EQ(std::uint32_t{row.down_accl_pkt}, 4U);
    EXPECT_EQ(std::uint32_t{row.up_accl_pkt}, 2U);
    EXPECT_EQ(std::uint32_t{row.last_elapsed_ts}, 160U);
    EXPECT_NE(std::uint32_t{row.available}, 0U);
    EXPECT_NE(std::uint32_t{tables.rows()[1].last_elapsed_ts}, 0U) << "never 0, whatever the clock";
    EXPECT_EQ(std::uint32_t{tables.users()[0].ts_create}, 100U);
}

TEST(Tables, AForgottenDeviceTakesItsRowsAlongAndComesBackAtZero) {
    Tables tables;
    tables.addTraffic(mac(1), 3, 17, kTraffic, 100);
    tables.addTraffic(mac(2), 3, 17, kTraffic, 150);
    tables.forgetUnseen(200, 100);
    EXPECT_EQ(tables.users().size(), 2U) << "unseen for exactly the time";
    tables.forgetUnseen(90, 1);
    EXPECT_EQ(tables.users().size(), 2U) << "a clock that was set back";
    tables.forgetUnseen(201, 100);
    ASSERT_EQ(tables.users().size(), 1U);
    ASSERT_EQ(tables.rows().size(), 1U);
    EXPECT_EQ(tables.rows()[0].uid, tables.findUser(mac(2))->uid);

    tables.addTraffic(mac(2), 3, 17, kTraffic, 210);
    EXPECT_EQ(std::uint64_t{tables.rows()[0].down_accl_byte}, 2000U) << "the index followed";
    tables.addTraffic(mac(1), 3, 17, kTraffic, 210);
    EXPECT_EQ(std::uint64_t{tables.rows()[1].down_accl_byte}, 1000U);
}

TEST(Tables, ARefusedDeviceCountsOnceAStayAndEntersWhenThereIsRoom) {
    Tables tables;
    fillUsers(tables, 10);
    EXPECT_FALSE(tables.overflow().any());
    EXPECT_EQ(tables.seeUser(mac(100), 10), nullptr);
    tables.addTraffic(mac(100), 1, 1, kTraffic, 20);
    tables.addTraffic(mac(101), 1, 1, kTraffic, 20);
    EXPECT_EQ(tables.overflow().users, 2U);
    EXPECT_EQ(tables.overflow().packets, 6U);
    EXPECT_EQ(tables.overflow().bytes, 2200U);

    tables.forget(mac(7));
    EXPECT_NE(tables.seeUser(mac(100), 30), nullptr);
    tables.forgetUnseen(1000, 960); // the refused one's stay ends with the others'
    fillUsers(tables, 1000);
    EXPECT_EQ(tables.seeUser(mac(101), 1000), nullptr);
    EXPECT_EQ(tables.overflow().users, 3U);
}

TEST(Tables, ARefusedRowCountsOnceWithAllItsTraffic) {
    Tables tables;
    for (std::uint32_t i = 0; i < kMaxRows; ++i)
        tables.addTraffic(mac(i / 512), 1, static_cast<std::uint16_t>(i % 512), kTraffic, 10);
    EXPECT_EQ(tables.rows().size(), kMaxRows);
    EXPECT_FALSE(tables.overflow().any());
    tables.addTraffic(mac(0), 2, 1, kTraffic, 10);
    tables.addTraffic(mac(0), 2, 1, kTraffic, 10);
    EXPECT_EQ(tables.rows().size(), kMaxRows);
    EXPECT_EQ(tables.overflow().rows, 1U);
    EXPECT_EQ(tables.overflow().bytes, 2200U);
    tables.forget(mac(1));
    tables.addTraffic(mac(0), 2, 1, kTraffic, 10);
    EXPECT_EQ(tables.rows().size(), kMaxRows - 511);
}

} // namespace
} // namespace idpfwd
