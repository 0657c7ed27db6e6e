/*
 * Housekeeping of the reports' files: a cap on the size of a log, and marker files for events that
 * have happened.
 */
#ifndef ANALYTICS_HOUSEKEEPING_H
#define ANALYTICS_HOUSEKEEPING_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Removes the file at path when it has limit_mib times 1,048,576 bytes or more, and says so in the
 * debug log. A limit below 0 removes nothing; a file that cannot be opened is left alone, where
 * off_t has 32 bits also one of 2 GiB or more.
 */
void check_size(const char *path, int limit_mib);

/* 1 when there is anything at path, a directory too; else 0. */
int check_event_file_exists_or_not(const char *path);

/*
 * Makes the marker file at path, which then holds the line "1". The shell's status; -1 when the
 * command, path included, has more than 127 characters, or no shell could be started; in a process
 * that ignores SIGCHLD always -1 (errno ECHILD), although the file was made.
 */
int create_event_file(const char *path);

#ifdef __cplusplus
}
#endif

#endif
