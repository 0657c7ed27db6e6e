/*
 * Control of the QoS service: its external daemon "bcmiqosd", the database files that it reads from
 * "/tmp/trend", their copies on the flash under "/tmp/media/nand", and the NAT accelerator's
 * feature bits that must agree with the QoS switch.
 */
#ifndef SYSUTIL_IQOS_SERVICE_H
#define SYSUTIL_IQOS_SERVICE_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * 1 when the firmware brings a newer device-mapping file than the copy on the flash, else 0, also
 * when there is no copy. Prints what it found.
 */
int newer_iqos_database(void);

/*
 * Aligns the NAT feature bits, removes the databases on the flash when the firmware's are newer,
 * then performs the action: "start_iqos" (which first copies the databases from the flash to
 * "/tmp/trend"), "stop_iqos", "restart_iqos" or "pause_iqos". Any other action, NULL included, is
 * reported on standard output. Waits for every command and examines none. Always 0.
 */
int iqos_service(const char *action);

/*
 * Sets the NAT feature bits from the settings: 8 unless "broadstream_iqos_enable" is "1", 16 when
 * "enable_circle_control" is "1"; the other bits stay. Result of the platform call, 0 or -1.
 */
int kelpnat_set_features(void);

#ifdef __cplusplus
}
#endif

#endif
