#include "trafficUsageDetailsD/usage_table.h"

#include "common/text.h"
#include "platform/nvram.h"
#include "trafficUsageDetailsD/debug_log.h"
#include "trafficUsageDetailsD/device_types.h"

#include <cstdlib>
#include <cstring>
#include <ctime>

list_head trafficUsageD_table = LIST_HEAD_INIT(trafficUsageD_table);

namespace {

constexpr int kDefaultMaxIdlePasses = 30;
constexpr int kRemoveUntrackedLine = 1368; // the line number that the log has always carried

constexpr const char *kStarLine =
    "********************************************************************************\n";
constexpr const char *kRuleLine = "============================\n";

TrafficUsageDEntry *entryOf(list_head *link) {
    return LIST_RECORD(link, TrafficUsageDEntry, list);
}

std::uint32_t secondsNow() {
    return static_cast<std::uint32_t>(time(nullptr));
}

void drop(TrafficUsageDEntry *entry) {
    list_remove(&entry->list);
    free(entry);
}

// The new entry, or null when there is no memory: the next pass tries again.
TrafficUsageDEntry *append(const TrafficUsageDEntry *candidate) {
    auto *entry = static_cast<TrafficUsageDEntry *>(malloc(sizeof(TrafficUsageDEntry)));
    if (entry == nullptr)
        return nullptr;
    *entry = *candidate; // identity, names, current counters, start and last-seen time
    entry->appType[kNameSize - 1] = '\0';
    entry->appName[kNameSize - 1] = '\0';
    entry->accu_uploadBandWidth = candidate->current_uploadBandwidth;
    entry->accu_downloadBandWidth = candidate->current_downloadBandwidth;
    entry->trafficEndTime = 0;
    entry->duration = 0;
    entry->active = 1;
    entry->idleTimes = 0;
    list_append(&trafficUsageD_table, &entry->list);
    return entry;
}

void dumpTableEntry(const TrafficUsageDEntry *entry, const char *deviceType) {
    tud_dbg("%s", kRuleLine);
    tud_dbg("appType: %.63s\n", entry->appType);
    tud_dbg("appName: %.63s\n", entry->appName);
    tud_dbg("DeviceType: %.63s\n", deviceType);
    tud_dbg("trafficStartTime: %lu\n", static_cast<unsigned long>(entry->trafficStartTime));
    tud_dbg("trafficEndTime: %lu\n", static_cast<unsigned long>(entry->trafficEndTime));
    tud_dbg("current_uploadBandwidth: %.0f\n", entry->current_uploadBandwidth);
    tud_dbg("accu_uploadBandWidth: %.0f\n", entry->accu_uploadBandWidth);
    tud_dbg("current_downloadBandwidth: %.0f\n", entry->current_downloadBandwidth);
    tud_dbg("accu_downloadBandWidth: %.0f\n", entry->accu_downloadBandWidth);
    tud_dbg("duration: %d\n", static_cast<int>(entry->duration));
    tud_dbg("idleTimes: %d\n", static_cast<int>(entry->idleTimes));
    tud_dbg("active: %d\n", static_cast<int>(entry->active));
    tud_dbg("%s", kRuleLine);
}

} // namespace

int isSameTrafficUsageDEntry(const TrafficUsageDEntry *a, const TrafficUsageDEntry *b) {
    if (a == nullptr || b == nullptr)
        return 0;
    return memcmp(a->macAddress, b->macAddress, sizeof a->macAddress) == 0 &&
           strncmp(a->appName, b->appName, kNameSize - 1) == 0 &&
           strncmp(a->appType, b->appType, kNameSize - 1) == 0;
}

int isTrafficIdle(const TrafficUsageDEntry *a, const TrafficUsageDEntry *b) {
    if (a == nullptr || b == nullptr)
        return 0;
    return a->current_uploadBandwidth == b->current_uploadBandwidth &&
           a->current_downloadBandwidth == b->current_downloadBandwidth;
}

int isTrafficInactive(const TrafficUsageDEntry *entry) {
    return entry != nullptr && entry->active == 0;
}

int hasCurrentTraffic(const TrafficUsageDEntry *entry) {
    return entry != nullptr &&
           (entry->accu_downloadBandWidth > 0 || entry->accu_uploadBandWidth > 0);
}

TrafficUsageDEntry *searchTrafficUsageDTable(const TrafficUsageDEntry *candidate) {
    list_head *head = &trafficUsageD_table;
    for (list_head *link = head->next; link != head; link = link->next) {
        if (isSameTrafficUsageDEntry(entryOf(link), candidate) == 1)
            return entryOf(link);
    }
    return nullptr;
}

int addNewEntry2TrafficUsageDTable(const TrafficUsageDEntry *candidate) {
    if (candidate == nullptr)
        return -1;
    append(candidate);
    return 0;
}

int setActiveTrafficUsageDEntry(TrafficUsageDEntry *entry, int active) {
    if (entry == nullptr)
        return -1;
    const std::uint32_t now = secondsNow();
    entry->active = active;
    if (active == 1) {
        entry->trafficStartTime = now;
        entry->idleTimes = 0;
        entry->trafficEndTime = 0;
        entry->duration = 0;
    } else if (active == 0) {
        entry->trafficEndTime = now;
        entry->duration = now - entry->trafficStartTime;
    }
    return 0;
}

int updateTrafficUsageDAccuData(TrafficUsageDEntry *entry, const TrafficUsageDEntry *candidate) {
    if (entry == nullptr || candidate == nullptr)
        return -1;
    // Deliberate: a counter that went backwards (the engine was reset) counts as negative growth.
    entry->accu_downloadBandWidth +=
        candidate->current_downloadBandwidth - entry->current_downloadBandwidth;
    entry->accu_uploadBandWidth +=
        candidate->current_uploadBandwidth - entry->current_uploadBandwidth;
    entry->current_downloadBandwidth = candidate->current_downloadBandwidth;
    entry->current_uploadBandwidth = candidate->current_uploadBandwidth;
    entry->idleTimes = 0;
    tud_dbg("in->accu_downloadBandWidth: %.0f, exist_entry->accu_downloadBandWidth: %.0f\n",
            candidate->accu_downloadBandWidth, entry->accu_downloadBandWidth);
    return 0;
}

int getTUDMaxIdleTime() {
    int passes = decimal_value(kelpNvramConfig_get("tud_max_idle_time"));
    if (passes < 1)
        passes = kDefaultMaxIdlePasses;
    tud_dbg("idle time: %d\n", passes);
    return passes;
}

int handleIdleTrafficUsageDEntry(TrafficUsageDEntry *entry) {
    if (entry == nullptr)
        return -1;
    if (entry->active != 1)
        return 0;
    ++entry->idleTimes;
    if (entry->idleTimes > static_cast<std::uint32_t>(getTUDMaxIdleTime()))
        setActiveTrafficUsageDEntry(entry, 0);
    return 0;
}

int updateTrafficUsageDDeviceID(TrafficUsageDEntry *entry, const TrafficUsageDEntry *candidate) {
    if (entry == nullptr || candidate == nullptr)
        return -1;
    entry->typeId = candidate->typeId;
    return 0;
}

int touchExistTrafficUsageDEntry(TrafficUsageDEntry *entry, const TrafficUsageDEntry *candidate) {
    if (entry == nullptr || candidate == nullptr)
        return -1;
    entry->lastSeenTime = candidate->lastSeenTime;
    return 0;
}

TrafficUsageDEntry *foldIntoEntry(TrafficUsageDEntry *entry, const TrafficUsageDEntry *candidate) {
    if (entry == nullptr)
        return append(candidate);
    touchExistTrafficUsageDEntry(entry, candidate);
    updateTrafficUsageDDeviceID(entry, candidate);
    if (candidate->current_downloadBandwidth == entry->current_downloadBandwidth &&
        candidate->current_uploadBandwidth == entry->current_uploadBandwidth) {
        handleIdleTrafficUsageDEntry(entry);
        return entry;
    }
    if (entry->active == 0)
        setActiveTrafficUsageDEntry(entry, 1);
    updateTrafficUsageDAccuData(entry, candidate);
    return entry;
}

int updateTrafficInfo2TrafficUsageDTable(TrafficUsageDEntry *candidate) {
    if (candidate == nullptr)
        return -1;
    foldIntoEntry(searchTrafficUsageDTable(candidate), candidate);
    return 0;
}

int removeUntrackedTrafficUsageDEntry(std::uint32_t now) {
    int visited = 0;
    list_head *head = &trafficUsageD_table;
    for (list_head *link = head->next, *next; link != head; link = next) {
        next = link->next;
        ++visited;
        TrafficUsageDEntry *entry = entryOf(link);
        if (entry->lastSeenTime >= now)
            continue;
        if (hasCurrentTraffic(entry) == 1)
            setActiveTrafficUsageDEntry(entry, 0);
        else
            drop(entry);
    }
    tud_dbg("%s %d count: %d\n", __func__, kRemoveUntrackedLine, visited);
    return 0;
}

int freeTrafficUsageDTable() {
    list_head *head = &trafficUsageD_table;
    for (list_head *link = head->next, *next; link != head; link = next) {
        next = link->next;
        free(entryOf(link));
    }
    list_init(head);
    return 0;
}

int dumpTrafficUsageDTable() {
    DeviceTypes types;
    tud_dbg("%s", kStarLine);
    tud_dbg("*************************Dump trafficUsageD table start*************************\n");
    tud_dbg("%s", kStarLine);
    list_head *head = &trafficUsageD_table;
    for (list_head *link = head->next; link != head; link = link->next) {
        const TrafficUsageDEntry *entry = entryOf(link);
        dumpTableEntry(entry, types.name(entry->vendorId, entry->typeId));
    }
    tud_dbg("%s", kStarLine);
    tud_dbg("*************************Dump trafficUsageD table end***************************\n");
    tud_dbg("%s", kStarLine);
    return 0;
}
