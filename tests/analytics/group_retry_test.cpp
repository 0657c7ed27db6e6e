#include "analytics/awsjson_util.h"

#include <gtest/gtest.h>

TEST(GroupRetry, EveryGroupIsSeenByItsOwnTestsAndByTheCommonOnes) {
    const struct {
        group_retry counters;
        int needsUpdate, needsRetry, isInRetryMode;
    } rows[] = {
        {{0, 0, 0, 9}, 0, 0, 0}, {{1, 0, 0, 0}, 1, 1, 0}, {{2, 0, 0, 0}, 1, 0, 0},
        {{0, 1, 1, 0}, 1, 1, 1}, {{0, 2, 1, 0}, 1, 0, 1}, {{0, 0, 7, 0}, 0, 0, 1},
    };
    for (int group = 0; group < 5; ++group) {
        for (const auto &row : rows) {
            g_group_retry[group] = row.counters;
            for (int any = -1; any <= 5; ++any) {
                EXPECT_EQ(is_ra_report_need_update_by_group(any), any == group && row.needsUpdate);
                EXPECT_EQ(is_ra_need_retry_by_group(any), any == group && row.needsUpdate);
            }
            EXPECT_EQ(is_group_need_to_retry(), row.needsRetry);
            EXPECT_EQ(is_group_retry_flag_isset(), row.isInRetryMode);
        }
        EXPECT_EQ(set_group_retry_counter(1), 0); // the last row's group is in retry mode
        EXPECT_EQ(g_group_retry[group].retry_due, 1u);
        g_group_retry[group] = {};
    }
}
