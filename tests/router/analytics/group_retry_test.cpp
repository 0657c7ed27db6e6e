#include "analytics/awsjson_util.h"

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
}
