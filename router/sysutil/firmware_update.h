/*
 * What the firmware-update tools share. Their state lives in files under "/tmp", so that separate
 * processes see it.
 *
 * Results that are the status of the shell are -1 (errno ECHILD) in a process that ignores SIGCHLD:
 * the file is then written all the same.
 */
#ifndef SYSUTIL_FIRMWARE_UPDATE_H
#define SYSUTIL_FIRMWARE_UPDATE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The folder with the update files of the router's region: two letters, "ww" for a region without
 * one of its own or when flag is not 0. The text is static; the next call overwrites it.
 */
char *get_firmware_update_folder(int flag);

/* Writes a status file: one decimal number and a line end. The status of the shell, 0 for done. */
int set_fw_check_status(const char *path, int value);

/*
 * The number in the first line of a status file, 0 when it begins with none; -1 when that line is
 * empty. A file that cannot be opened is created with 0, and 0 is the result.
 */
int get_fw_check_status(const char *path);

/* Write 0 into all status files of a kind. The shell's status of the last one. */
int reset_all_fw_check_status(void);
int reset_all_device_info_check_status(void);

/* Marks that an upgrade file is being prepared. 0, or -1 with a message on standard error. */
int create_upgrade_file(void);

/* Whether an upgrade file is being prepared: 1 or 0. */
int check_upgrade_status(void);

/* Marks that the image is being flashed. The status of the shell, 0 for done. */
int set_fw_is_upgrading(void);

/* Whether the image is being flashed: 1 or 0. */
int is_fw_upgrading(void);

/*
 * The size of a file in bytes. 0 when it is known; 1 with a message on standard error when the file
 * cannot be opened (*size unchanged; one of 2 GiB or more cannot where off_t has 32 bits), 1 with
 * *size 0 when its end cannot be found.
 */
int getDownloadImageSize(const char *path, uint32_t *size);

/*
 * Compares two images byte by byte. Logs the outcome to "/dev/console" and "/tmp/dbg_log", and to
 * the latter alone three lines for every byte that differs. The number of bytes that differ: 0 when
 * the images are identical, but also when one cannot be opened; 1 also when their sizes differ. The
 * log tells these cases apart. Bytes that cannot be read once it is open count as 0xFF.
 */
int compare_two_binary_files(const char *path_a, const char *path_b);

#ifdef __cplusplus
}
#endif

#endif
