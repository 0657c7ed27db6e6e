/*
 * Frees the router's memory before a firmware upgrade that is about to run, by stopping whatever
 * it can do without.
 */
#ifndef ANALYTICS_PROCESS_STOP_H
#define ANALYTICS_PROCESS_STOP_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Stops the router's optional services and agents, this library's own daemon among them, and
 * removes their temporary files. Takes some seconds; no command's result is examined. The shell's
 * status of the last command, a process listing.
 */
int stop_process(void);

/*
 * Runs stop_process() when the settings say that an upgrade was triggered and that its check found
 * no error, unless "/opt/RA/fw_update_issue_fix.txt" exists; else prints that there is no need.
 */
void kill_process_if_need(void);

#ifdef __cplusplus
}
#endif

#endif
