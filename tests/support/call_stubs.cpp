#include "support/call_stubs.h"

#include <cerrno>
#include <cstdarg>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <unistd.h>
#include <utility>

namespace rig {
namespace {
IoctlHandler handler;
std::optional<std::time_t> stopped;
unsigned int slept;
} // namespace

std::optional<int> kernelMinutesWest;

void onIoctl(IoctlHandler newHandler) {
    handler = std::move(newHandler);
}

void setTime(std::time_t now) {
    stopped = now;
}
unsigned int sleptSeconds() {
    return slept;
}

void resetCalls() {
    handler = nullptr;
    stopped.reset();
    slept = 0;
    kernelMinutesWest.reset();
}

} // namespace rig

extern "C" {

int ioctl(int descriptor, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    if (rig::handler)
        return rig::handler(descriptor, request, argument);
    errno = ENOTTY;
    return -1;
}

std::time_t time(std::time_t *result) noexcept {
    std::time_t now;
    if (rig::stopped) {
        now = *rig::stopped;
    } else {
        timespec real{};
        clock_gettime(CLOCK_REALTIME, &real);
        now = real.tv_sec;
    }
    if (result != nullptr)
        *result = now;
    return now;
}

unsigned int sleep(unsigned int seconds) {
    rig::slept += seconds;
    if (rig::stopped)
        *rig::stopped += seconds;
    return 0;
}

// The kernel shifts the system clock at the first such call after boot: it must never get there.
int settimeofday(const timeval *, const struct timezone *zone) noexcept {
    if (zone != nullptr)
        rig::kernelMinutesWest = zone->tz_minuteswest;
    return 0;
}
}
