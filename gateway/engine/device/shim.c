/*
 * Preloaded into a program, makes "/dev/idpfw" work where the kernel cannot offer the device: an
 * ioctl on it goes to the engine's Unix socket instead. Nothing else is interposed: the program
 * opens and closes a plain file of that name, which the engine puts there.
 *
 * A request fails with the engine's own errno, or with ENODEV when no engine answers, ETIMEDOUT
 * when it does not answer in time, EFAULT for a bad address, EPROTO for an answer that makes no
 * sense.
 *
 * The caller's memory is only touched by the kernel until it has proved readable or writable, so
 * that a bad address is an error, as it is with a real device, and not a crash. Each call has a
 * connection of its own and nothing is allocated: safe from any thread.
 */
#define _GNU_SOURCE
#include "dpi/usr_ioctl.h"
#include "engine/device/wire.h"

#include <dlfcn.h>
#include <errno.h>
#include <poll.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

/* How long one request may take from connecting to the last byte. */
#define TIMEOUT_MS 5000

/* What the kernel can return as an error. */
#define MAX_ERRNO 4095

#ifdef __GLIBC__
typedef unsigned long request_number;
#else
typedef int request_number;
#endif

int ioctl(int descriptor, request_number number, ...);

/* One of the names that the library has for it, and where it is once that is known. */
struct library_ioctl {
    const char *name;
    void *found;
};

static int kernel_ioctl(struct library_ioctl *library, int descriptor, request_number number,
                        void *argument) {
    int (*real)(int, request_number, ...);
    void *symbol = __atomic_load_n(&library->found, __ATOMIC_RELAXED);
    if (symbol == NULL) {
        symbol = dlsym(RTLD_NEXT, library->name);
        if (symbol == NULL) {
            errno = ENOSYS;
            return -1;
        }
        __atomic_store_n(&library->found, symbol, __ATOMIC_RELAXED);
    }
    memcpy(&real, &symbol, sizeof real);
    return real(descriptor, number, argument);
}

/* The type byte of the number tells nearly every other ioctl apart without a system call. A real
 * device is a character device and is left to the kernel. */
static int is_engine_request(int descriptor, uint32_t number) {
    struct stat opened, device;
    if ((number >> 8 & 0xFFu) != IDPFW_MAGIC)
        return 0;
    return fstat(descriptor, &opened) == 0 && S_ISREG(opened.st_mode) &&
           stat(IDPFW_DEVICE, &device) == 0 && opened.st_dev == device.st_dev &&
           opened.st_ino == device.st_ino;
}

static int64_t now_ms(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (int64_t)now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

/* 0 when the socket is ready for the events before the deadline, else an errno. */
static int wait_ready(int link, short events, int64_t deadline) {
    struct pollfd waited = {.fd = link, .events = events, .revents = 0};
    for (;;) {
        const int64_t left = deadline - now_ms();
        if (left <= 0)
            return ETIMEDOUT;
        const int ready = poll(&waited, 1, (int)left);
        if (ready > 0)
            return 0;
        if (ready < 0 && errno != EINTR)
            return errno;
    }
}

/* What a failed transfer means: 0 to try again. */
static int transfer_error(int link, short events, int64_t deadline) {
    if (errno == EINTR)
        return 0;
    if (errno == EAGAIN)
        return wait_ready(link, events, deadline);
    return errno == EPIPE || errno == ECONNRESET ? ENODEV : errno;
}

static int send_all(int link, const void *bytes, size_t size, int64_t deadline) {
    const char *next = bytes;
    while (size > 0) {
        const ssize_t sent = send(link, next, size, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0) {
            const int error = transfer_error(link, POLLOUT, deadline);
            if (error != 0)
                return error;
            continue;
        }
        next += sent;
        size -= (size_t)sent;
    }
    return 0;
}

static int receive_all(int link, void *bytes, size_t size, int64_t deadline) {
    char *next = bytes;
    while (size > 0) {
        const ssize_t received = recv(link, next, size, MSG_DONTWAIT);
        if (received == 0)
            return ENODEV;
        if (received < 0) {
            const int error = transfer_error(link, POLLIN, deadline);
            if (error != 0)
                return error;
            continue;
        }
        next += received;
        size -= (size_t)received;
    }
    return 0;
}

static int connect_engine(int link, int64_t deadline) {
    struct sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = ""};
    const char *path = getenv(IDPFWD_SOCKET_VARIABLE);
    if (path == NULL || *path == '\0')
        path = IDPFWD_SOCKET_PATH;
    const size_t length = strlen(path);
    if (length >= sizeof address.sun_path)
        return ENODEV;
    memcpy(address.sun_path, path, length + 1);
    for (;;) {
        const int64_t left = deadline - now_ms();
        const struct timeval limit = {.tv_sec = left / 1000, .tv_usec = left % 1000 * 1000};
        if (left <= 0)
            return ETIMEDOUT;
        /* Bounds the wait for a place in the engine's queue. */
        setsockopt(link, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
        if (connect(link, (const struct sockaddr *)&address, sizeof address) == 0)
            return 0;
        if (errno == EAGAIN)
            return ETIMEDOUT;
        if (errno != EINTR)
            return ENODEV;
    }
}

/* The first send proves that the header can be read; its fields are looked at only then. */
static int send_request(int link, uint32_t number, const void *argument,
                        struct forward_ioctl *header, int64_t deadline) {
    const struct wire_request request = {WIRE_MARK, number, sizeof *header};
    int error = send_all(link, &request, sizeof request, deadline);
    if (error == 0)
        error = send_all(link, argument, sizeof *header, deadline);
    if (error != 0)
        return error;
    memcpy(header, argument, sizeof *header);
    /* An engine that refuses early closes before it has read all input: its reply says why. */
    if (header->in_type == 2)
        error = send_all(link, header->in_raw, header->in_len, deadline);
    return error == ENODEV ? 0 : error;
}

static int receive_reply(int link, const struct forward_ioctl *header, int64_t deadline) {
    struct wire_reply reply;
    uint32_t unasked;
    void *used = header->out_used_len != NULL ? (void *)header->out_used_len : &unasked;
    int error = receive_all(link, &reply, sizeof reply, deadline);
    if (error != 0)
        return error;
    if (reply.mark != WIRE_MARK || reply.error > MAX_ERRNO || reply.output_length > header->out_len)
        return EPROTO;
    if (reply.error != 0)
        return (int)reply.error;
    error = receive_all(link, header->out, reply.output_length, deadline);
    if (error != 0)
        return error;
    return receive_all(link, used, sizeof unasked, deadline);
}

static int forward(uint32_t number, const void *argument) {
    const int64_t deadline = now_ms() + TIMEOUT_MS;
    struct forward_ioctl header;
    const int link = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (link < 0)
        return ENODEV;
    int error = connect_engine(link, deadline);
    if (error == 0)
        error = send_request(link, number, argument, &header, deadline);
    if (error == 0)
        error = receive_reply(link, &header, deadline);
    close(link);
    return error;
}

static int carry_out(struct library_ioctl *library, int descriptor, request_number number,
                     void *argument) {
    const int before = errno;
    if (!is_engine_request(descriptor, (uint32_t)number)) {
        errno = before;
        return kernel_ioctl(library, descriptor, number, argument);
    }
    const int error = forward((uint32_t)number, argument);
    errno = error != 0 ? error : before;
    return error != 0 ? -1 : 0;
}

__attribute__((visibility("default"))) int ioctl(int descriptor, request_number number, ...) {
    static struct library_ioctl library = {"ioctl", NULL};
    va_list rest;
    va_start(rest, number);
    void *argument = va_arg(rest, void *);
    va_end(rest);
    return carry_out(&library, descriptor, number, argument);
}

#if defined(__GLIBC__) && __SIZEOF_POINTER__ == 4
/* What a program with 64-bit times calls in its place. */
int __ioctl_time64(int descriptor, request_number number, ...);

__attribute__((visibility("default"))) int __ioctl_time64(int descriptor, request_number number,
                                                          ...) {
    static struct library_ioctl library = {"__ioctl_time64", NULL};
    va_list rest;
    va_start(rest, number);
    void *argument = va_arg(rest, void *);
    va_end(rest);
    return carry_out(&library, descriptor, number, argument);
}
#endif
