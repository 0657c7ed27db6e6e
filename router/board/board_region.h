/* The region that the router was made for, and questions about it. */
#ifndef BOARD_BOARD_REGION_H
#define BOARD_BOARD_REGION_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Room that bd_read_sku_info asks of its outputs, terminators included. */
#define BD_REGION_SIZE 8
#define BD_LANGUAGE_SIZE 32
#define BD_TIME_ZONE_SIZE 4
#define BD_OFFSET_SIZE 8

/*
 * Reads the region code from flash and looks up what goes with it: the region's name ("NA"), the
 * language of the web pages ("English"), the index of the time zone as decimal text, and the
 * offset from UTC in hours as text ("55" stands for five and a half). A code that is not in the
 * table gives region "", English, "5", "0".
 *
 * Returns 0; -1 with "sku_info %s fail, err_code %d\n" on standard output: "read" and 1 when a
 * pointer is missing or a size is below the ones above (nothing is stored then), "read" and 2 when
 * flash cannot be read (*code_out is 0, the texts are those of an unknown code).
 */
int bd_read_sku_info(uint32_t *code_out, char *region_out, int region_size, char *language_out,
                     int language_size, char *tz_out, int tz_size, char *offset_out,
                     int offset_size);

/*
 * Stores the region code. Returns 0; -1 as write_board_data does; -1 with "sku_info %s fail,
 * err_code %d\n" and flash untouched: "write" and 1 when code does not fit 16 bits, "write" and 2
 * when flash cannot be read.
 */
int bd_write_sku_info(int code);

/* 1 when the setting "sku_name" is "RU", or it is "WW" and "gui_region" is "Russian"; else 0. */
int is_russia_specific_support(void);
int is_ru_region(void);

/* 1 when the setting "sku_name" is "PR", else 0. */
int is_china_specific_support(void);

#ifdef __cplusplus
}
#endif

#endif
