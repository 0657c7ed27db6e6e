#include "analytics/awsjson_util.h"

#include <array>
#include <bit>
#include <gtest/gtest.h>

TEST(GroupRetry, TheFirstFailureAndTheFirstDueResendOfAnyGroupAskForARetry) {
    const std::pair<group_retry, int> rows[] = {
        {{1, 0, 0, 0}, 1}, {{2, 0, 0, 0}, 0}, {{0, 1, 1, 0}, 1}, {{0, 2, 7, 0}, 0}};
    for (int group = 0; group < 5; ++group) {
        for (const auto &[counters, asks] : rows) {
            g_group_retry[group] = counters;
            EXPECT_EQ(is_group_need_to_retry(), asks);
            for (int any = -1; any <= 5; ++any)
                EXPECT_EQ(is_ra_need_retry_by_group(any), any == group);
        }
        EXPECT_EQ(is_group_retry_flag_isset(), 1);
        g_group_retry[group] = {};
    }
    EXPECT_EQ(is_group_need_to_retry() + is_group_retry_flag_isset(), 0);
}

TEST(GroupRetry, TicksCountInRetryModeAndALimitThatWasLoweredIsPassedBy) {
    using Counters = std::array<uint32_t, 4>; // failures, due, mode, ticks
    const std::pair<Counters, Counters> rows[] = {
        {{1, 0, 0, 2}, {1, 0, 0, 2}}, {{0, 3, 2, 2}, {0, 1, 2, 0}}, {{0, 0, 1, 3}, {0, 0, 1, 4}}};
    for (const auto &[before, after] : rows) {
        g_group_retry[4] = std::bit_cast<group_retry>(before);
        EXPECT_EQ(set_group_retry_counter(3), 0);
        EXPECT_EQ(std::bit_cast<Counters>(g_group_retry[4]), after);
    }
    g_group_retry[4] = {0, 0, 1, UINT32_MAX};
    set_group_retry_counter(0); // no limit
    EXPECT_EQ(g_group_retry[4].retry_due, 0u);
    g_group_retry[4] = {};
}
