#include "analytics/retry_rules.h"

inline namespace routerutil {

namespace {
constexpr uint32_t kAttempts = 4;
}

bool is_unsent(const group_retry &retry) {
    return retry.fail_count != 0 || retry.retry_due != 0;
}

void count_tick(group_retry &retry, int limit) {
    if (retry.retry_mode == 0)
        return;
    ++retry.retry_ticks;
    // Equal, deliberately: a limit that was lowered below the ticks counted so far is passed by.
    if (limit > 0 && retry.retry_ticks == static_cast<uint32_t>(limit)) {
        retry.retry_due = 1; // also when failures had counted it up
        retry.retry_ticks = 0;
    }
}

bool count_iot_failure(group_retry &retry) {
    if (retry.retry_mode == 1)
        ++retry.retry_due;
    else
        ++retry.fail_count;
    if (retry.fail_count == kAttempts) {
        retry.retry_mode = 1;
        retry.fail_count = 0;
    }
    if (retry.retry_due != kAttempts)
        return false;
    retry.retry_mode = 0;
    retry.retry_due = 0;
    return true;
}

bool count_mcs_failure(group_retry &retry) {
    if (++retry.fail_count != kAttempts)
        return false;
    retry.fail_count = 0;
    return true;
}

// retry_ticks stays, deliberately: the next retry mode goes on counting from there.
void count_iot_success(group_retry &retry) {
    retry.fail_count = 0;
    retry.retry_due = 0;
    retry.retry_mode = 0;
}

void count_mcs_success(group_retry &retry) {
    retry.fail_count = 0;
}

} // namespace routerutil
