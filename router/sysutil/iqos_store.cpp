#include "sysutil/iqos.h"

#include "common/text.h"
#include "platform/nvram.h"
#include "sysutil/device_table.h"
#include "sysutil/name_list.h"

#include <algorithm>
#include <cstdio>

namespace {

StagedText iqos_mac_list[4];
StagedText iqos_devName_list[5];

constexpr KeyFamily kNames = {"iqos_dev_name", iqos_devName_list};

char take_entry(int index, const unsigned char *mac, const char *fields) {
    iqos_dev_entry entry{};
    char separator = '\0';
    if (sscanf(fields, ":%9d:%2d:%9d:%9d%c", &entry.status, &entry.attr1, &entry.attr2,
               &entry.attr3, &separator) != 5)
        return '\0';
    memcpy(entry.mac, mac, kMacSize);
    iqos_dev_list[index] = entry;
    return separator;
}

int digit(int value) {
    return std::clamp(value, 0, 9);
}

void put_entry(int index, char *fields, std::size_t size) {
    const iqos_dev_entry &entry = iqos_dev_list[index];
    format_text(fields, size, ":%d:%02d:%d:%d", digit(entry.status), std::clamp(entry.attr1, 0, 99),
                digit(entry.attr2), digit(entry.attr3));
}

constexpr EntryCodec kEntries = {
    .cells = {{"iqos_mac_list", iqos_mac_list}, 22, 16},
    .mac_of = [](int index) -> const unsigned char * { return iqos_dev_list[index].mac; },
    .take = take_entry,
    .put = put_entry,
};
constexpr int kCapacity = capacity(kEntries.cells);
static_assert(kCapacity == 64);

char *name_of(int index) {
    return iqos_dev_list[index].devName;
}

} // namespace

int load_iqos_list(void) {
    for (iqos_dev_entry &entry : iqos_dev_list) {
        entry = {};
        entry.status = kNoStatus;
    }
    // One name more than the entries when no '.' ended them: deliberate.
    const int count = load_entries(kEntries) + 1;
    load_names(kNames, std::min(count, kCapacity), name_of);
    return 0;
}

int save_iqos_list(void) {
    const int count = std::min(used_count(iqos_dev_list), kCapacity);
    stage_entries(kEntries, count);
    save_names(kNames, count, name_of);
    save_texts(kEntries.cells.keys);
    kelpNvramConfig_save();
    return 0;
}
