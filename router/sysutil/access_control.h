/*
 * The access-control list: which client devices may use the network.
 *
 * Up to 128 devices in one process-wide table, ac_mac_list. Used entries form a run from slot 0;
 * the first slot whose status is -1 ends it. Nothing is locked: a process with several threads
 * serialises its calls. Load the list before anything else; a change reaches the settings only
 * through save_ac_mac_list.
 *
 * To touch a device: when is_acl_list_full, make room with del_acl_smallest_order_mac; set its
 * fields; inc_acl_mac_curr_order, then acl_update_mac_order; save_ac_mac_list.
 *
 * Getters and del_ac_mac_entry search the used run. Setters and acl_update_mac_order search up to
 * the first slot whose address is all zero, and setters append there: they write the address and
 * their own field, the others stay what they were in that slot (after a load: status -1, connType
 * -1, order 0, no name). An entry without a status ends the run: for getters, deletion and saving
 * neither it nor any entry behind it is there, until set_mac_status gives it one. So set the status
 * of a new device first.
 *
 * Addresses are 6 bytes, first byte first.
 */
#ifndef SYSUTIL_ACCESS_CONTROL_H
#define SYSUTIL_ACCESS_CONTROL_H

#ifdef __cplusplus
extern "C" {
#endif

/* 52 bytes without holes but for two zero bytes after mac: the kernel reads the whole table. */
struct ac_mac_entry {
    unsigned char mac[6]; /* all zero: no device */
    int status;           /* 1 allowed, 0 blocked, -1 free */
    char devName[32];     /* NUL-padded, not terminated when it has 32 characters */
    int connType;         /* 1 wired, 0 wireless, -1 unknown */
    int order;            /* how recently it was touched; 0 never, larger is later */
};

extern struct ac_mac_entry ac_mac_list[128];

/* The highest order handed out so far. */
extern int acl_rule_curr_order;

/*
 * Rebuilds the table and the order counter from the settings. Reports missing orders on standard
 * output. Settings that are damaged end the list, the names or the orders where they are. Always 0.
 */
int load_ac_mac_list(void);

/*
 * Reads the names of the first count entries (at most 128) from the settings. A malformed name ends
 * the walk. Always 0.
 */
int load_ac_devName_list(int count);

/*
 * Writes the used run to the settings and commits them. What the settings have no room for is
 * limited: status and connType to their lowest bit, order to 0..99999. Always 0.
 */
int save_ac_mac_list(void);

/*
 * Removes a device: the last entry of the run takes its place. Always 0, also when it is not
 * listed.
 */
int del_ac_mac_entry(const unsigned char mac[6]);

/*
 * Whether a device is allowed: its status; for an unlisted one 1, but 0 when "access_control_mode"
 * is "1" and "access_all_new_devices" is "0".
 */
int get_mac_status(const unsigned char mac[6]);

/* Sets the status, both alike. 0, or -1 when the device is not listed and the table is full. */
int set_mac_status(const unsigned char mac[6], int status);
int set_mac_status_2(const unsigned char mac[6], int status);

/*
 * The device's name inside the table: at most 32 characters ("%.32s"), see devName. "--" when it is
 * not listed; that text is not to be written to.
 */
char *get_mac_devName(const unsigned char mac[6]);

/*
 * Sets the name, at most 32 characters. A NULL name gives the entry in slot 0 the name "--",
 * whatever the address. 0, or -1 when the device is not listed and the table is full.
 */
int set_mac_devName(const unsigned char mac[6], const char *name);

/* The device's connType, -1 when it is not listed. */
int get_mac_connType(const unsigned char mac[6]);

/* Sets connType. 0, or -1 when the device is not listed and the table is full. */
int set_mac_connType(const unsigned char mac[6], int type);

/* 1 when any of the 128 slots, used or not, has this address, else 0. */
int check_duplicate_mac(const unsigned char mac[6]);

/* How a device is attached now: 1 wired, 0 wireless, -1 unknown. */
int check_the_wan_type(const unsigned char mac[6]);

/*
 * Whether the device that the LAN bridge's hardware address stands for is allowed: 1 or 0. Always 1
 * while access control is off. Asks through socket_fd (any socket), loads the list, and prints the
 * address.
 */
int accessCtrl_isAllowedDevice(int socket_fd);

/*
 * Marks a device as the most recently touched: its order becomes acl_rule_curr_order + 1; the
 * counter itself stays. Prints what it did. 0, or -1 when it is not listed.
 */
int acl_update_mac_order(const unsigned char mac[6]);

/*
 * Advances the order counter. At 65536 all orders are divided by 512 and the counter becomes the
 * largest of them. Always 0.
 */
int inc_acl_mac_curr_order(void);

/* 1, with a message on standard output, when every slot has an address, else 0. */
int is_acl_list_full(void);

/*
 * Evicts the device with the smallest order below 65536 (of several the one in the lowest slot;
 * when there is none, the one in slot 0), and prints which. Always 0.
 */
int del_acl_smallest_order_mac(void);

/*
 * Loads the list and hands the mode, the rule for new devices and the whole table to the kernel's
 * DNS-redirect module behind the descriptor. Always 0.
 */
int dnsRedirect_configAccessCtrl(int fd);

/*
 * Loads the list and looks up the name of the device whose address is mac_text, in upper case with
 * colons ("A1:B2:C3:D4:E5:F6"). out (at least 33 bytes) gets the terminated name; it is untouched
 * when there is none. Of several entries the last counts. Always 0.
 */
int cgi_getDevNameFromACL(char *out, const char *mac_text);

#ifdef __cplusplus
}
#endif

#endif
