/*
 * Publishes analytics reports in five groups, 0 to 4, by the AWS IoT or the MCS publisher, and
 * keeps a failed report to be sent again.
 */
#ifndef ANALYTICS_GROUP_PUBLISH_H
#define ANALYTICS_GROUP_PUBLISH_H

#include "group_retry.h"

#include <cjson/cJSON.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The caller's device information; only the client identifier is used here. */
struct ra_device_info {
    char client_id[128];
};

/* Shared update information; this library only reads it. "IoT" and "MCS" publish, others do not. */
struct dri_update_info {
    char publish_method[16];
};
extern struct dri_update_info DRI_update_info;

/*
 * Writes the document (the caller's, never freed) to the group's report file
 * "/tmp/aws_json_dir/aws_Z5150_<group>.json", unless an earlier report is still unsent, which is
 * then sent again while the document is dropped. Runs the publisher from the root directory (IoT's
 * with the client identifier of device_info, which nothing else looks at), waits for it, and judges
 * its output, which moves the group's counters. What has been sent, or given
 * up, is settled: group 1 clears connection facts 1 and 2, group 2 finishes the firmware-upgrade
 * report, group 4 sets "RA_useroption_report" (where the two publishers differ is at the code).
 *
 * A client identifier or root directory with which no command can be run (it does not fit into 511
 * characters, or the directory would read as a variable assignment) ends the send without a
 * verdict.
 *
 * 0 whatever became of the publication; -1 for a group outside 0 to 4; -3 when the report file
 * cannot be created or the document cannot be printed for want of memory: nothing is published
 * then.
 */
int ra_send_json_to_cloud_by_group(const struct ra_device_info *device_info, cJSON *document,
                                   int group);

/*
 * Clears the group's fail_count, retry_due and retry_mode and settles its report: group 1 clears
 * connection facts 1 and 2, group 2 finishes the firmware-upgrade report, group 4 sets
 * "RA_useroption_report" to "1". A group outside 0 to 4 changes nothing. Always 0.
 */
int reset_group_retry_flag_by_group(int group);

#ifdef __cplusplus
}
#endif

#endif
