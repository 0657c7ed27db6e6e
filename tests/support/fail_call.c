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

void *malloc(size_t size) {
    return fails("allocate", ENOMEM) ? NULL : REAL(malloc)(size);
}

void *calloc(size_t count, size_t size) {
    return fails("allocate", ENOMEM) ? NULL : REAL(calloc)(count, size);
}

static int open_unless_it_fails(int (*real)(const char *, int, ...), const char *path, int flags,
                                va_list arguments) {
    const unsigned int mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned int) : 0;
    return fails("open", EMFILE) ? -1 : real(path, flags, mode);
}

int open(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const int descriptor = open_unless_it_fails(REAL(open), path, flags, arguments);
    va_end(arguments);
    return descriptor;
}

FILE *fopen(const char *path, const char *mode) {
    return fails("open", EMFILE) ? NULL : REAL(fopen)(path, mode);
}

ssize_t pread(int descriptor, void *data, size_t size, off_t at) {
    return fails("read", EIO) ? -1 : REAL(pread)(descriptor, data, size, at);
}

ssize_t pwrite(int descriptor, const void *data, size_t size, off_t at) {
    return fails("write", ENOSPC) ? -1 : REAL(pwrite)(descriptor, data, size, at);
}

int fdatasync(int descriptor) {
    return fails("write", EIO) ? -1 : REAL(fdatasync)(descriptor);
}

int ftruncate(int descriptor, off_t size) {
    return fails("write", ENOSPC) ? -1 : REAL(ftruncate)(descriptor, size);
}

void *mmap(void *at, size_t size, int protection, int flags, int file, off_t offset) {
    return fails("map", ENOMEM) ? MAP_FAILED
                                : REAL(mmap)(at, size, protection, flags, file, offset);
}

int daemon(int keep_folder, int keep_output) {
    return fails("fork", EAGAIN) ? -1 : REAL(daemon)(keep_folder, keep_output);
}
