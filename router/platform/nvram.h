/*
 * The router's settings store, as its platform library libnvram.so exports it. On a workstation
 * gateway/settings supplies a library of the same name.
 */
#ifndef PLATFORM_NVRAM_H
#define PLATFORM_NVRAM_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The value of a setting: never NULL, "" when it is unset. The text belongs to the library and
 * stays valid until the same thread has read 16 more settings.
 */
const char *kelpNvramConfig_get(const char *name);

/* 1 when the setting equals value, else 0. An unset setting equals "". */
int kelpNvramConfig_match(const char *name, const char *value);

/* Sets a setting for every process at once. 0, or -1 when it was refused. */
int kelpNvramConfig_set(const char *name, const char *value);

/* Commits all settings to permanent storage. 0, or -1. */
int kelpNvramConfig_save(void);

#ifdef __cplusplus
}
#endif

#endif
