/*
 * Preloaded into whole programs: makes calls of one kind fail, the n-th one ("open:3") or all from
 * there on ("open:3+"), as FAIL_CALL says. Leaves a file that FAIL_MARK names when it did.
 */
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#define REAL(function) ((__typeof__(&function))dlsym(RTLD_NEXT, #function))

static int fails(const char *kind, int error) {
    static int count;
    const char *plan = getenv("FAIL_CALL");
    const char *mark = getenv("FAIL_MARK");
    const size_t length = strlen(kind);
    char *end = NULL;
    if (plan == NULL || mark == NULL || strncmp(plan, kind, length) != 0 || plan[length] != ':')
        return 0;
    const long n = strtol(plan + length + 1, &end, 10);
    ++count;
    if (*end == '+' ? count < n : count != n)
        return 0;
    const long file = syscall(SYS_openat, AT_FDCWD, mark, O_CREAT | O_WRONLY, 0600);
    if (file >= 0)
        syscall(SYS_close, file);
    errno = error;
    return 1;
}

#define FAULTY(result, name, parameters, arguments, kind, error, failure) \
    result name parameters {                                              \
        return fails(kind, error) ? failure : REAL(name) arguments;       \
    }

FAULTY(void *, malloc, (size_t size), (size), "allocate", ENOMEM, NULL)
FAULTY(void *, calloc, (size_t count, size_t size), (count, size), "allocate", ENOMEM, NULL)
FAULTY(FILE *, fopen, (const char *path, const char *mode), (path, mode), "open", EMFILE, NULL)
FAULTY(ssize_t, pread, (int file, void *data, size_t size, off_t at), (file, data, size, at),
       "read", EIO, -1)
FAULTY(ssize_t, pwrite, (int file, const void *data, size_t size, off_t at), (file, data, size, at),
       "write", ENOSPC, -1)
FAULTY(int, fdatasync, (int file), (file), "write", EIO, -1)
FAULTY(int, ftruncate, (int file, off_t size), (file, size), "write", ENOSPC, -1)
FAULTY(void *, mmap, (void *at, size_t size, int protection, int flags, int file, off_t offset),
       (at, size, protection, flags, file, offset), "map", ENOMEM, MAP_FAILED)
FAULTY(int, daemon, (int keep_folder, int keep_output), (keep_folder, keep_output), "fork", EAGAIN,
       -1)

int open(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const unsigned int mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned int) : 0;
    va_end(arguments);
    return fails("open", EMFILE) ? -1 : REAL(open)(path, flags, mode);
}
