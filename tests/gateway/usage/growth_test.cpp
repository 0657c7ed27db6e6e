#include "history_rig.h"
#include "usage/store/slot.h"

#include <random>

namespace usage::testing {
namespace {

constexpr Bytes kHuge{UINT64_MAX, UINT64_MAX};

TEST(GrowthTest, IsTheDifferenceOrAllOfACounterThatBeganAnew) {
    struct Case {
        const char *what;
        std::optional<Bytes> previous;
        Bytes now;
        Bytes growth;
    };
    for (const Case &row : {Case{"first", {}, {7, 5}, {7, 5}},
                            {"same", Bytes{7, 5}, {7, 5}, {0, 0}},
                            {"grown", Bytes{7, 5}, {9, 5}, {2, 0}},
                            {"down backwards", Bytes{7, 5}, {6, 9}, {6, 9}},
                            {"up backwards", Bytes{7, 5}, {70, 4}, {70, 4}},
                            {"beyond 32 bits", Bytes{UINT32_MAX, 0}, {1ULL << 32U, 0}, {1, 0}},
                            {"huge", Bytes{0, 0}, kHuge, kHuge}})
        EXPECT_EQ(growth(row.previous ? &*row.previous : nullptr, row.now), row.growth) << row.what;
    Bytes sum = kHuge;
    sum += {1, 1};
    EXPECT_EQ(sum, kHuge);
}

class StayTest : public ::testing::Test {
  protected:
    Bytes advanceBy(const std::vector<std::pair<Stay, Bytes>> &counters, std::uint64_t life = 1) {
        Reading reading;
        reading.life = life;
        for (const auto &[stay, bytes] : counters) {
            reading.rows.push_back({reading.users.size(), {1, 1}, bytes});
            reading.users.push_back({stay, ""});
        }
        Bytes sum;
        for (const Grown &grown : advance(baseline, reading, ++time))
            sum += grown.bytes;
        return sum;
    }
    Baseline baseline;
    Seconds time = 1;
    const Stay first{macOf(1), 100};
    const Stay again{macOf(1), 200};
};

TEST_F(StayTest, AReturningDeviceBeginsAnewAndAMissingAnswerDoesNot) {
    EXPECT_EQ(advanceBy({{first, {10, 1}}}), (Bytes{10, 1}));
    EXPECT_EQ(advanceBy({}), Bytes{});                       // gone
    EXPECT_EQ(advanceBy({{first, {12, 1}}}), (Bytes{2, 0})); // it was the same stay all the time
    EXPECT_EQ(advanceBy({{again, {15, 3}}}), (Bytes{15, 3}));
    EXPECT_EQ(advanceBy({{again, {16, 3}}}, 0), (Bytes{1, 0}));  // an engine that doesn't tell
    EXPECT_EQ(advanceBy({{again, {20, 3}}}, 2), (Bytes{20, 3})); // another life, larger by chance
}

TEST_F(StayTest, WhatIsMissingIsRememberedWithinBounds) {
    for (std::uint32_t i = 0; i < 1000; ++i)
        advanceBy({{{macOf(i), 1}, {1, 1}}});
    EXPECT_EQ(baseline.stays.size(), 257U);
    time += 2 * kDaySeconds;
    advanceBy({{first, {1, 1}}});
    EXPECT_EQ(baseline.stays.size(), 1U);
}

Traffic someTraffic() {
    return {{{0, 0}, {1, 2}},
            {{3, 1}, kHuge},
            {{3, 2}, {0, 0}},
            {{UINT32_MAX, UINT32_MAX}, {128, 127}}};
}

TEST(PackingTest, WhatWasPackedComesBackAndNothingElseDoes) {
    for (const Traffic &traffic : {Traffic{}, someTraffic()})
        EXPECT_EQ(unpackTraffic(packTraffic(traffic)), traffic);
    Baseline baseline{.life = UINT64_MAX, .stays = {}};
    baseline.stays[{macOf(9), UINT32_MAX}] = {.seen = 5, .counters = {{{255, 65535}, kHuge}}};
    EXPECT_EQ(unpackBaseline(packBaseline(baseline)), baseline);
    const Packed good = packTraffic(someTraffic());
    for (std::size_t i = 0; i < good.size(); ++i) {
        Packed bad = good;
        bad[i] ^= 1U;
        EXPECT_FALSE(unpackTraffic(bad)) << i;
        EXPECT_FALSE(unpackTraffic(PackedView(good).first(i))) << i;
    }
}

TEST(PackingTest, TheDocumentedExampleIsWhatIsWritten) {
    EXPECT_EQ(packTraffic({{{1, 2}, {300, 5}}, {{3, 2}, {1, 1}}}),
              (Packed{0x01, 0x02, 0x01, 0x01, 0x02, 0xAC, 0x02, 0x05, 0x02, 0x01, 0x02, 0x01, 0x01,
                      0x05, 0x0E, 0x37, 0xAB}));
}

TEST(PackingTest, RefusesFormsThatNobodyWrites) {
    const auto withSum = [](std::initializer_list<std::uint64_t> numbers) {
        Packer packer;
        for (const std::uint64_t number : numbers)
            packer.number(number);
        return packer.finish();
    };
    EXPECT_TRUE(unpackTraffic(withSum({1, 1, 0, 1, 0, 5, 6})));
    EXPECT_FALSE(unpackTraffic(withSum({2, 0}))) << "version";
    EXPECT_FALSE(unpackTraffic(withSum({1, 2, 1, 0, 0, 0}))) << "a device twice";
    EXPECT_FALSE(unpackTraffic(withSum({1, 1, 1, 2, 1, 5, 6, 0, 5, 6}))) << "an application twice";
    EXPECT_FALSE(unpackTraffic(withSum({1, 1, 1ULL << 32U, 0}))) << "a number too large";
    EXPECT_FALSE(unpackTraffic(withSum({1, UINT64_MAX}))) << "devices that are not there";
    EXPECT_FALSE(unpackTraffic(withSum({1, 0, 0}))) << "bytes behind the end";
    Packer overlong;
    for (int i = 0; i < 11; ++i)
        overlong.byte(0x80);
    EXPECT_FALSE(unpackTraffic(overlong.finish())) << "a number without an end";
}

} // namespace
} // namespace usage::testing
