/*
 * Preloaded into the daemon by the end-to-end tests: shortens its wait between passes to a
 * hundredth and leaves a line with its process id for each, so that a test can wait for passes
 * and not for seconds. The time of day moves on as if the waits had been whole: what a pass tells
 * by its second is told here too.
 */
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/select.h>
#include <time.h>
#include <unistd.h>

typedef int (*pselect_function)(int, fd_set *, fd_set *, fd_set *, const struct timespec *,
                                const sigset_t *);

static time_t skipped = 0; /* the daemon has one thread */

time_t time(time_t *result) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    now.tv_sec += skipped;
    if (result != NULL)
        *result = now.tv_sec;
    return now.tv_sec;
}

static void leave_mark(void) {
    const int file = open("/tmp/waits", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (file < 0)
        return; /* the test that misses its mark fails by its time-out */
    dprintf(file, "%d\n", (int)getpid());
    close(file);
}

int pselect(int count, fd_set *readable, fd_set *writable, fd_set *exceptional,
            const struct timespec *timeout, const sigset_t *mask) {
    pselect_function real;
    struct timespec shorter = {0, 0};
    *(void **)&real = dlsym(RTLD_NEXT, "pselect");
    if (timeout == NULL)
        return real(count, readable, writable, exceptional, timeout, mask);
    if (timeout->tv_sec < 0 || timeout->tv_nsec < 0 || timeout->tv_nsec >= 1000000000) {
        errno = EINVAL;
        return -1;
    }
    shorter.tv_nsec = (long)(timeout->tv_sec * 10000000 + timeout->tv_nsec / 100);
    leave_mark();
    skipped += timeout->tv_sec;
    return real(count, readable, writable, exceptional, &shorter, mask);
}
