/*
 * The client devices attached to the router: wireless stations, and the table of all devices.
 *
 * Every list is written into the caller's array, at most max records (none for a max below 1); the
 * result is how many. A source that is missing makes the list shorter and is no error. The working
 * files have fixed names under "/tmp": callers see to it that no two processes run these functions
 * at once.
 */
#ifndef SYSUTIL_ATTACHED_DEVICES_H
#define SYSUTIL_ATTACHED_DEVICES_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A wireless station. */
struct sta_dev {
    unsigned char mac[6];
    char link_speed[8]; /* whole Mbit/s as decimal text, empty when unknown */
    int signal;         /* quality, 0 to 100 */
    char band[3];       /* "2g" or "5g" */
};

/* A device. */
struct attach_dev {
    uint32_t ip; /* IPv4, network byte order; 0 when unknown */
    unsigned char mac[6];
    int wired;       /* 1 wired, 0 wireless */
    char ifname[16]; /* interface of the router, such as "eth1" */
};

/*
 * The stations of both radios and their guest networks, with speed and quality. The band of a
 * station whose band cannot be told is left as it was, with a message.
 */
int get_sta_dev(struct sta_dev *stations, int max);

/*
 * The link speed of a station on the interfaces of the settings "wl0_ifname" and "wl1_ifname", the
 * first that knows it. out has 8 bytes; it is empty when the station is on neither, or when
 * mac_text is not six two-digit hexadecimal groups joined by colons.
 */
void get_sta_link_speed(const char *mac_text, char *out);

/*
 * The signal quality of a station, 0 to 100. 100 also when the radio gives no value in ten tries,
 * or when mac_text is not six two-digit hexadecimal groups joined by colons.
 */
int get_sta_signal_strength(const char *mac_text);

/*
 * The platform's attachment table and the stations that it lacks. 0, with a message on standard
 * error, when the table cannot be read.
 */
int get_attach_dev(struct attach_dev *devices, int max);

/*
 * Addresses and MACs of the ARP table's "br0" neighbours, the DHCP leases and the attachment table,
 * each address of the latter two once; the other fields are zero. A skip other than 0 takes the
 * attachment table alone. 0, with a message on standard error, when a table cannot be read.
 */
int get_arp_dev2(struct attach_dev *devices, int max, int skip);

/* get_arp_dev2 without skip. */
int get_arp_dev(struct attach_dev *devices, int max);

/*
 * get_attach_dev after three rounds of ARP requests on "br0", half a second each, to the LAN
 * addresses of get_arp_dev (flag 0) or of the attachment table (any other flag). Nobody is asked
 * unless the settings "lan_hwaddr", "lan_ipaddr" and "lan_netmask" hold addresses.
 */
int get_bdg_dev2(struct attach_dev *devices, int max, int flag);

/* get_bdg_dev2 with flag 0. */
int get_bdg_dev(struct attach_dev *devices, int max);

/* The IPv4 address that the ARP table has for a MAC, network byte order; 0 when it has none. */
uint32_t get_ip_from_arp(const unsigned char mac[6]);

#ifdef __cplusplus
}
#endif

#endif
