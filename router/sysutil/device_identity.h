/*
 * The device identity table: one record for every client device that the identification service
 * has seen, with what each source knows about it. The caller owns the list: a pointer to its first
 * node, null when it is empty.
 *
 * Diagnostics go through DEBUG_INFO unless a function says that it always prints.
 */
#ifndef SYSUTIL_DEVICE_IDENTITY_H
#define SYSUTIL_DEVICE_IDENTITY_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * One identity record, in files and in memory: 784 bytes. Texts are ASCII padded with NULs and may
 * fill their whole field without a terminator; integers are little-endian.
 */
struct devDataStructure {
    /* srcUsr: what the user entered */
    char devNameByUser[32];
    char devTypeName_usr[32];
    int32_t devTypeIndex_usr;
    char devModelByUser[32];
    /* srcVOSK: the router's own classification */
    char devNameByVOSK[64];
    char devTypeName_vosk[32];
    int32_t devTypeIndex_vosk;
    /* srcFingResult: fingerprinting */
    char devTypeByFing[32];
    char devBrandByFing[32];
    char devModelByFing[32];
    char devOSByFing[32];
    char devOSVerByFing[32];
    char devMacVendor[68];
    /* srcDhcp: what the device's DHCP request said */
    char devDhcpVendor[32];
    char devDhcpHostName[32];
    char devDhcpOpts[128];
    /* srcBasic: the network's facts */
    char devHostName[32];
    char devMacAddr[18];      /* six two-digit hexadecimal groups joined by colons */
    char devIpAddr[16];       /* dotted IPv4 */
    char devConnInteface[18]; /* interface name */
    int32_t devConnStat;
    int32_t lastUpdateTime; /* seconds since the epoch; 0 is unknown */
    /* srcLegacy: types by the earlier QoS and user classifications */
    char devTypeName_legacyQos[32];
    int32_t devTypeIndex_legacyQos;
    char devTypeName_legacyUsr[32];
    int32_t devTypeIndex_legacyUsr;
};

struct devIdNode {
    struct devDataStructure data;
    struct devIdNode *next; /* null at the tail */
};

/* DHCP facts of one device: the shape of the srcDhcp group. */
struct dhcpInfo {
    char vendor[32];
    char hostName[32];
    char options[128];
};

/* A message to the detection daemon, whose layout is that daemon's own. */
struct devIdMessage {
    unsigned char bytes[460];
};

/*
 * Reads the service's table file ("/tmp/devDataStructure", else the copy in flash) into the list;
 * a record cut short at the file's end is ignored. Start with an empty head: with another one, the
 * records are linked in after the node it points to, and the head then points at the first of them.
 * Always prints the path of the file.
 *
 * 0 when the file was read to its end. -1 when it is missing, or when a node cannot be allocated:
 * *head then points at the last of the nodes read so far, and those before it are out of reach. The
 * caller frees the nodes with removeAllDevIdNodes.
 */
int readDevIdTablefromFile(struct devIdNode **head);

/* readDevIdTablefromFile with a result of always 0. */
int dil_readDevIdTable(struct devIdNode **head);

/* Allocates a node, all zero, into *node. 0, or -1 with *node null. */
int createDevIdNode(struct devIdNode **node);

/*
 * Appends a copy of the record. A list that holds exactly as many nodes as the setting
 * "dev_id_max_devCount" says (253 when it is empty) first loses one to removeOldestNodeFromList; a
 * longer one is not trimmed. 0, or -1 with the list unchanged when memory is short.
 */
int addDevIdNodeToList(struct devIdNode **head, struct devDataStructure record);

/*
 * Frees the node that was updated longest ago: the first one with the smallest lastUpdateTime,
 * except that a time of 0 gives way to the node after it, whatever that one's time is. Always 0.
 */
int removeOldestNodeFromList(struct devIdNode **head);

/* The length of the list. Always 0. */
int getCurrentDeviceCount(struct devIdNode *head, int *count);

/* Frees every node and leaves *head as it was. 0, or -1 for an empty list. */
int removeAllDevIdNodes(struct devIdNode **head);

/*
 * Look for the first record whose MAC or address text is exactly the given one. 0 with *head moved
 * to its node, so pass a copy of the list's head; -1 with *head unchanged.
 */
int searchDevIdNodeByMac(struct devIdNode **head, const char *mac_text);
int searchDevIdNodeByIPaddr(struct devIdNode **head, const char *ip_text);

/* Prints every record from this node on through DEBUG_INFO. */
void print_dev_table(struct devIdNode *first);

/*
 * The name to show: the first that is not empty of the user's, the host's, the DHCP host name (each
 * at most 31 characters) and the router's classification (at most 63). out has 64 bytes. 0, or -1
 * with out unchanged when there is none.
 */
int getDeviceNameByPriority(struct devDataStructure record, char *out);

/* The model: the user's, else the fingerprint's. out has 32 bytes. 0, or -1 with out unchanged. */
int getDeviceModelByPriority(struct devDataStructure record, char *out);

/*
 * Reads the DHCP facts file of a device. Facts that the file does not give are left as they are in
 * *out; a vendor or host name is at most 30 characters. 0, or -1 (always with a message) when there
 * is no such file; a text that is empty, begins with a dot or has a slash names none.
 */
int getDhcpInfoByMac(const char *mac_text, struct dhcpInfo *out);

/*
 * Sends one message to the detection daemon without waiting; nobody is told when it does not
 * arrive, as when the daemon's queue is full. Always prints a line. Ends the process with status 1
 * when no socket can be made.
 */
void sendDataToDevIdApi(struct devIdMessage message);

/* The six bytes of a MAC text; all zero when a group is missing. */
void getMacByString(const char *mac_text, unsigned char mac[6]);

/* printf while the setting "dev_id_debug" is "1", else nothing. */
void DEBUG_INFO(const char *format, ...) __attribute__((format(printf, 1, 2)));

#ifdef __cplusplus
}
#endif

#endif
