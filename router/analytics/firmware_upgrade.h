/*
 * The report of a firmware upgrade, kept in settings across the upgrade, and the labels that the
 * report uses for what other components left in settings.
 */
#ifndef ANALYTICS_FIRMWARE_UPGRADE_H
#define ANALYTICS_FIRMWARE_UPGRADE_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Opens the report in this process: sets the firmware-report flag, sets "aws_fw_report" to "0" and
 * commits the settings.
 */
void ra_report_fw_upgrade_start(void);

/*
 * Closes the report: clears the firmware-report flag, sets "aws_fw_report_done" to "1" and commits
 * the settings. Does nothing while the flag is not 1, so a report that was started before a restart
 * is never finished.
 */
void ra_report_fw_upgrade_finish(void);

/*
 * Writes the label of "aws_fw_event_type" into out, at least 12 bytes, and returns out: "Weekly",
 * "New Install", "GUI upgrade" or "APP upgrade". A value is known by how it begins: with a code
 * ("0", "3", "4", "5"), or else with a label; any other is "Weekly".
 */
char *get_fw_upgarade_event_type(char *out);

/*
 * Writes "Triggerd" when the setting "aws_fw_upgarade_triggered" is exactly that, else
 * "Not trigger", into out, at least 12 bytes, and returns out.
 */
char *get_fw_upgarade_triggered(char *out);

/*
 * Writes the text of "aws_fw_check_result" into out, at least 23 bytes, and returns out. A text
 * that is none of the known failures becomes "no error".
 */
char *get_fw_check_result(char *out);

#ifdef __cplusplus
}
#endif

#endif
