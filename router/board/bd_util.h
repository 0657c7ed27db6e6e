/*
 * The router's factory identity: the board-data block in flash with its fixed fields and records,
 * the region table and the region answers, the checksums of the storage partitions.
 */
#ifndef BOARD_BD_UTIL_H
#define BOARD_BD_UTIL_H

#include "board_checksum.h"
#include "board_data.h"
#include "board_fields.h"
#include "board_records.h"
#include "board_region.h"
#include "board_wireless.h"
#include "mtd_util.h"

#endif
