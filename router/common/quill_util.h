/*
 * Common utilities of the router programs: several values in one setting text, the router log,
 * commands.
 */
#ifndef COMMON_QUILL_UTIL_H
#define COMMON_QUILL_UTIL_H

#include <stdarg.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Multi-value texts: fields separated by ";", or by the separator that a helper takes. Field
 * numbers start at 0. A field or index that does not exist changes nothing. Arguments must not be
 * NULL where nothing else is said.
 */

/*
 * Field n of s, which is split in place. Empty fields do not count: field 1 of "a;;b" is "b". n
 * below 1 asks for the first field. "" when there is no such field, NULL when s is NULL. Uses
 * strtok, so it ends a strtok walk of the caller's own and is for one thread at a time.
 */
char *getNthValue(int n, char *s);

/*
 * The text with field n replaced by value, in a static buffer of 2,048 bytes that the next call
 * overwrites. Empty fields count, and fields missing before n are added empty: field 3 of "a;b" set
 * to "x" gives "a;b;;x". At most eight separators are honoured, what follows is part of the ninth
 * field; of each field and of the value 256 bytes are taken, of the result 2,047. n outside 0 to 8
 * gives the text without a change.
 */
char *setNthValue(int n, const char *text, const char *value);

/*
 * Number of fields, empty ones included; 0 for NULL. The first character is never counted as a
 * separator: ";a" and "" have 1, "a;" has 2.
 */
int getValueCount(const char *text);

/* 1 when the text contains ";", else 0. */
int checkSemicolon(const char *text);

/*
 * Copies field n into out, cut and terminated at size bytes. Empty fields count, unlike in
 * getNthValue: field 1 of "a;;b" is "". A negative n asks for field 0 when the text has a
 * separator. 0, or -1 with out untouched when there is no such field, text or out is NULL, or size
 * is below 1.
 */
int getNthValueSafe(int n, const char *text, char separator, char *out, int size);

/*
 * Deletes the fields of these count indices, in ascending order, from the text, in place. Empty
 * fields count. After field 0 a leading ";" goes too, but no other separator does. Always 0.
 */
int deleteNthValueMulti(const int *indices, int count, char *text, char separator);

/*
 * Splits the first 16,383 bytes of text at any of the delimiter characters into slots, each of
 * which takes a token's first 127 characters. Empty fields do not count. Slots behind the last
 * token become "", except when the text is NULL or empty. The number of tokens stored, at most max.
 */
int getTokens(const char *text, const char *delimiters, char (*tokens)[128], int max);

/*
 * Adds (action 1) a value to the list in a setting unless it is there, or removes (action 0) every
 * entry that equals it. 1 when the setting was rewritten; 0, with the setting unchanged, when there
 * was nothing to do, the action is another, max is below 1, the new list needs more than 255
 * characters, or the store refused it.
 *
 * The list is looked at as getTokens does, with every character of the delimiter text: entries from
 * the max-th on and characters from the 128th on are not seen, and are lost when an entry is
 * removed. Removing the first entry leaves its delimiter: "a" from "a,b" gives ",b".
 */
int config_nvram_list(const char *name, const char *value, const char *delimiter, int action,
                      int max);

/*
 * Writes a line to the router log unless the setting "log_filter" (a decimal mask, empty for all)
 * lacks every category bit in the upper half of log_type. text[length] is set to NUL, so the buffer
 * must have room for it; text and NUL go out in one write. 0 when written, filtered out, or length
 * is negative; -1, with a message on standard output, when the log cannot be opened. A failed write
 * loses the line.
 */
int quillWriteLog(char *text, int length, int log_type);

/*
 * Hands the category mask to the log device, except on an extender ("enable_extender_mode" is "1").
 * 0, or -1 with a message on standard output.
 */
int quillSetLogFilter(uint32_t mask);

/*
 * Format a command and run it through the shell; what they format is the caller's own, nothing is
 * quoted. Longer commands are cut, and the cut text is run: doSystem cuts at 1,023 characters and
 * gives the status of system(), or 0 when nothing could be formatted; SYSTEM cuts at 2,047, prints
 * the command first when "system_dbg" is "1", and always gives 0.
 */
int doSystem(const char *format, ...) __attribute__((format(printf, 1, 2)));
int SYSTEM(const char *format, ...) __attribute__((format(printf, 1, 2)));

/*
 * Formats the path of a pid file; when the file exists, kills the process that it names and removes
 * it. The path reaches the shell unquoted; one of more than 1,012 characters is left alone.
 * Always 0.
 */
int doKillPid(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* The text followed by the number, cut at 63 characters, in a static buffer. */
char *racat(const char *text, int number);

/* 1 when the router is set up for the Russian region, else 0. */
int is_russian_case(void);

/*
 * Formats into a new text of at most limit bytes, terminator included, that the caller frees; *out
 * is NULL when limit is below 1, memory is short or the format fails. The length that the whole
 * text has, of which limit - 1 characters were kept; negative when the format fails.
 */
int fmtValloc(char **out, int limit, const char *format, va_list args)
    __attribute__((format(printf, 3, 0)));

/* Debugging hook. Does nothing; a program may define its own, as well as fmtValloc. */
void trace(const char *format, ...) __attribute__((format(printf, 1, 2)));

#ifdef __cplusplus
}
#endif

#endif
