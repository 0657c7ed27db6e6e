#include "analytics/retry_rules.h"

#include <gtest/gtest.h>

namespace {

std::string text(const group_retry &retry) {
    return std::to_string(retry.fail_count) + "/" + std::to_string(retry.retry_due) + "/" +
           std::to_string(retry.retry_mode) + "/" + std::to_string(retry.retry_ticks);
}

struct Row {
    group_retry before;
    const char *after; // fail_count/retry_due/retry_mode/retry_ticks
    bool givenUp;
};

} // namespace

TEST(RetryRules, IotFailuresLeadIntoRetryModeAndThenToGivingUp) {
    const Row rows[] = {
        {{0, 0, 0, 0}, "1/0/0/0", false}, {{2, 0, 0, 7}, "3/0/0/7", false},
        {{3, 0, 0, 7}, "0/0/1/7", false}, {{0, 0, 1, 7}, "0/1/1/7", false},
        {{0, 1, 1, 0}, "0/2/1/0", false}, {{0, 2, 1, 0}, "0/3/1/0", false},
        {{0, 3, 1, 7}, "0/0/0/7", true},  {{3, 2, 0, 0}, "0/2/1/0", false},
        {{3, 0, 1, 0}, "3/1/1/0", false}, {{0, 0, 2, 0}, "1/0/2/0", false},
    };
    for (auto row : rows) {
        const std::string before = text(row.before);
        EXPECT_EQ(count_iot_failure(row.before), row.givenUp) << before;
        EXPECT_EQ(text(row.before), row.after) << before;
    }
}

TEST(RetryRules, McsFailuresNeverLeadIntoRetryMode) {
    const Row rows[] = {
        {{0, 0, 0, 0}, "1/0/0/0", false},
        {{2, 2, 1, 7}, "3/2/1/7", false},
        {{3, 2, 1, 7}, "0/2/1/7", true},
    };
    for (auto row : rows) {
        const std::string before = text(row.before);
        EXPECT_EQ(count_mcs_failure(row.before), row.givenUp) << before;
        EXPECT_EQ(text(row.before), row.after) << before;
    }
}

TEST(RetryRules, AnIotSuccessClearsAllButTheTicksAndAnMcsSuccessTheFailuresOnly) {
    group_retry iot = {3, 2, 1, 7};
    group_retry mcs = iot;
    count_iot_success(iot);
    EXPECT_EQ(text(iot), "0/0/0/7");
    count_mcs_success(mcs);
    EXPECT_EQ(text(mcs), "0/2/1/7");
}

TEST(RetryRules, TicksCountInRetryModeOnlyAndFireWhenTheyEqualTheLimit) {
    const struct {
        group_retry before;
        int limit;
        const char *after;
    } rows[] = {
        {{1, 0, 0, 2}, 3, "1/0/0/2"},
        {{0, 0, 1, 1}, 3, "0/0/1/2"},
        {{0, 0, 1, 2}, 3, "0/1/1/0"},
        {{0, 3, 2, 2}, 3, "0/1/2/0"},
        {{0, 0, 1, 3}, 3, "0/0/1/4"},
        {{0, 0, 1, 0xffffffff}, 0, "0/0/1/0"},
        {{0, 0, 1, 0xfffffffe}, -1, "0/0/1/4294967295"},
    };
    for (auto row : rows) {
        const std::string before = text(row.before);
        count_tick(row.before, row.limit);
        EXPECT_EQ(text(row.before), row.after) << before;
    }
}
