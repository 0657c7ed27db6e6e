/*
 * The one request that idpfwd answers beside the fixed protocol: what a caller needs to tell one
 * life of the engine from the next, and what the engine could not count. Sent like any other
 * request, with run_ioctl: number IDPFWD_REQUEST_STATE, nr IDPFWD_NR_STATE, op IDPFWD_OP_STATE, out
 * and out_len.
 *
 * Another engine refuses it (ENOTTY, -2 from run_ioctl). The record may grow at its end: a caller
 * zeroes its own, and takes the length that the engine reports as the part that it was given.
 */
#ifndef ENGINE_ENGINE_STATE_H
#define ENGINE_ENGINE_STATE_H

#include "dpi/usr_ioctl.h"

#include <stdint.h>

#define IDPFWD_NR_STATE 63u
#define IDPFWD_OP_STATE 1u
#define IDPFWD_REQUEST_STATE IDPFW_REQUEST(IDPFWD_NR_STATE)

/* A value that the engine does not know. */
#define IDPFWD_UNKNOWN UINT64_MAX

/* Little-endian; all counts since this life of the engine began. */
struct idpfwd_state {
    uint64_t life;             /* random, never 0, another one after every start */
    uint64_t overflow_users;   /* devices refused while the user table was full */
    uint64_t overflow_rows;    /* pairs of device and application refused */
    uint64_t overflow_packets; /* packets of refused devices and pairs */
    uint64_t overflow_bytes;   /* their bytes */
    uint64_t capture_drops;    /* packets that the kernel dropped, or IDPFWD_UNKNOWN */
} __attribute__((packed));

#endif
