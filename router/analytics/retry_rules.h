// How one group's counters move. Nothing here prints, runs or writes anything.
//
//   state        fail_count  retry_due  retry_mode  moves on
//   normal       0           0          0           failure: failing
//   failing      1 to 3      0          0           4th failure in a row: retry mode
//   retry mode   0           0          1           the interval runs out: resend due
//   resend due   0           1 to 3     1           retry_due reaches 4: gives up, normal
//
// An IoT success leads from anywhere to normal. An MCS failure or success moves fail_count alone,
// so that MCS by itself never enters retry mode: its 4th failure in a row gives up at once.
#pragma once

#include "analytics/group_retry.h"

inline namespace routerutil {

constexpr int kGroups = 5;

constexpr bool is_group(int group) {
    return group >= 0 && group < kGroups;
}

bool is_unsent(const group_retry &retry);

void count_tick(group_retry &retry, int limit);

// The failures tell whether the group has given up.
[[nodiscard]] bool count_iot_failure(group_retry &retry);
[[nodiscard]] bool count_mcs_failure(group_retry &retry);

void count_iot_success(group_retry &retry);
void count_mcs_success(group_retry &retry);

} // namespace routerutil
