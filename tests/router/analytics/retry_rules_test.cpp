#include "analytics/retry_rules.h"

#include <array>
#include <bit>
#include <gtest/gtest.h>

// The rules by which the counters move, as fail_count, retry_due, retry_mode and retry_ticks
// before and after a step.
TEST(RetryRules, EachStepMovesExactlyTheCountersThatItsRuleNames) {
    using Counters = std::array<uint32_t, 4>;
    using Step = bool (*)(group_retry &); // true: the group has given up
    constexpr Step iot = count_iot_failure;
    constexpr Step mcs = count_mcs_failure;
    const struct {
        Step failure; // or else a tick of three
        Counters before, after;
        bool given_up = false;
    } rows[] = {
        {iot, {3, 2, 0, 7}, {0, 2, 1, 7}},       {iot, {0, 3, 1, 7}, {0, 0, 0, 7}, true},
        {iot, {0, 0, 2, 7}, {1, 0, 2, 7}}, // in retry mode is exactly 1 here
        {mcs, {2, 2, 1, 7}, {3, 2, 1, 7}}, // and never looked at here
        {mcs, {3, 2, 1, 7}, {0, 2, 1, 7}, true}, {nullptr, {1, 0, 0, 2}, {1, 0, 0, 2}},
        {nullptr, {0, 3, 2, 2}, {0, 1, 2, 0}},   {nullptr, {0, 0, 1, 3}, {0, 0, 1, 4}},
    };
    for (const auto &row : rows) {
        auto retry = std::bit_cast<group_retry>(row.before);
        if (row.failure != nullptr)
            EXPECT_EQ(row.failure(retry), row.given_up);
        else
            count_tick(retry, 3);
        EXPECT_EQ(std::bit_cast<Counters>(retry), row.after) << "row " << &row - rows;
    }
}
