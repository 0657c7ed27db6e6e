// Calls of the system library that the test executable interposes: the code under test calls them
// by their real names, and they never reach the kernel unless a test lets them.
#pragma once

#include <ctime>
#include <functional>
#include <optional>

namespace rig {

// What answers every ioctl. Without one, ioctl fails with ENOTTY. The result is ioctl's own; a
// negative one comes with errno set.
using IoctlHandler = std::function<int(int descriptor, unsigned long request, void *argument)>;
void onIoctl(IoctlHandler handler);

// Stops time() at this moment, until the next call; sleep() then moves it on without waiting.
void setTime(std::time_t now);

// How many seconds sleep() was asked for since the test began.
unsigned int sleptSeconds();

// Minutes west of the last settimeofday(), if there was one.
extern std::optional<int> kernelMinutesWest;

void resetCalls();

} // namespace rig
