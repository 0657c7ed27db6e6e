/*
 * Writes one report text to one file, and keeps the small state that reports share: where the
 * uploader lives, its certificate option, the report's time stamp, the firmware-report flag and the
 * internet-connection facts.
 */
#ifndef ANALYTICS_REPORT_FILE_H
#define ANALYTICS_REPORT_FILE_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Makes text the whole content of the file at path, whose directory must exist, then echoes the
 * file to standard output through "cat". An empty or missing (NULL) text leaves the file as it is
 * and only echoes it; a path too long for the command is not echoed.
 *
 * 0; -3 when the file cannot be created. A failed write is not detected.
 */
int ra_output_json_to_file(const char *text, const char *path);

/*
 * The directory that holds the publisher programs, "/tmp/media/nand/router-analytics" from the
 * start. The setter keeps the first 127 characters and gives 0; the getter gives the buffer itself,
 * which a later set changes and nobody frees.
 */
int ra_set_root_dir(const char *dir);
char *ra_get_root_dir(void);

/* The certificate option handed to the publisher, 0 from the start. The setter gives 0. */
int ra_set_awsiot_cert_opt(int value);
int ra_get_awsiot_cert_opt(void);

/* 1 while a firmware-upgrade report is outstanding, 0 from the start. The setter gives 0. */
int ra_set_check_fw_report(int value);
int ra_get_check_fw_report(void);

/*
 * The time stamp of the current report, "20240105-070809", empty from the start. The setter takes
 * year, month (1 to 12), day and hour, minute, second as they are to appear, and gives 0; the
 * getter gives the buffer itself, which a later set changes and nobody frees.
 */
int ra_set_json_timestamp(const int date[3], const int time[3]);
char *ra_get_json_timestamp(void);

/*
 * Three internet-connection facts, all 0 from the start. The setter stores value at index 0 to 2,
 * clears all three at index 3, ignores any other index, and gives 0. The getter gives 0 for an
 * index above 2.
 */
int ra_set_internet_connection_info(unsigned int index, unsigned int value);
unsigned int ra_get_internet_connection_info(unsigned int index);

#ifdef __cplusplus
}
#endif

#endif
