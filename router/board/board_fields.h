/*
 * The fixed fields of the board-data block.
 *
 * Every routine reads the block from flash and returns -1 when that fails or when a pointer
 * is missing. The writers put the whole block back and return 0, or -1 as write_board_data does;
 * what they refuse by its length or content, with a message on standard output, leaves flash
 * untouched.
 *
 * The text readers copy the field, but size bytes at the most, and put a terminator behind: out
 * has at least size + 1 bytes. They return 0, or -1 when size is negative. A field that was never
 * written reads as what erased flash holds.
 */
#ifndef BOARD_BOARD_FIELDS_H
#define BOARD_BOARD_FIELDS_H

#ifdef __cplusplus
extern "C" {
#endif

/* Serial number, at most 32 characters: "serial number too long. Max %d chars!\n". */
int bd_read_sn(char *out, int size);
int bd_write_sn(const char *text);

/* Software feature word, at most 4 characters: "SW feature too long. Max %d chars!\n". */
int bd_read_sw_feature(char *out, int size);
int bd_write_sw_feature(const char *text);

/* Hardware revision, at most 16 characters: "HW rev too long. Max %d chars!\n". */
int bd_read_hw_rev(char *out, int size);
int bd_write_hw_rev(const char *text);

/*
 * Board identifier, at most 63 characters: "Board ID too long. Max %d chars!\n", which names 64.
 * Unlike the others the reader copies at most size - 1 bytes and terminates within size, which is
 * at least 1.
 */
int bd_read_board_id(char *out, int size);
int bd_write_board_id(const char *text);

/* The two Ethernet addresses, 6 bytes each. */
int bd_read_eth_mac(unsigned char *mac1, unsigned char *mac2);
int bd_write_eth_mac(const unsigned char *mac1, const unsigned char *mac2);

/*
 * The default WPS PIN: 8 decimal digits of which the last is a check digit. The writer refuses
 * another length ("length error (%d digits)\n"), other characters ("format error (%d digits)\n")
 * and a wrong check digit ("checksum failed!"). The reader does not look at the check digit; it
 * gives -1 with "PIN number not found!" when the field is not all digits.
 */
int bd_read_pin(char *out, int size);
int bd_write_pin(const char *text);

#ifdef __cplusplus
}
#endif

#endif
