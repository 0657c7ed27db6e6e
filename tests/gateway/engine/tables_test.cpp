#include "engine/tables.h"

#include <gtest/gtest.h>

#include <limits>
#include <set>

namespace idpfwd {
namespace {

Mac mac(std::uint32_t number) {
    return {2, 0, 0, 0, 0, static_cast<std::uint8_t>(number)};
}

constexpr Moment at(std::uint32_t seconds) {
    return {.seconds = seconds, .milliseconds = std::uint64_t{seconds} * 1000};
}

constexpr Traffic kTraffic{.down_bytes = 1000, .up_bytes = 100, .down_packets = 2, .up_packets = 1};

TEST(Tables, TrafficGrowsARowWhoseCountersNeverRunBackwards) {
    Tables tables;
    constexpr auto kLargest = std::numeric_limits<std::uint32_t>::max();
    tables.addTraffic(mac(1), 3, 17, kTraffic, at(100));
    tables.addTraffic(mac(1), 3, 17, {.down_bytes = 7, .up_packets = kLargest}, at(160));
    tables.addTraffic(mac(1), 3, 18, kTraffic, at(0));
    const devid_app_rate_entry &row = tables.rows()[0];
    EXPECT_EQ(std::uint64_t{row.down_accl_byte}, 1007U);
    EXPECT_EQ(std::uint64_t{row.up_accl_byte}, 100U);
    EXPECT_EQ(std::uint32_t{row.down_accl_pkt}, 2U);
    EXPECT_EQ(std::uint32_t{row.up_accl_pkt}, kLargest);
    EXPECT_EQ(std::uint32_t{tables.rows().at(1).last_elapsed_ts}, 1U) << "0 would say never";
}

TEST(Tables, AForgottenDeviceTakesItsRowsAlongAndComesBackAtZero) {
    Tables tables;
    tables.addTraffic(mac(1), 3, 17, kTraffic, at(100));
    tables.addTraffic(mac(2), 3, 17, kTraffic, at(150));
    tables.addTraffic(mac(1), 3, 17, kTraffic, at(190)); // held since: it was not there again
    tables.forgetUnseen(at(189), 100);
    EXPECT_EQ(tables.users().size(), 2U) << "seen by another reader after this moment was taken";
    tables.forgetUnseen({.seconds = 2'000'000'000, .milliseconds = 200'000}, 100);
    EXPECT_EQ(tables.users().size(), 2U) << "unseen for exactly the time, by the clock that counts";
    tables.forgetUnseen({.seconds = 0, .milliseconds = 200'001}, 100);
    ASSERT_EQ(tables.rows().size(), 1U);
    EXPECT_EQ(tables.rows()[0].uid, tables.findUser(mac(2))->uid);

    tables.addTraffic(mac(2), 3, 17, kTraffic, at(210));
    EXPECT_EQ(std::uint64_t{tables.rows()[0].down_accl_byte}, 2000U) << "the index followed";
    tables.addTraffic(mac(1), 3, 17, kTraffic, at(210));
    EXPECT_EQ(std::uint64_t{tables.rows()[1].down_accl_byte}, 1000U);
}

TEST(Tables, ADeviceThatComesBackAtOnceIsHiddenUntilItHasBeenMissed) {
    Tables tables;
    tables.addTraffic(mac(1), 3, 17, kTraffic, at(100));
    tables.addTraffic(mac(2), 3, 17, kTraffic, at(100));
    tables.forgetUnseen(at(201), 100);
    const std::uint8_t back = tables.seeUser(mac(1), at(205))->uid;
    EXPECT_TRUE(tables.hidden()[back]);
    tables.forgetUnseen(at(230), 100);
    EXPECT_TRUE(tables.hidden()[back]);
    EXPECT_FALSE(tables.hidden()[tables.seeUser(mac(2), at(231))->uid]) << "away for long enough";
    tables.forgetUnseen(at(231), 100);
    EXPECT_TRUE(tables.hidden().none());

    tables.forgetUnseen(at(400), 100);
    tables.seeUser(mac(1), at(401));
    tables.showAll();
    EXPECT_TRUE(tables.hidden().none()) << "no moment will follow";
}

TEST(Tables, WhatDoesNotFitCountsOnceWithAllItsTraffic) {
    Tables tables;
    for (std::uint32_t i = 0; i < kMaxRows; ++i)
        tables.addTraffic(mac(i / 512), 1, static_cast<std::uint16_t>(i % 512), kTraffic, at(20));
    EXPECT_FALSE(tables.overflow().any());
    for (int times = 0; times < 2; ++times) {
        tables.addTraffic(mac(0), 2, 1, kTraffic, at(20));
        tables.addTraffic(mac(100), 1, 1, kTraffic, at(20));
    }
    EXPECT_EQ(tables.rows().size(), kMaxRows);
    EXPECT_EQ(tables.overflow().users, 1U);
    EXPECT_EQ(tables.overflow().rows, 1U);
    EXPECT_EQ(tables.overflow().packets, 12U);
    EXPECT_EQ(tables.overflow().bytes, 4400U);
}

TEST(Tables, RefusedPairsAreRememberedUpToALimitAndForgottenWithTheirDevice) {
    constexpr std::uint64_t kMost = 16384;
    Tables tables;
    for (std::uint32_t i = 0; i < kMaxRows; ++i)
        tables.addTraffic(mac(i / 600), 1, static_cast<std::uint16_t>(i % 600), kTraffic, at(20));
    for (std::uint32_t i = 0; i <= kMost; ++i)
        tables.addTraffic(mac(100), 2, static_cast<std::uint16_t>(i), kTraffic, at(10));
    EXPECT_EQ(tables.overflow().rows, kMost);
    tables.forgetUnseen(at(40), 25);
    EXPECT_EQ(tables.rows().size(), kMaxRows);
    for (std::uint32_t i = 0; i < kMost; ++i)
        tables.addTraffic(mac(1), 2, static_cast<std::uint16_t>(i), kTraffic, at(40));
    EXPECT_EQ(tables.overflow().rows, 2 * kMost);

    tables.seeUser(mac(1), at(40));
    tables.forgetUnseen(at(60), 25);
    for (std::uint32_t i = 0; i < kMaxRows - 600; ++i) // those that were refused, and others
        tables.addTraffic(mac(1), 2, static_cast<std::uint16_t>(i), kTraffic, at(60));
    tables.addTraffic(mac(1), 3, 1, kTraffic, at(60));
    EXPECT_EQ(tables.overflow().rows, 2 * kMost + 1);
}

TEST(Tables, NumbersAreUniqueAndNotReusedAtOnce) {
    Tables tables;
    std::set<int> uids;
    for (std::uint32_t i = 0; i < kMaxUsers; ++i)
        uids.insert(tables.seeUser(mac(i), at(10))->uid);
    EXPECT_EQ(uids.size(), kMaxUsers);
    EXPECT_EQ(tables.seeUser(mac(100), at(20)), nullptr);
    EXPECT_EQ(tables.seeUser(mac(100), at(20), kHasEarned)->uid, 64) << "somebody has left for it";
    for (std::uint32_t turn = 1; turn <= 192; ++turn) {
        tables.forgetUnseen(at(100 * turn), 20);
        const int next = tables.seeUser(mac(turn), at(100 * turn))->uid;
        ASSERT_EQ(next, turn < 192 ? 64 + turn : 1U) << "free for longest";
    }
}

TEST(Tables, ADeviceThatGetsItsPlaceAtOnceWasNotRefused) {
    Tables tables;
    for (std::uint32_t i = 0; i < kMaxUsers; ++i)
        tables.seeUser(mac(i), at(10), i == 0 ? kNoEvidence : kHasEarned);
    EXPECT_NE(tables.seeUser(mac(100), at(20), kHasEarned), nullptr);
    EXPECT_FALSE(tables.overflow().any());
    EXPECT_EQ(tables.seeUser(mac(101), at(20), kHasEarned), nullptr);
    EXPECT_EQ(tables.overflow().users, 1U);
}

} // namespace
} // namespace idpfwd
