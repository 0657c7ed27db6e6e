/* The board-data block as a whole. */
#ifndef BOARD_BOARD_DATA_H
#define BOARD_BOARD_DATA_H

#ifdef __cplusplus
extern "C" {
#endif

/* Bytes of the block: fixed fields in its first half, records in its second. */
#define BOARD_DATA_SIZE 65536

/*
 * Copies the block from flash ("/dev/mtdblock4") into buffer, which has at least BOARD_DATA_SIZE
 * bytes. Returns 0, or -1 as read_mtd_data does.
 */
int read_board_data(unsigned char *buffer);

/*
 * Writes the BOARD_DATA_SIZE bytes of buffer to flash ("/dev/mtd4") in place of the old block.
 * Returns 0, or -1 as mtd_write does.
 */
int write_board_data(const unsigned char *buffer);

#ifdef __cplusplus
}
#endif

#endif
