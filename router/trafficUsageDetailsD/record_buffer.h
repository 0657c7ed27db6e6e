// The record buffer: finished periods of usage, one record per period of one application on one
// device, until a report takes them away.
#pragma once

#include "trafficUsageDetailsD/usage_table.h"

#include <cstdint>

constexpr int MAX_ENTRY = 294;

struct TrafficInfo {
    std::uint32_t flags; // 0 open, 2 finalized
    unsigned char macAddress[6];
    std::int32_t vendorId;
    std::int32_t typeId;
    char appType[kNameSize];
    char appName[kNameSize];
    std::uint32_t trafficStartTime; // seconds since the epoch; 0 means the slot is free
    std::uint32_t trafficEndTime;
    std::uint32_t duration;   // seconds
    double uploadBandwidth;   // bytes sent during the period
    double downloadBandwidth; // bytes received
    unsigned char reserved[8];
};

extern TrafficInfo trafficBuffer[MAX_ENTRY];

// The two that fill the buffer, and empty it by a report when it is full (recording.cpp).

// Makes a record of every inactive table entry that holds traffic, unless the daemon was asked to
// end. Always 0.
int updateTrafficBuffer();

// Stores the record in the first free slot. A full buffer is reported instead, which empties it,
// and the record is lost. 0, or -1 without a record.
int saveTrafficInfo2Buf(const TrafficInfo *record);

// Fills the record from the entry and zeroes the entry's accumulations. 0, or -1 when one is
// missing.
int convertTrafficUsageD2TrafficBuf(TrafficUsageDEntry *entry, TrafficInfo *record);

// Copies a record into a slot; a slot in use keeps its start and, once it has one, its end. 0, or
// -1 when one is missing.
int updateTrafficInfo(const TrafficInfo *in, TrafficInfo *slot);

// Clears the slot to all zeroes. 0, or -1 without a slot.
int resetTrafficInfoEntry(TrafficInfo *slot);

// List the buffer, its occupied slots, one record through the debug log. Always 0, but -1 without
// a record. The index is not printed.
int dumpMemoryBuffer();
int dumpEntry();
int dumpAEntry(int index, const TrafficInfo *record);

// 1 when the record's start is 0; 0 otherwise or without a record.
int isFreeTrafficInfoEntry(const TrafficInfo *record);

// The first free slot, or null.
TrafficInfo *findFreeTrafficInfo();

// 1 when both have the same MAC address, typeId and names; 0 otherwise or when one is missing.
int isSameTrafficInfoEntry(const TrafficInfo *a, const TrafficInfo *b);

// The first slot that is the same as the record, or null.
TrafficInfo *findTrafficInfo(const TrafficInfo *record);

// Always -1.
int isTimoutTrafficInfo(const TrafficInfo *record);

// Closes a record whose flags are not 0 (its end moves on by the idle time-out, at most to now).
// 0, or 1 when the flags are 0 or there is no record.
int finalizeTrafficInfo(TrafficInfo *record);

// 1 when both records have the same byte counts, or one is missing; else 0.
int isNoTrafficIncrease(const TrafficInfo *a, const TrafficInfo *b);
