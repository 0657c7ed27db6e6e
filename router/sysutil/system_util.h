/* The router's system helpers: one include for all topics. */
#ifndef SYSUTIL_SYSTEM_UTIL_H
#define SYSUTIL_SYSTEM_UTIL_H

#include "access_control.h"
#include "app_detail.h"
#include "attached_devices.h"
#include "device_identity.h"
#include "firmware_update.h"
#include "iqos.h"
#include "iqos_service.h"
#include "timezone.h"

#endif
