/*
 * Requests to the deep-packet-inspection engine behind "/dev/idpfw". The header and the records
 * are shared with the kernel module: every width and offset is fixed, records follow each other
 * without padding.
 *
 * Byte order: on the little-endian machines that the engine runs on there is nothing to convert.
 * The records are little-endian by their format, so code that wants to be ready for others converts
 * what it reads of them (le16toh and the like). The header is not: its numbers are in the machine's
 * own order, as its pointers are, and so is *out_used_len.
 */
#ifndef DPI_USR_IOCTL_H
#define DPI_USR_IOCTL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define IDPFW_DEVICE "/dev/idpfw"
#define IDPFW_MAGIC 191u

/* Command groups (nr of the header). */
#define IDPFW_NR_USER 10u
#define IDPFW_NR_APP 12u
#define IDPFW_NR_DOMAIN 14u
#define IDPFW_NR_VP 15u

/*
 * ioctl request number of a command group: the _IOWR encoding with the size of the 32-bit header,
 * 44 bytes, whatever the caller's own pointer width is.
 */
#define IDPFW_REQUEST(nr) (0xC02CBF00ul + (nr))

/* Slots of the tables that the engine fills: one more than a caller looks at. */
#define IDPFW_USER_SLOTS 64
#define IDPFW_APP_SLOTS 32257

/*
 * Request header, passed by address as the argument of the ioctl. Start from all zero and set only
 * the fields that a command names. 44 bytes where pointers have 32 bits.
 */
struct forward_ioctl {
    uint32_t magic; /* IDPFW_MAGIC */
    uint8_t nr;
    uint8_t op;
    uint8_t rsv;
    uint8_t in_type; /* 0 no input, 2 in_raw and in_len */
    __extension__ union {
        void *in_raw;
        uint32_t in_u32;
    };
    uint32_t in_len;
    void *out;
    uint32_t *out_used_len; /* where the engine stores how many bytes of out it wrote */
    uint32_t out_len;
    uint8_t rsv2[16];
};

/* The six identifiers of a device: keys of the device type database. */
struct devid_os_detail {
    uint16_t vendor_id;
    uint16_t os_id;
    uint16_t class_id;
    uint16_t type_id;
    uint16_t dev_id;
    uint16_t family_id;
} __attribute__((packed));

struct devid_os {
    struct devid_os_detail detail;
    uint16_t de_prio; /* priority of the identification */
    uint8_t update;
    uint32_t update_time;
} __attribute__((packed));

/* One client device known to the engine. */
struct devid_user_entry {
    uint8_t uid; /* joins application rows to users */
    uint8_t mac[6];
    uint8_t ipv4[4];
    uint8_t ipv6[16];
    char host_name[32]; /* NUL-padded */
    struct devid_os os;
    uint32_t ts;        /* last activity, seconds */
    uint32_t ts_create; /* creation, seconds */
    uint32_t available; /* 0 ends the list */
} __attribute__((packed));

/* One application's accumulated traffic for one user. */
struct devid_app_rate_entry {
    uint8_t uid;
    uint8_t cat_id;
    uint16_t app_id;
    uint32_t last_elapsed_ts; /* last traffic, seconds */
    uint64_t down_accl_byte;
    uint32_t down_accl_pkt;
    uint64_t up_accl_byte;
    uint32_t up_accl_pkt;
    uint32_t available; /* 0 ends the list */
} __attribute__((packed));

/*
 * Carries one request to the engine: opens the device, issues the ioctl, closes the device.
 * 0 on success, -1 when the device cannot be opened, -2 when the ioctl fails.
 */
int run_ioctl(unsigned long request, struct forward_ioctl *header);

/*
 * Reads the engine's user table: *output becomes an array of IDPFW_USER_SLOTS records, zero from
 * where the engine stopped writing. Walk it to the first record whose available is 0, at most 63.
 * The caller frees *output with free(), whatever the result. Result of run_ioctl, or -1 with
 * *output NULL when there is no memory.
 */
int get_fw_user_list(struct devid_user_entry **output);

/*
 * Reads the engine's counters per user and application, like get_fw_user_list: *output becomes an
 * array of IDPFW_APP_SLOTS records, of which a caller walks at most 32,256.
 */
int get_fw_user_app_rate(struct devid_app_rate_entry **output);

/* Recent traffic of one application of one user. */
struct devid_app_bw_entry {
    uint8_t uid;
    uint8_t cat_id;
    uint16_t app_id;
    uint64_t down_recent; /* bytes */
    uint64_t up_recent;   /* bytes */
    uint32_t available;   /* 0 ends the list */
} __attribute__((packed));

/* One entry of the application patrol list. */
struct devid_app_patrol_list_entry {
    uint8_t uid;
    uint8_t mac[6];
    uint8_t cat_id;
    uint16_t app_id;
    uint32_t time; /* seconds */
    uint8_t flag;
    uint32_t available; /* 0 ends the list */
} __attribute__((packed));

/*
 * Read the recent traffic, which the engine then clears, and the application patrol list, like
 * get_fw_user_app_rate: arrays of IDPFW_APP_SLOTS records, of which a caller walks at most 32,256.
 */
int get_fw_app_bw_clear(struct devid_app_bw_entry **output);
int get_fw_app_patrol(struct devid_app_patrol_list_entry **output);

/*
 * Set the application patrol list, and program the VP checks, from length bytes of input in the
 * engine's own format. 0, or -1 on any failure (never -2).
 */
int set_fw_app_patrol(void *input, unsigned int length);
int set_fw_vp(void *input, unsigned int length);

/* Sizes in bytes of the buffers that the four readers below allocate. */
#define IDPFW_DOMAIN_LIST_SIZE 680508u
#define IDPFW_URL_LIST_SIZE 39504u
#define IDPFW_VP_LIST_SIZE 29000u
#define IDPFW_ANOMALY_LIST_SIZE 9504u

/*
 * Read a list in the engine's own format: *output becomes a zeroed buffer that the engine writes
 * into, *buf_used_len is where the engine itself stores how many bytes it wrote. That pointer is
 * handed on as it is, NULL included, and the buffer is left as the engine left it: set
 * *buf_used_len to 0 before the call, it is undefined after a failed request otherwise. The caller
 * frees *output with free(), whatever the result. Result of run_ioctl, or -1 with *output NULL and
 * nothing sent when there is no memory.
 */

/*
 * Domains per user: flag 0 and flag 1 choose the two operations that the engine has. Any other flag
 * deliberately sends operation 0, whatever the engine makes of it.
 */
int get_fw_user_domain_list(void **output, unsigned int *buf_used_len, int flag);

/* URLs by web reputation. */
int get_fw_wrs_url_list(void **output, unsigned int *buf_used_len);

/* VP list: flag 2 chooses one operation, every other flag the other. */
int get_fw_vp_list(void **output, unsigned int *buf_used_len, int flag);

/* Anomalies. */
int get_fw_anomaly_list(void **output, unsigned int *buf_used_len);

/* Clears the domains of all users. Result of run_ioctl. */
int set_fw_user_domain_clear(void);

/* Switch URL checks and VP checks on (flag not 0) or off (0). Result of run_ioctl. */
int set_fw_url_check(unsigned char flag);
int set_fw_vp_check(unsigned char flag);

/*
 * Sends an anomaly operation, the low byte of action; the other two switch the detection on and
 * off through it. Result of run_ioctl.
 */
int _set_anomaly(int action);
int set_anomaly_enable(void);
int set_anomaly_disable(void);

#ifdef __cplusplus
}
#endif

#endif
