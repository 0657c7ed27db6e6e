/*
 * Analytics reporting: report files, grouped publishing with retry, firmware-upgrade state,
 * housekeeping, process stop. One include for callers; each topic header stands on its own as well.
 *
 * All of it is state of the process without locks, for one thread at a time.
 */
#ifndef ANALYTICS_AWSJSON_UTIL_H
#define ANALYTICS_AWSJSON_UTIL_H

#include "device_lookup.h"
#include "firmware_upgrade.h"
#include "group_publish.h"
#include "group_retry.h"
#include "housekeeping.h"
#include "process_stop.h"
#include "report_file.h"

#endif
