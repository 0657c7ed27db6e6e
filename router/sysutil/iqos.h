/*
 * The QoS list: what the adaptive QoS service keeps for each client device, and the device's manual
 * priority in the service's configuration.
 *
 * One process-wide table, iqos_dev_list. Used entries form a run from slot 0; the first slot whose
 * status is -1 ends it. Nothing is locked: a process with several threads serialises its calls.
 * Load the list before anything else; a change reaches the settings only through save_iqos_list.
 *
 * Addresses are 6 bytes, first byte first.
 */
#ifndef SYSUTIL_IQOS_H
#define SYSUTIL_IQOS_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * 56 bytes. What the numbers mean is the callers' affair. The settings have room for one digit of
 * status, attr2 and attr3, and for two of attr1.
 */
struct iqos_dev_entry {
    unsigned char mac[6]; /* all zero: no device */
    int attr1;
    int status; /* -1: free */
    int attr2;
    int attr3;
    char devName[32]; /* NUL-padded, not terminated when it has 32 characters */
};

/* 256 slots, of which the settings hold 64. */
extern struct iqos_dev_entry iqos_dev_list[256];

/*
 * Rebuilds the table from the settings. Settings that are damaged end the list or the names where
 * they are. Always 0.
 */
int load_iqos_list(void);

/*
 * Writes the used run (its first 64 entries) to the settings and commits them. Numbers that have no
 * room there are limited to 0..9, attr1 to 0..99. Always 0.
 */
int save_iqos_list(void);

/*
 * Removes a device: the last entry of the run takes its place, but for the last 4 characters of
 * its name. Always 0, also when the device is not listed.
 */
int del_iqos_mac_entry(const unsigned char mac[6]);

/* The device's entry inside the table, or NULL when it is not in the used run. */
struct iqos_dev_entry *get_iqos_status(const unsigned char mac[6]);

/*
 * Takes over the numbers and the name (at most 31 characters) of record for a listed device;
 * appends an unlisted one (name of at most 32 characters) at the first slot whose address is all
 * zero. record.mac does not count. 0, or -1 when 64 devices are listed already.
 */
int set_iqos_status(const unsigned char mac[6], struct iqos_dev_entry record);

/*
 * Copies the name of a device in one of the first 4 slots into out (at least 33 bytes), terminated.
 * 0, or -1 with out untouched when there is none.
 */
int get_iqos_devname(const unsigned char mac[6], char *out);

/*
 * Moves the device into a priority group of "/tmp/trend/qos.conf": takes it out of every group,
 * then adds it after each line with the tag "{n}", n being 3 - priority (0 to 3). One writer at a
 * time. The configuration is written in place, beside a copy of it, "/tmp/trend/qos.conf.tmp".
 *
 * 0; -1, reported on standard error, when a file cannot be opened, the copy is not whole, or the
 * configuration cannot be written (a full disk): it is then as before, or without the device when
 * only adding it failed. Where even that could not be put back, the copy has it.
 */
int iqos_set_priority_by_mac(int priority, const unsigned char mac[6]);

/*
 * 1 when "/tmp/trend/qos.conf" names the device, else 0, also for a NULL address. A configuration
 * that cannot be opened is reported on standard error.
 */
int is_iqos_manual_priority(const unsigned char mac[6]);

#ifdef __cplusplus
}
#endif

#endif
