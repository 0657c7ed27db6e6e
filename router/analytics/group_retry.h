/*
 * The failure and retry counters of the five report groups, and what a scheduler needs of them.
 *
 * Called once a tick while is_group_retry_flag_isset() is 1, set_group_retry_counter() marks a
 * resend as due every so many ticks; a group that needs an update is sent its unsent file again.
 */
#ifndef ANALYTICS_GROUP_RETRY_H
#define ANALYTICS_GROUP_RETRY_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct group_retry {
    uint32_t fail_count;  /* failures in a row outside retry mode; at 4 the group enters it */
    uint32_t retry_due;   /* 1 when a resend is due, counted up by each further failure */
    uint32_t retry_mode;  /* non-zero in retry mode */
    uint32_t retry_ticks; /* ticks counted in retry mode towards the next resend */
};

/* Indexed by group, all zero from the start; lives in memory only. */
extern struct group_retry g_group_retry[5];

/*
 * 1 when the group's last report is still unsent (fail_count or retry_due is not 0), so that its
 * file is sent again instead of a new one being written; else 0. A group outside 0 to 4 gives 0.
 * Two names of the same test.
 */
int is_ra_report_need_update_by_group(int group);
int is_ra_need_retry_by_group(int group);

/* 1 when a fail_count or a retry_due of any group is exactly 1, else 0. */
int is_group_need_to_retry(void);

/* 1 when any group is in retry mode, else 0. */
int is_group_retry_flag_isset(void);

/*
 * One tick for every group in retry mode; the tick that makes limit sets retry_due to 1 and starts
 * to count again. A limit below 1 is never reached. Always 0.
 */
int set_group_retry_counter(int limit);

#ifdef __cplusplus
}
#endif

#endif
