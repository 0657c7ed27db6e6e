/*
 * The QoS service's report of one device: its priority, types and totals, and the applications that
 * it used, read from "/tmp/iqos_detail". All lines of these functions are always printed.
 */
#ifndef SYSUTIL_APP_DETAIL_H
#define SYSUTIL_APP_DETAIL_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * A device. Texts come with the blank that precedes them in the report and are cut at 31
 * characters; totals are in bytes.
 */
struct iqos_detail {
    int default_priority;
    int dev_type_id; /* 0 to 51 */
    char dev_type_name[32];
    char trend_dev_name[32];
    int trend_dev_type_id;
    char trend_dev_type_name[32];
    int app_count;
    double total_diff_down_byte;
    double total_diff_up_byte;
    double total_diff_traffic;
};

/* An application that the device used. The name as above. */
struct dev_app {
    char app_name[32];
    double down_diff_byte;
    double down_diff_pkt;
    double up_diff_byte;
    double up_diff_pkt;
    int last_used_ts; /* seconds since the epoch */
};

/* Node of a list that the caller owns by a pointer to its first node, null when it is empty. */
struct devAppNode {
    struct dev_app data;
    struct devAppNode *next; /* null at the tail */
};

/*
 * Fills *out from the device's section, all zero where the report says nothing, and prints it. The
 * section is the first that names the device by this MAC text, in letters of either case; without
 * its last line, "total_diff_traffic", it reaches to the end of the report. Always 0; *out is
 * unchanged when there is no report.
 */
int getIQoSDetailBymac(struct iqos_detail *out, const char *mac_text);

/*
 * Appends the device's applications to the list in the report's order and prints the whole list. A
 * value that an application's block does not give is that of the block before. Always 0. Free the
 * list with removeAllAppNodes.
 */
int getIQoSAppListBymac(struct devAppNode **head, const char *mac_text);

/* Print every field of a device, and of every application from a node on. */
void print_iqos_config_detail(struct iqos_detail detail);
void print_all_iqos_app_detail(struct devAppNode *first);

/* Allocates a node, all zero, into *node. 0, or -1 with *node null. */
int createDevAppNode(struct devAppNode **node);

/* Appends a copy of the record. 0, or -1 with the list unchanged when memory is short. */
int addDevAppNodeToList(struct devAppNode **head, struct dev_app record);

/* Frees every node and empties the list. 0, or -1 with a message when it is empty already. */
int removeAllAppNodes(struct devAppNode **head);

#ifdef __cplusplus
}
#endif

#endif
