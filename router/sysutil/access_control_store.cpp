#include "sysutil/access_control.h"

#include "common/text.h"
#include "platform/nvram.h"
#include "sysutil/device_table.h"
#include "sysutil/name_list.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace {

constexpr int kCapacity = static_cast<int>(std::size(ac_mac_list));

StagedText access_control_list[4];
StagedText access_control_order[4];
StagedText access_control_devName[10];

constexpr KeyFamily kNames = {"ac_dev_name", access_control_devName};
constexpr Cells kOrders = {{"ac_mac_order", access_control_order}, 6, 32};
constexpr char kFirstOrders[] = "ac_mac_order0";
constexpr int kLargestOrder = 99999; // five digits

// The flags digit: the status, and the connection type unless it is unknown.
constexpr int kStatusFlag = 1;
constexpr int kWiredFlag = 2;
constexpr int kFreeFlag = 4;
constexpr int kUnknownConnectionFlag = 8;

int flags_of(const ac_mac_entry &entry) {
    if (entry.status < 0)
        return kFreeFlag;
    const int status = entry.status & kStatusFlag;
    if (entry.connType < 0)
        return status | kUnknownConnectionFlag;
    return status | ((entry.connType & 1) != 0 ? kWiredFlag : 0);
}

void apply_flags(ac_mac_entry &entry, int flags) {
    entry.status = flags & kStatusFlag;
    entry.connType = (flags & kWiredFlag) != 0 ? 1 : 0;
    if ((flags & kUnknownConnectionFlag) != 0) {
        entry.connType = check_the_wan_type(entry.mac);
    } else if ((flags & kFreeFlag) != 0) {
        entry.status = kNoStatus;
        entry.connType = -1;
    }
}

char take_entry(int index, const unsigned char *mac, const char *fields) {
    int flags = 0;
    char separator = '\0';
    if (sscanf(fields, ":%9d%c", &flags, &separator) != 2)
        return '\0';
    memcpy(ac_mac_list[index].mac, mac, kMacSize);
    apply_flags(ac_mac_list[index], flags);
    return separator;
}

void put_entry(int index, char *fields, std::size_t size) {
    format_text(fields, size, ":%d", flags_of(ac_mac_list[index]));
}

constexpr EntryCodec kEntries = {
    .cells = {{"ac_mac_list", access_control_list}, 15, 32},
    .mac_of = [](int index) -> const unsigned char * { return ac_mac_list[index].mac; },
    .take = take_entry,
    .put = put_entry,
};
static_assert(capacity(kEntries.cells) == kCapacity && capacity(kOrders) == kCapacity);

void clear_table() {
    memset(ac_mac_list, 0, sizeof ac_mac_list);
    for (ac_mac_entry &entry : ac_mac_list)
        entry.status = entry.connType = -1;
}

void load_orders(int count) {
    acl_rule_curr_order = 0;
    if (kelpNvramConfig_match(kFirstOrders, "") != 0) {
        printf("No ACL rule order defined! Init all rules order to 0!");
        return;
    }
    load_texts(kOrders.keys);
    for (int i = 0; i < std::min(count, kCapacity); ++i) {
        CellText cell;
        int order = 0;
        if (!read_cell(kOrders, i, cell) || sscanf(cell, "%5d:", &order) != 1 || order == -1)
            return;
        ac_mac_list[i].order = std::max(ac_mac_list[i].order, order);
        acl_rule_curr_order = std::max(acl_rule_curr_order, order);
    }
}

void stage_orders(int count) {
    clear_texts(kOrders.keys);
    for (int i = 0; i < count; ++i) {
        CellText cell;
        format_text(cell, sizeof cell, "%05d:", std::clamp(ac_mac_list[i].order, 0, kLargestOrder));
        write_cell(kOrders, i, cell);
    }
}

char *name_of(int index) {
    return ac_mac_list[index].devName;
}

} // namespace

int load_ac_mac_list(void) {
    clear_table();
    // One more than the entries when no '.' ended them: deliberate.
    const int count = load_entries(kEntries) + 1;
    load_ac_devName_list(count);
    load_orders(count);
    return 0;
}

int load_ac_devName_list(int count) {
    load_names(kNames, std::min(count, kCapacity), name_of);
    return 0;
}

int save_ac_mac_list(void) {
    const int count = used_count(ac_mac_list);
    stage_entries(kEntries, count);
    save_names(kNames, count, name_of);
    stage_orders(count);
    save_texts(kOrders.keys);
    save_texts(kEntries.cells.keys);
    kelpNvramConfig_save();
    return 0;
}
