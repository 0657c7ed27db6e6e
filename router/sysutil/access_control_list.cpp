#include "sysutil/access_control.h"

#include "sysutil/device_table.h"
#include "sysutil/mac_text.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <iterator>

ac_mac_entry ac_mac_list[128];
int acl_rule_curr_order;

// The kernel reads the table as it is.
static_assert(sizeof(ac_mac_entry) == 52);
static_assert(sizeof ac_mac_list == 6656);
static_assert(offsetof(ac_mac_entry, mac) == 0);
static_assert(offsetof(ac_mac_entry, status) == 8);
static_assert(offsetof(ac_mac_entry, devName) == 12);
static_assert(offsetof(ac_mac_entry, connType) == 44);
static_assert(offsetof(ac_mac_entry, order) == 48);

namespace {

// The order counter is rescaled when it gets here; orders from here on are never evicted first.
constexpr int kOrderLimit = 65536;
constexpr int kOrderScale = 512;

// Source positions as they stand in the messages: fixed, because log readers match them.
constexpr int kUpdatePosition = 3334;
constexpr int kFullPosition = 3384;
constexpr int kEvictPosition = 3404;

// The entry to set a field of, appended when the device is not listed. nullptr when there is no
// room.
ac_mac_entry *entry_to_set(const unsigned char *mac) {
    ac_mac_entry *const entry = find_writable(ac_mac_list, mac);
    if (entry != nullptr)
        memmove(entry->mac, mac, kMacSize);
    return entry;
}

} // namespace

int del_ac_mac_entry(const unsigned char mac[6]) {
    ac_mac_entry *const freed = take_out(ac_mac_list, mac, sizeof(ac_mac_entry));
    if (freed == nullptr)
        return 0;
    // Its order is left as it was: deliberate.
    memset(freed->mac, 0, sizeof freed->mac);
    freed->status = kNoStatus;
    memset(freed->devName, 0, sizeof freed->devName);
    freed->connType = -1;
    return 0;
}

int set_mac_status(const unsigned char mac[6], int status) {
    ac_mac_entry *const entry = entry_to_set(mac);
    if (entry == nullptr)
        return -1;
    entry->status = status;
    return 0;
}

int set_mac_status_2(const unsigned char mac[6], int status) {
    return set_mac_status(mac, status);
}

char *get_mac_devName(const unsigned char mac[6]) {
    static char unlisted[] = "--";
    ac_mac_entry *const entry = find_used(ac_mac_list, mac);
    return entry != nullptr ? entry->devName : unlisted;
}

int set_mac_devName(const unsigned char mac[6], const char *name) {
    if (name == nullptr) {
        // Slot 0, whatever the address: deliberate.
        fill_field(ac_mac_list[0].devName, sizeof ac_mac_list[0].devName, "--");
        return 0;
    }
    ac_mac_entry *const entry = entry_to_set(mac);
    if (entry == nullptr)
        return -1;
    fill_field(entry->devName, sizeof entry->devName, name);
    return 0;
}

int get_mac_connType(const unsigned char mac[6]) {
    const ac_mac_entry *const entry = find_used(ac_mac_list, mac);
    return entry != nullptr ? entry->connType : -1;
}

int set_mac_connType(const unsigned char mac[6], int type) {
    ac_mac_entry *const entry = entry_to_set(mac);
    if (entry == nullptr)
        return -1;
    entry->connType = type;
    return 0;
}

int check_duplicate_mac(const unsigned char mac[6]) {
    return std::any_of(std::begin(ac_mac_list), std::end(ac_mac_list),
                       [mac](const ac_mac_entry &entry) { return has_mac(entry, mac); })
               ? 1
               : 0;
}

int acl_update_mac_order(const unsigned char mac[6]) {
    ac_mac_entry *const entry = find_writable(ac_mac_list, mac);
    if (entry == nullptr || has_no_mac(*entry)) {
        printf("%s:%d >> mac [%s] not found!\n", "acl_update_mac_order", kUpdatePosition,
               lower_mac(mac).text);
        return -1;
    }
    entry->order = acl_rule_curr_order + 1;
    printf("update mac %s order->%d\n", lower_mac(mac).text, entry->order);
    return 0;
}

int inc_acl_mac_curr_order(void) {
    if (++acl_rule_curr_order < kOrderLimit)
        return 0;
    acl_rule_curr_order = 0;
    for (ac_mac_entry &entry : ac_mac_list) {
        entry.order /= kOrderScale;
        acl_rule_curr_order = std::max(acl_rule_curr_order, entry.order);
    }
    return 0;
}

int is_acl_list_full(void) {
    if (std::any_of(std::begin(ac_mac_list), std::end(ac_mac_list), has_no_mac<ac_mac_entry>))
        return 0;
    printf("%s:%d >> mac list full!\n", "is_acl_list_full", kFullPosition);
    return 1;
}

int del_acl_smallest_order_mac(void) {
    const ac_mac_entry *oldest = &ac_mac_list[0];
    int smallest = kOrderLimit;
    for (const ac_mac_entry &entry : ac_mac_list) {
        if (!has_no_mac(entry) && entry.order < smallest) {
            smallest = entry.order;
            oldest = &entry;
        }
    }
    printf("%s:%d >> remove mac[%s] order %d\n", "del_acl_smallest_order_mac", kEvictPosition,
           lower_mac(oldest->mac).text, oldest->order);
    unsigned char mac[kMacSize]; // the deletion moves the entries
    memcpy(mac, oldest->mac, sizeof mac);
    return del_ac_mac_entry(mac);
}

int cgi_getDevNameFromACL(char *out, const char *mac_text) {
    load_ac_mac_list();
    for (const ac_mac_entry &entry : ac_mac_list) {
        if (entry.devName[0] == '\0' || strcmp(upper_mac(entry.mac).text, mac_text) != 0)
            continue;
        memcpy(out, entry.devName, sizeof entry.devName);
        out[sizeof entry.devName] = '\0';
    }
    return 0;
}
