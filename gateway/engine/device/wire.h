/*
 * What passes between the preloaded shim and the engine over the Unix socket, one request for each
 * connection:
 *
 *   shim:    wire_request, the caller's header (44 or 64 bytes), its input
 *   engine:  wire_reply, and on success the output and the reported length (4 bytes)
 *
 * The length comes last: a caller whose output was cut short must not be told that it is there.
 * The header travels as the caller's memory holds it; it says how much input follows. All numbers
 * are little-endian.
 */
#ifndef ENGINE_WIRE_H
#define ENGINE_WIRE_H

#include <stdint.h>

/* Where the engine listens unless --socket or the environment variable says otherwise. */
#define IDPFWD_SOCKET_PATH "/var/run/idpfwd.sock"
#define IDPFWD_SOCKET_VARIABLE "IDPFWD_SOCKET"

/* The first four bytes of both messages: protocol and version. */
#define WIRE_MARK 0x31504449u /* "IDP1" */

struct wire_request {
    uint32_t mark;
    uint32_t number;      /* of the ioctl */
    uint32_t header_size; /* 44 or 64 */
};

struct wire_reply {
    uint32_t mark;
    uint32_t error;         /* 0, or the errno that the ioctl fails with */
    uint32_t output_length; /* never more than the caller's capacity */
};

#endif
