/*
 * The NAT feature word, as the router's platform library libnat.so exports it. On a workstation
 * gateway/settings supplies a library of the same name.
 */
#ifndef PLATFORM_NAT_H
#define PLATFORM_NAT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Reads the 32 feature bits into *word. 0, or -1 with *word untouched. */
int agApi_feature_get(uint32_t *word);

/* Replaces the 32 feature bits. 0, or -1. */
int agApi_feature_set(uint32_t word);

#ifdef __cplusplus
}
#endif

#endif
