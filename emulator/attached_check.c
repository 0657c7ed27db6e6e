/* Asks for the attached devices, then prints them, and the ARP table as it is after the asking. */
#include "system_util.h"

#include <arpa/inet.h>
#include <stdio.h>

enum { kMax = 16 };

static void print(const char *list, const struct attach_dev *device) {
    char address[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &device->ip, address, sizeof address);
    printf("%s %s %02x:%02x:%02x:%02x:%02x:%02x %d %s\n", list, address, device->mac[0],
           device->mac[1], device->mac[2], device->mac[3], device->mac[4], device->mac[5],
           device->wired, device->ifname);
}

int main(void) {
    struct attach_dev devices[kMax];
    int count = get_bdg_dev(devices, kMax);
    for (int i = 0; i < count; ++i)
        print("attached", &devices[i]);
    count = get_arp_dev(devices, kMax);
    for (int i = 0; i < count; ++i)
        print("known", &devices[i]);
    return 0;
}
