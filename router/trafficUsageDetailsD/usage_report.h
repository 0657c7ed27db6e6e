// The usage report: one JSON document of every record that waits in the record buffer.
#pragma once

#include "trafficUsageDetailsD/record_buffer.h"

#include <cjson/cJSON.h>

// Makes the report, which empties the record buffer, and clears got_sigusr1. Always 0.
int generateTudJson();

// Builds, writes (to TRAFFIC_USAGE_REPORT_FILE) and releases the document. Without memory for the
// document or its text nothing is written, and every record stays for the next report. Always 0.
int dumpEntryToJson();

// The whole document, or null, with the buffer untouched, when there was no memory for it. Each
// record that enters it leaves the buffer, before anything is written; one without memory for its
// object stays. Names are valid UTF-8, whatever the record holds. The caller frees it with
// cJSON_Delete.
cJSON *createTrafficUsageDetailObj();

// One record as an object, or null. The caller frees it with cJSON_Delete.
cJSON *trafficInfoToJson(const TrafficInfo *record);

// Tells the uploader to publish. Always 0, whether or not there is an uploader.
int sendTUDReport2Cloud();

// Prints an array to standard output: of the record, finalized, when its flags are not 0 (the
// record is then cleared), else empty. 0, or -1 without a record or memory.
int dumpAEntryToJson(TrafficInfo *record);

// Local time now: date is year, month (1 to 12), day; clock is hour, minute, second. 0, or -1 when
// one is missing.
int get_timestamp(int *date, int *clock);

// Ask the router's own commands for the firmware version and the serial number; text has room for
// at least 64 bytes. 0, or 1 after three failed tries, a second apart, with text empty; 1 at once
// without text.
int collect_dev_fw_ver(char *text);
int collect_dev_sn(char *text);
