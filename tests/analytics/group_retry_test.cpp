#include "analytics/awsjson_util.h"

#include <climits>
#include <gtest/gtest.h>

class GroupRetry : public testing::Test {
  protected:
    void SetUp() override {
        for (auto &retry : g_group_retry)
            retry = {};
    }
};

TEST_F(GroupRetry, EveryGroupIsSeenByItsOwnTestsAndByTheCommonOnes) {
    const struct {
        group_retry counters;
        int needsUpdate;
        int needsRetry;
        int isInRetryMode;
    } rows[] = {
        {{0, 0, 0, 9}, 0, 0, 0}, {{1, 0, 0, 0}, 1, 1, 0}, {{2, 0, 0, 0}, 1, 0, 0},
        {{0, 1, 1, 0}, 1, 1, 1}, {{0, 2, 1, 0}, 1, 0, 1}, {{0, 0, 7, 0}, 0, 0, 1},
    };
    for (int group = 0; group < 5; ++group) {
        for (const auto &row : rows) {
            g_group_retry[group] = row.counters;
            for (int other = -1; other <= 5; ++other) {
                const int expected = other == group ? row.needsUpdate : 0;
                EXPECT_EQ(is_ra_report_need_update_by_group(other), expected);
                EXPECT_EQ(is_ra_need_retry_by_group(other), expected);
            }
            EXPECT_EQ(is_group_need_to_retry(), row.needsRetry);
            EXPECT_EQ(is_group_retry_flag_isset(), row.isInRetryMode);
        }
        g_group_retry[group] = {};
    }
    EXPECT_EQ(is_ra_report_need_update_by_group(INT_MIN), 0);
}

TEST_F(GroupRetry, ATickIsForEveryGroupInRetryMode) {
    g_group_retry[0].retry_mode = g_group_retry[4].retry_mode = 1;
    for (int tick = 0; tick < 3; ++tick) {
        EXPECT_EQ(is_group_need_to_retry(), 0);
        EXPECT_EQ(set_group_retry_counter(3), 0);
    }
    EXPECT_EQ(is_group_need_to_retry(), 1);
    for (const int group : {0, 4}) {
        EXPECT_EQ(g_group_retry[group].retry_due, 1u);
        EXPECT_EQ(g_group_retry[group].retry_ticks, 0u);
    }
    EXPECT_EQ(g_group_retry[1].retry_ticks, 0u);
}
