// The engine behind a Unix socket, for hosts where "/dev/idpfw" cannot be a real device: callers
// reach it with the preloaded shim.
#pragma once

#include "engine/device/device.h"

#include <memory>
#include <string>

namespace idpfwd {

// Listens at the given path, for the engine's own user only. The socket file of an engine that is
// no more is replaced; a living one is refused. Puts a plain file where callers expect the device,
// if nothing is there and it may; a file or folder that it cannot make is said on standard error.
// An empty file that is there passes for one that an engine left when it was killed. Both files are
// removed at the end. Null with a one-line reason in error.
std::unique_ptr<Device> openSocketDevice(const std::string &path, const std::string &deviceFile,
                                         std::string &error);

} // namespace idpfwd
