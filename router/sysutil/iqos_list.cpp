#include "sysutil/iqos.h"

#include "sysutil/device_table.h"

#include <cstddef>

iqos_dev_entry iqos_dev_list[256];

static_assert(sizeof(iqos_dev_entry) == 56);
static_assert(offsetof(iqos_dev_entry, mac) == 0);
static_assert(offsetof(iqos_dev_entry, attr1) == 8);
static_assert(offsetof(iqos_dev_entry, status) == 12);
static_assert(offsetof(iqos_dev_entry, attr2) == 16);
static_assert(offsetof(iqos_dev_entry, attr3) == 20);
static_assert(offsetof(iqos_dev_entry, devName) == 24);

namespace {

constexpr std::ptrdiff_t kMostDevices = 64; // what the settings hold
constexpr std::size_t kMovedBytes = 52;     // of an entry, on deletion
constexpr int kSlotsSearchedForName = 4;
constexpr std::size_t kUpdatedNameWidth = 31;

} // namespace

int del_iqos_mac_entry(const unsigned char mac[6]) {
    // The last 4 characters of the name stay those of the deleted entry: deliberate.
    iqos_dev_entry *const freed = take_out(iqos_dev_list, mac, kMovedBytes);
    if (freed == nullptr)
        return 0;
    *freed = {};
    freed->status = kNoStatus;
    return 0;
}

iqos_dev_entry *get_iqos_status(const unsigned char mac[6]) {
    return find_used(iqos_dev_list, mac);
}

int set_iqos_status(const unsigned char mac[6], iqos_dev_entry record) {
    iqos_dev_entry *const entry = find_writable(iqos_dev_list, mac);
    if (entry == nullptr)
        return -1;
    const bool listed = !has_no_mac(*entry);
    if (!listed && entry - iqos_dev_list >= kMostDevices)
        return -1;
    memmove(entry->mac, mac, kMacSize);
    entry->attr1 = record.attr1;
    entry->status = record.status;
    entry->attr2 = record.attr2;
    entry->attr3 = record.attr3;
    if (listed)
        record.devName[kUpdatedNameWidth] = '\0';
    fill_field(entry->devName, sizeof entry->devName, record.devName);
    return 0;
}

int get_iqos_devname(const unsigned char mac[6], char *out) {
    // No further than the first slots: deliberate.
    for (int i = 0; i < kSlotsSearchedForName; ++i) {
        const iqos_dev_entry &entry = iqos_dev_list[i];
        if (!has_mac(entry, mac))
            continue;
        memcpy(out, entry.devName, sizeof entry.devName);
        out[sizeof entry.devName] = '\0';
        return 0;
    }
    return -1;
}
