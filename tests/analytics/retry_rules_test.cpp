#include "analytics/retry_rules.h"

#include <gtest/gtest.h>
#include <tuple>

namespace {

// fail_count, retry_due, retry_mode and retry_ticks before and after a step.
struct Row {
    group_retry before, after;
    int detail; // whether the group has given up; the limit of a tick
};

void expectEqual(const group_retry &actual, const Row &row) {
    EXPECT_EQ(
        std::make_tuple(actual.fail_count, actual.retry_due, actual.retry_mode, actual.retry_ticks),
        std::make_tuple(row.after.fail_count, row.after.retry_due, row.after.retry_mode,
                        row.after.retry_ticks))
        << "from " << row.before.fail_count << " " << row.before.retry_due;
}

} // namespace

TEST(RetryRules, IotFailuresLeadIntoRetryModeAndThenToGivingUp) {
    const Row rows[] = {
        {{0, 0, 0, 0}, {1, 0, 0, 0}, 0}, {{2, 0, 0, 7}, {3, 0, 0, 7}, 0},
        {{3, 0, 0, 7}, {0, 0, 1, 7}, 0}, {{0, 0, 1, 7}, {0, 1, 1, 7}, 0},
        {{0, 2, 1, 0}, {0, 3, 1, 0}, 0}, {{0, 3, 1, 7}, {0, 0, 0, 7}, 1},
        {{3, 2, 0, 0}, {0, 2, 1, 0}, 0}, {{3, 0, 1, 0}, {3, 1, 1, 0}, 0},
        {{0, 0, 2, 0}, {1, 0, 2, 0}, 0}, // in retry mode is exactly 1 here
    };
    for (const auto &row : rows) {
        group_retry retry = row.before;
        EXPECT_EQ(count_iot_failure(retry), row.detail == 1);
        expectEqual(retry, row);
    }
}

TEST(RetryRules, McsFailuresNeverLeadIntoRetryMode) {
    const Row rows[] = {
        {{0, 0, 0, 0}, {1, 0, 0, 0}, 0},
        {{2, 2, 1, 7}, {3, 2, 1, 7}, 0},
        {{3, 2, 1, 7}, {0, 2, 1, 7}, 1},
    };
    for (const auto &row : rows) {
        group_retry retry = row.before;
        EXPECT_EQ(count_mcs_failure(retry), row.detail == 1);
        expectEqual(retry, row);
    }
}

TEST(RetryRules, TicksCountInRetryModeOnlyAndFireWhenTheyEqualTheLimit) {
    const Row rows[] = {
        {{1, 0, 0, 2}, {1, 0, 0, 2}, 3},
        {{0, 0, 1, 1}, {0, 0, 1, 2}, 3},
        {{0, 0, 1, 2}, {0, 1, 1, 0}, 3},
        {{0, 3, 2, 2}, {0, 1, 2, 0}, 3},
        {{0, 0, 1, 3}, {0, 0, 1, 4}, 3},
        {{0, 0, 1, UINT32_MAX}, {0, 0, 1, 0}, 0},
        {{0, 0, 1, UINT32_MAX - 1}, {0, 0, 1, UINT32_MAX}, -1},
    };
    for (const auto &row : rows) {
        group_retry retry = row.before;
        count_tick(retry, row.detail);
        expectEqual(retry, row);
    }
}
