#include "support/faults.h"

#include <atomic>
#include <cerrno>
#include <cjson/cJSON.h>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <optional>
#include <set>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

// There in a build with sanitizers.
extern "C" [[gnu::weak]] std::size_t __sanitizer_get_current_allocated_bytes();

namespace rig {
namespace {

struct Plan {
    Call call;
    std::size_t n;
    bool forGood;
};
std::optional<Plan> plan;
std::set<FILE *> failedStreams;

// Where a child counts as well: that it could not execute is seen by nobody else.
std::atomic<std::size_t> &count() {
    static auto *shared = static_cast<std::atomic<std::size_t> *>(
        mmap(nullptr, sizeof(std::atomic<std::size_t>), PROT_READ | PROT_WRITE,
             MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    return *shared;
}

// Counts a call. Whether it has to fail, with errno set.
bool fails(Call call, int error) {
    if (!plan || plan->call != call)
        return false;
    const std::size_t number = ++count();
    if (plan->forGood ? number < plan->n : number != plan->n)
        return false;
    errno = error;
    return true;
}

bool streamFails(Call call, int error, FILE *stream) {
    if (stream == stdout || stream == stderr || !fails(call, error))
        return false;
    failedStreams.insert(stream);
    return true;
}

const bool exact = __sanitizer_get_current_allocated_bytes != nullptr;

} // namespace

const double bytesTolerance = exact ? 0 : 64 * 1024;

double bytesInUse() {
    return static_cast<double>(exact ? __sanitizer_get_current_allocated_bytes()
                                     : mallinfo2().uordblks);
}

std::size_t openDescriptors() {
    std::size_t count = 0;
    for (int descriptor = 0; descriptor < 1024; ++descriptor)
        count += fcntl(descriptor, F_GETFD) >= 0 ? 1 : 0;
    return count;
}

std::string nameOf(Call call) {
    constexpr const char *kNames[] = {"allocation", "open",  "read", "write",
                                      "close",      "ioctl", "fork", "execution"};
    return kNames[static_cast<std::size_t>(call)];
}

Fault::Fault(Call call, std::size_t n, bool forGood) {
    count() = 0;
    failedStreams.clear();
    plan = {call, n, forGood};
}

Fault::~Fault() {
    plan.reset();
}

bool Fault::hasHappened() const {
    return count() >= plan->n;
}

} // namespace rig

using rig::Call;
using rig::fails;
using rig::streamFails;

// The linker sends every call of a name here instead, and leaves the call itself as __real_name.
#define INTERPOSE(result, name, parameters) \
    result __real_##name parameters;        \
    result __wrap_##name parameters;        \
    result __wrap_##name parameters

// A call that is what it was until its turn has come.
#define FAULTY(result, name, parameters, arguments, turn, failure) \
    INTERPOSE(result, name, parameters) {                          \
        return turn ? failure : __real_##name arguments;           \
    }

extern "C" {
FAULTY(void *, malloc, (std::size_t size), (size), fails(Call::kAllocate, ENOMEM), nullptr)
FAULTY(void *, calloc, (std::size_t count, std::size_t size), (count, size),
       fails(Call::kAllocate, ENOMEM), nullptr)
FAULTY(char *, strdup, (const char *text), (text), fails(Call::kAllocate, ENOMEM), nullptr)
FAULTY(void *, mmap,
       (void *at, std::size_t size, int protection, int flags, int file, off_t offset),
       (at, size, protection, flags, file, offset), fails(Call::kAllocate, ENOMEM), MAP_FAILED)
FAULTY(FILE *, fopen, (const char *path, const char *mode), (path, mode),
       fails(Call::kOpen, EMFILE), nullptr)
// What may follow the two that are always there is passed like any other.
FAULTY(int, open, (const char *path, int flags, unsigned int mode), (path, flags, mode),
       fails(Call::kOpen, EMFILE), -1)
FAULTY(int, socket, (int domain, int type, int protocol), (domain, type, protocol),
       fails(Call::kOpen, EMFILE), -1)
FAULTY(ssize_t, read, (int file, void *data, std::size_t size), (file, data, size),
       fails(Call::kRead, EIO), -1)
FAULTY(ssize_t, pread, (int file, void *data, std::size_t size, off_t at), (file, data, size, at),
       fails(Call::kRead, EIO), -1)
FAULTY(char *, fgets, (char *line, int size, FILE *stream), (line, size, stream),
       streamFails(Call::kRead, EIO, stream), nullptr)
FAULTY(std::size_t, fread, (void *data, std::size_t size, std::size_t count, FILE *stream),
       (data, size, count, stream), streamFails(Call::kRead, EIO, stream), 0)
FAULTY(ssize_t, write, (int file, const void *data, std::size_t size), (file, data, size),
       fails(Call::kWrite, ENOSPC), -1)
FAULTY(int, fputs, (const char *text, FILE *stream), (text, stream),
       streamFails(Call::kWrite, ENOSPC, stream), EOF)
FAULTY(int, fflush, (FILE * stream), (stream),
       stream != nullptr && streamFails(Call::kWrite, ENOSPC, stream), EOF)
FAULTY(int, ftruncate, (int file, off_t size), (file, size), fails(Call::kWrite, EIO), -1)
FAULTY(int, ioctl, (int device, unsigned long request, void *argument), (device, request, argument),
       fails(Call::kIoctl, EIO), -1)
FAULTY(pid_t, fork, (), (), fails(Call::kFork, EAGAIN), -1)
FAULTY(int, execvp, (const char *file, char *const arguments[]), (file, arguments),
       fails(Call::kExecute, ENOENT), -1)
FAULTY(int, ferror, (FILE * stream), (stream), rig::failedStreams.contains(stream), 1)

INTERPOSE(int, fprintf, (FILE * stream, const char *format, ...)) {
    if (streamFails(Call::kWrite, ENOSPC, stream))
        return -1;
    va_list arguments;
    va_start(arguments, format);
    const int length = vfprintf(stream, format, arguments);
    va_end(arguments);
    return length;
}

INTERPOSE(int, close, (int file)) {
    const int result = __real_close(file);
    return fails(Call::kClose, EIO) ? -1 : result;
}

INTERPOSE(int, fclose, (FILE * stream)) {
    const bool failed = rig::failedStreams.erase(stream) != 0;
    const int result = __real_fclose(stream);
    if (failed)
        errno = ENOSPC;
    return failed || fails(Call::kClose, EIO) ? EOF : result;
}

INTERPOSE(int, system, (const char *command)) {
    if (fails(Call::kFork, EAGAIN))
        return -1;
    return fails(Call::kExecute, ENOENT) ? 127 << 8 : __real_system(command);
}
}

namespace rig {

void failEveryCall(const std::function<void()> &prepare, const std::function<void()> &body,
                   const std::function<void(Call)> &check) {
    cJSON_Hooks hooks{__wrap_malloc, free};
    cJSON_InitHooks(&hooks);
    for (const Call call : kEveryCall) {
        bool happened = true;
        for (std::size_t n = 1; happened && !testing::Test::HasFailure(); ++n) {
            for (const bool forGood : {false, true}) {
                SCOPED_TRACE(nameOf(call) + " " + std::to_string(n) + (forGood ? " and on" : ""));
                prepare();
                const std::size_t before = openDescriptors();
                {
                    const Fault fault(call, n, forGood);
                    body();
                    happened = fault.hasHappened();
                }
                EXPECT_EQ(openDescriptors(), before) << "a descriptor is left";
                EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
                check(call);
            }
        }
    }
    cJSON_InitHooks(nullptr);
}

} // namespace rig
