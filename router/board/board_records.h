/*
 * The records of the board-data block, from offset 32,768 to its end: back to back, each a header
 * of 8 bytes (magic 0xBD0D0BBD, id and data length of 16 bits each, all little-endian) and its
 * data; an end marker (a header with id 0 and length 0) closes the chain.
 */
#ifndef BOARD_BOARD_RECORDS_H
#define BOARD_BOARD_RECORDS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Ids of the records, and at the same time their order on flash. */
#define BD_RECORD_SSID_1 1       /* network name of the first band, terminated text */
#define BD_RECORD_PASSPHRASE_1 2 /* pass phrase of the first band, terminated text */
#define BD_RECORD_SSID_2 3       /* the same of the second band */
#define BD_RECORD_PASSPHRASE_2 4

/*
 * Finds a record in flash and copies its data (no terminator is added) to buffer, which has size
 * bytes; their number goes to *length_out.
 *
 * A record counts only when another header follows right behind its data, and not in the last 8
 * bytes of the block. So the last record of a chain that fills the block to its last byte is not
 * found.
 *
 * Returns 0; -1 when id is not 1 to 4, a pointer is missing, the block cannot be read or there is
 * no such record; -1 with "bd_record_len:%d > buf_size:%d\n" on standard output when the data are
 * longer than size. On failure buffer and *length_out are untouched.
 */
int bd_read_record(int id, char *buffer, uint32_t *length_out, int size);

/* The same in a block image of the caller's, BOARD_DATA_SIZE bytes. */
int bd_read_record_2(int id, char *buffer, const unsigned char *block, uint32_t *length_out,
                     int size);

/*
 * Replaces one record in flash by length bytes of data. The chain is built anew: records 1 to 4 in
 * this order, the others with the data they had, or empty when they were missing, and the end
 * marker. Data that hold the magic themselves are stored, but may hide records when read.
 *
 * Returns 0; -1 when id is not 1 to 4, data is missing, length is negative, the block cannot be
 * read or mtd_write fails; -1 with "No room to add last magic" on standard output when the chain
 * does not fit. Only a failing mtd_write has touched flash.
 */
int bd_write_record(int id, const char *data, int length);

/*
 * The same in a block image of the caller's, BOARD_DATA_SIZE bytes, which is changed on success
 * only: what is in flash stays. Bytes behind the end marker are kept.
 */
int bd_write_record_2(int id, const char *data, unsigned char *block, int length);

#ifdef __cplusplus
}
#endif

#endif
