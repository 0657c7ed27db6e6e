/*
 * The router's time zone: from the settings into the process's TZ and the kernel, and from a number
 * of hours into the settings.
 *
 * Settings: "time_zone" (signed hours east of Greenwich; -35, 55 and 95 are the half-hour zones
 * -3:30, +5:30 and +9:30, 100 and 101 are +1 and +10), "schedule_daylightadjust" ("1": daylight
 * saving), "time_zone_x" (not 0: daylight saving without dates), "time_zone_state",
 * "timezone_index".
 */
#ifndef SYSUTIL_TIMEZONE_H
#define SYSUTIL_TIMEZONE_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Sets the environment's TZ from the settings, replacing any earlier value. 0, or -1 when the
 * environment cannot grow.
 */
int sys_set_timezone(void);

/*
 * Sets TZ as sys_set_timezone does, then the kernel's minutes west of Greenwich. A refusal of the
 * kernel is reported on standard error. Always 0.
 */
int system_update_timezone(void);

/* 1 when value is one of the zones that "time_zone" knows, half-hour codes included, else 0. */
int is_in_timezone_list(float value);

/*
 * Writes the position of the current "time_zone" in the list of zones, 0 to 44 as decimal text,
 * into out (at least 3 bytes). Of several zones with one offset it is always the same one; "18"
 * (Greenwich) for a zone that is not in the list. Always 0.
 */
int getTimeZoneIndex(char *out);

/*
 * Stores a zone given as a text of hours ("-8", "+5.5"). The text is normalised in place and must
 * have at least 4 bytes, even when it is shorter. Sets "time_zone", "time_zone_state" and
 * "timezone_index" without committing them. 1 when stored; 0 when the text is NULL, empty or "nan",
 * or when the zone is the current one.
 *
 * What is no number counts as 0 hours, which is a zone: such a text is stored as it stands, as is
 * whatever follows a number that is in the list of zones. Check what a user typed before.
 */
int set_timezone_to_nvram(char *text);

#ifdef __cplusplus
}
#endif

#endif
