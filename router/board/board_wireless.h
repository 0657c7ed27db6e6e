/*
 * The factory default wireless names and pass phrases, kept as records of the board-data block.
 * band 2 is the second band, any other value the first.
 *
 * A name has 0 to 32 characters, a pass phrase 8 to 63, all printable ASCII.
 */
#ifndef BOARD_BOARD_WIRELESS_H
#define BOARD_BOARD_WIRELESS_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Reads the text into out, which has size bytes and is cleared first; a text without a terminator
 * is cut to size - 1 characters. Returns 0; -1 when out is missing, size is below 1, the record
 * cannot be read or is longer than size (as bd_read_record says), or when the text breaks the rules
 * above.
 */
int bd_read_ssid(char *out, int size, int band);
int bd_read_passphrase(char *out, int size, int band);

/*
 * Stores the text with its terminator. Returns 0; -1 as bd_write_record does; -1 with flash
 * untouched for a text that breaks the rules above: "Invalid SSID length. Max %d chars!\n",
 * "Invalid chars in SSID!", "Invalid Passphrase length. 8 - %d chars!\n", "Invalid chars in
 * passphrase!" on standard output.
 */
int bd_write_ssid(const char *text, int band);
int bd_write_passphrase(const char *text, int band);

#ifdef __cplusplus
}
#endif

#endif
