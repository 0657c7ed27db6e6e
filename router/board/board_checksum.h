/* The checksum of the storage partitions. */
#ifndef BOARD_BOARD_CHECKSUM_H
#define BOARD_BOARD_CHECKSUM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Modes of calculate_checksum. */
#define CHECKSUM_START 0
#define CHECKSUM_ADD 1
#define CHECKSUM_FINISH 2

/*
 * A checksum of two running 32-bit sums, in steps: start, add data as often as needed, finish.
 * The sums are kept for the whole process: finish one checksum before the next one starts.
 *
 * CHECKSUM_ADD takes length bytes of data (0 or less adds nothing). CHECKSUM_FINISH folds each sum
 * to 16 bits with end-around carry, keeps the folded sums, and returns the sum of the bytes in the
 * low half and the sum of the running sums in the high half. The other modes return 1; a mode that
 * is none of the three changes nothing.
 */
uint32_t calculate_checksum(int mode, const unsigned char *data, int length);

/*
 * Checks the storage partition of a slot, 0 to 8: its data, whose length and checksum stand in a
 * header of 16 bytes before them, lie within the first 65,536 bytes.
 *
 * Stores the checksum of the data in *checksum_out and returns 0 when it is the stored one, else
 * -1. Also -1, with nothing stored: another index, no checksum_out, a partition that cannot be read
 * (the slots 7 and 8 have none), a length of 0 or of more than 65,520.
 */
int cal_st_chksum(int index, uint32_t *checksum_out);

#ifdef __cplusplus
}
#endif

#endif
