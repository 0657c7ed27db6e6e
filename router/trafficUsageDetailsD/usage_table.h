// The usage table: one entry for every pair of client device and application that the engine has
// reported, and the pass that folds the engine's counters into it.
#pragma once

#include "dpi/list_head.h"

#include <cstddef>
#include <cstdint>

constexpr std::size_t kNameSize = 64; // names in the table: at most 63 characters and a NUL

// An entry of the table, and the candidate that a pass makes of one engine record: there the
// current counters are the engine's present ones, trafficStartTime its last_elapsed_ts,
// lastSeenTime the time of the pass; the rest is not used. Its identity is the MAC address and the
// two names; vendor and type take no part in it.
struct TrafficUsageDEntry {
    unsigned char macAddress[6];
    std::int32_t vendorId;
    std::int32_t typeId;
    char appType[kNameSize];          // category name
    char appName[kNameSize];          // application name
    double accu_uploadBandWidth;      // bytes sent since the entry (last) became active
    double current_uploadBandwidth;   // the engine's counter as seen at the last change
    double accu_downloadBandWidth;    // bytes received, likewise
    double current_downloadBandwidth; // likewise
    std::uint32_t trafficStartTime;   // of the current period, seconds since the epoch
    std::uint32_t trafficEndTime;     // 0 while active
    std::uint32_t duration;           // end minus start, seconds; 0 while active
    std::int32_t active;              // 1 active, 0 inactive
    std::uint32_t idleTimes;          // consecutive passes without growth while active
    std::uint32_t lastSeenTime;       // the last pass in which the engine reported the pair
    list_head list;
};

// Entries in the order in which they came.
extern list_head trafficUsageD_table;

// One pass: reads the engine, names what it reports, folds it into the table, retires what is no
// longer reported. Result: the status of the application rate request (0, -1 or -2).
int updateTrafficUsageDTable();

// Folds one candidate into the table. 0, or -1 without a candidate.
int updateTrafficInfo2TrafficUsageDTable(TrafficUsageDEntry *candidate);

// Like the above for a caller that already looked the entry up: null adds one. The entry that now
// stands for the candidate, or null when there was no memory for it.
TrafficUsageDEntry *foldIntoEntry(TrafficUsageDEntry *entry, const TrafficUsageDEntry *candidate);

// The first entry of the candidate's identity, walking from the head, or null.
TrafficUsageDEntry *searchTrafficUsageDTable(const TrafficUsageDEntry *candidate);

// 1 when both have the same identity; 0 otherwise, or when one is missing.
int isSameTrafficUsageDEntry(const TrafficUsageDEntry *a, const TrafficUsageDEntry *b);

// 1 when both entries have the same current counters; 0 otherwise or when one is missing.
int isTrafficIdle(const TrafficUsageDEntry *a, const TrafficUsageDEntry *b);

// 1 when the entry is not active; 0 otherwise or without an entry.
int isTrafficInactive(const TrafficUsageDEntry *entry);

// 1 when the entry has accumulated traffic; 0 otherwise or without an entry.
int hasCurrentTraffic(const TrafficUsageDEntry *entry);

// Appends an active entry whose first period is credited with all that the engine has counted so
// far. 0, also when there is no memory and nothing was added; -1 without a candidate.
int addNewEntry2TrafficUsageDTable(const TrafficUsageDEntry *candidate);

// Enters (1) or leaves (0) the active state now. 0, or -1 without an entry.
int setActiveTrafficUsageDEntry(TrafficUsageDEntry *entry, int active);

// Adds the growth of both counters, negative growth included. 0, or -1 when one is missing.
int updateTrafficUsageDAccuData(TrafficUsageDEntry *entry, const TrafficUsageDEntry *candidate);

// Counts a pass without growth; an active entry beyond the idle limit becomes inactive. 0, or -1
// without an entry.
int handleIdleTrafficUsageDEntry(TrafficUsageDEntry *entry);

// The idle limit in passes: the setting "tud_max_idle_time", 30 when that is below 1 or unset.
int getTUDMaxIdleTime();

// Retires the entries that were last seen before now: those that hold traffic become inactive, so
// that they are recorded in the same pass, the others leave the table. Always 0.
int removeUntrackedTrafficUsageDEntry(std::uint32_t now);

// Unlinks and frees every entry. Always 0.
int freeTrafficUsageDTable();

// Lists every entry through the debug log. Always 0.
int dumpTrafficUsageDTable();

// Copies the candidate's typeId into the entry. 0, or -1 when one is missing.
int updateTrafficUsageDDeviceID(TrafficUsageDEntry *entry, const TrafficUsageDEntry *candidate);

// Copies the candidate's lastSeenTime into the entry. 0, or -1 when one is missing.
int touchExistTrafficUsageDEntry(TrafficUsageDEntry *entry, const TrafficUsageDEntry *candidate);
