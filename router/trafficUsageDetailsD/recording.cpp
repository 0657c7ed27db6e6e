// The way from the table to the buffer, and from a full buffer to a report.
#include "trafficUsageDetailsD/debug_log.h"
#include "trafficUsageDetailsD/record_buffer.h"
#include "trafficUsageDetailsD/signals.h"
#include "trafficUsageDetailsD/usage_report.h"

namespace {

// The line numbers that the log has always carried.
constexpr int kFreeEntryLine = 922;
constexpr int kBufferFullLine = 927;
constexpr int kSaveEntryLine = 1031;

} // namespace

int saveTrafficInfo2Buf(const TrafficInfo *record) {
    if (record == nullptr)
        return -1;
    TrafficInfo *slot = findFreeTrafficInfo();
    if (slot != nullptr) {
        tud_dbg("%s(%d) update free entry\n", __func__, kFreeEntryLine);
        return updateTrafficInfo(record, slot);
    }
    // Deliberate: the record that finds the buffer full is not stored.
    tud_dbg("%s(%d) buffer is full, send json file to server\n", __func__, kBufferFullLine);
    generateTudJson();
    sendTUDReport2Cloud();
    return 0;
}

int updateTrafficBuffer() {
    list_head *head = &trafficUsageD_table;
    for (list_head *link = head->next; link != head; link = link->next) {
        if (terminationRequested())
            break; // nothing is reported any more, not even by a buffer that fills up
        auto *entry = LIST_RECORD(link, TrafficUsageDEntry, list);
        if (isTrafficInactive(entry) == 0 || hasCurrentTraffic(entry) == 0)
            continue;
        tud_dbg("Save TraffUsageD entry to Traffic Buffer: %s %d\n", __func__, kSaveEntryLine);
        TrafficInfo record{};
        convertTrafficUsageD2TrafficBuf(entry, &record);
        saveTrafficInfo2Buf(&record);
    }
    return 0;
}
