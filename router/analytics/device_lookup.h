/*
 * What the DPI engine's device identifiers stand for, and small decisions about this router that
 * the analytics reports need.
 */
#ifndef ANALYTICS_DEVICE_LOOKUP_H
#define ANALYTICS_DEVICE_LOOKUP_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The traffic usage report that the traffic usage daemon leaves for the uploader. */
#define TRAFFIC_USAGE_REPORT_FILE "/tmp/aws_json_dir/aws_traffic_usage_details.json"

/* The identity of one client. */
struct QosDetail {
    uint32_t dev_id;
    char device_name[64]; /* "Unknown" when the database has no such device */
    char device_type[64]; /* "unknown" */
    char vendor_name[64]; /* "unknown" */
};

/*
 * Copy the device type, the vendor and the device name that the engine's device type database has
 * for these identifiers; without a match "unknown", "unknown" and "Unknown" (callers rely on the
 * difference). At most size - 1 bytes of dst are written, the unused of them as zeros; byte
 * size - 1 is never written, so dst must come zeroed. A size below 1 copies nothing. The database
 * file is read again by every call. The result is 0.
 */
int getDeviceTypeByDeviceId(int vendor_id, int type_id, char *dst, int size);
int getVendorTypeByDeviceId(int vendor_id, int type_id, char *dst, int size);
int getDeviceNameByDeviceId(int vendor_id, int type_id, int dev_id, char *dst, int size);

/*
 * Fills *detail, which must come zeroed, with the identity of the client that has this MAC address
 * (first byte first) in the engine's user table, and prints it; leaves it untouched when the table
 * has no such client among its first 63. The result is that of get_fw_user_list, match or not.
 */
int getQosDetailByMac(struct QosDetail *detail, const unsigned char mac[6]);

/*
 * Writes the label of the hardware revision in the setting "hw_rev" into out, at least 14 bytes:
 * "V1", "V1H2", "QorvoCostDown", or "" for any other. Returns out.
 */
char *get_hwRevision(char *out);

/*
 * Whether there is a traffic usage report to hand over: 1 when the report's file exists and
 * "enable_trafficUsageDetails" is "1" and "sku_name" is "NA", else 0. With the switch off the file
 * is deleted.
 */
int ra_need_update_traffic_usage_details(void);

#ifdef __cplusplus
}
#endif

#endif
