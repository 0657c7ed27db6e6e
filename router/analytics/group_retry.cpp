#include "analytics/group_retry.h"

#include "analytics/retry_rules.h"

#include <algorithm>

struct group_retry g_group_retry[kGroups] = {};

int is_ra_report_need_update_by_group(int group) {
    return is_group(group) && is_unsent(g_group_retry[group]) ? 1 : 0;
}

int is_ra_need_retry_by_group(int group) {
    return is_ra_report_need_update_by_group(group);
}

// Exactly 1, deliberately: a second failure in a row does not ask for a resend by itself.
int is_group_need_to_retry(void) {
    return std::ranges::any_of(g_group_retry, [](const group_retry &retry) {
        return retry.fail_count == 1 || retry.retry_due == 1;
    });
}

int is_group_retry_flag_isset(void) {
    return std::ranges::any_of(g_group_retry,
                               [](const group_retry &retry) { return retry.retry_mode != 0; });
}

int set_group_retry_counter(int limit) {
    for (auto &retry : g_group_retry)
        count_tick(retry, limit);
    return 0;
}
